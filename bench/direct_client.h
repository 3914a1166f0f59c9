#pragma once

/// What command mode starts, started without it.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "bench/pairs.h"

namespace orrery::bench {

/// The raw way: posix_spawn, a pipe for standard output, standard error to nowhere.
inline std::string runDirectly(std::vector<std::string> arguments) {
  int ends[2];
  require(pipe2(ends, O_CLOEXEC) == 0, "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  require(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0, "posix_spawn");
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string output;
  std::vector<char> buffer(65536);
  for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
    output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  require(waitpid(pid, &status, 0) == pid && status == 0, "the direct client failed");
  return output;
}

inline std::vector<std::string> directArguments(const GetMySqlInfo& session, const std::string& statement) {
  return {session.strBinaryPath + "/mysql",
          "--defaults-file=" + session.strConfigPwdFile,
          "--default-character-set=utf8",
          "-u",
          session.strSaUser,
          "--socket=" + session.strSocketFile,
          "-e",
          statement,
          "--batch",
          "--skip-column-names"};
}

}  // namespace orrery::bench
