// The child's side of a run, from fork to exec. Other threads of the parent may hold any lock, and the memory may be
// the parent's: only system calls here, no heap, no name service, no write outside the stack and the plan's own room.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/platform/posix.h"

#include "process/child_plan.h"
#include "process/exit_codes.h"

namespace {

using orrery::mysql::ChildPlan;
namespace exitCode = orrery::mysql::exitCode;

constexpr const char* tag = "MySqlChildProcess::PostFork";
// On smaller machines the bare calls take 16-bit ids.
static_assert(sizeof(void*) == 8, "64-bit Linux only");

[[noreturn]] void leave(int code) {
  _exit(code);
}

/// setuid() and its kin of the C library change every thread of a process, which here would be the parent's threads;
/// the bare system calls change the child alone.
void takeAccount(const ChildPlan& plan, const EvEvent& event) {
  if (!plan.takesAccount) return;
  const auto& account = plan.account;
  if (syscall(SYS_setgroups, account.groups.size(), account.groups.data()) != 0) {
    event.Error(tag, "Child initgroups failed, errno %d", errno);
    leave(exitCode::accountFailed);
  }
  if (account.gid != getgid() && syscall(SYS_setgid, account.gid) != 0) {
    event.Error(tag, "Child setgid failed, errno %d", errno);
    leave(exitCode::accountFailed);
  }
  if (syscall(SYS_setuid, account.uid) != 0) {
    event.Error(tag, "Child setuid failed, errno %d", errno);
    leave(exitCode::accountFailed);
  }
}

void redirectInputAndOutput(int input, int output, const EvEvent& event) {
  if (input != STDIN_FILENO && dup2(input, STDIN_FILENO) < 0) {
    event.Error(tag, "Child dup2-STDIN failed errno: %d", errno);
    leave(exitCode::redirectionFailed);
  }
  if (output != STDOUT_FILENO && dup2(output, STDOUT_FILENO) < 0) {
    event.Error(tag, "Child dup2-STDOUT failed,errno: %d", errno);
    leave(exitCode::redirectionFailed);
  }
}

/// Kept: an error file that exists is opened for reading only, so a later child's error output into it is not recorded.
/// What the first child wrote is evidence and stays as it is.
int openErrorFile(const char* path) {
  const int created = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0660);
  if (created >= 0 || errno != EEXIST) return created;
  return open(path, O_RDONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK);
}

void redirectErrors(const char* path, const EvEvent& event) {
  const int file = openErrorFile(path);
  if (file < 0) {
    event.Error(tag, "Failed to create a MySqlErrors file [%s], errno [%d]", path, errno);
    leave(exitCode::redirectionFailed);
  }
  if (dup2(file, STDERR_FILENO) < 0) {
    event.Error(tag, "Child dup2-STDERR failed,errno: %d", errno);
    leave(exitCode::redirectionFailed);
  }
}

[[noreturn]] void execute(const ChildPlan& plan, bool cleanEnvironment, const EvEvent& event) {
  // The runner ignores SIGPIPE in the agent; a program expects it as it is by default.
  struct sigaction pipeSignal {};
  pipeSignal.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &pipeSignal, nullptr);
  static char libraryPath[] = "LD_LIBRARY_PATH=/lib64:/lib:/usr/lib:/usr/lib64";
  std::array<char*, 2> clean{libraryPath, nullptr};
  execve(plan.argv[0], plan.argv.data(), cleanEnvironment ? clean.data() : environ);
  event.Error(tag, "Child exec failed, errno: %d", errno);
  leave(exitCode::execFailed);
}

}  // namespace

void MySqlChildProcess::PostFork(void* param) {
  auto& block = *static_cast<MySqlChildParam*>(param);
  ChildPlan& plan = *block.plan;
  EvEvent event;
  std::array<char, kMaxCommandLength + 1> command;
  std::array<char, kMaxUserLength + 1> user;
  int pw[2];
  int cw[2];
  bool cleanEnvironment = false;
  GetPostForkParam(&block, command.data(), user.data(), pw, cw, &event, cleanEnvironment, plan.errFile);
  close(pw[1]);
  close(cw[0]);

  takeAccount(plan, event);
  redirectInputAndOutput(pw[0], cw[1], event);
  redirectErrors(plan.errFile.c_str(), event);
  // The host's descriptors close with exec and not before, so that a failing exec can still be logged.
  orrery::platform::closeOthersOnExec();
  execute(plan, cleanEnvironment, event);
}

void MySqlChildProcess::GetPostForkParam(MySqlChildParam* param, char* cmd, char* user, int* pw, int* cw,
                                         EvEvent* event, bool& bCleanEnv, std::string& errFile) {
  std::memcpy(cmd, param->cmd, sizeof(param->cmd));
  std::memcpy(user, param->user, sizeof(param->user));
  std::copy_n(param->pw, 2, pw);
  std::copy_n(param->cw, 2, cw);
  bCleanEnv = param->bCleanEnv;
  errFile = param->errFile;
  if (event != nullptr) {
    event->DebugLvl("MySqlChildProcess::GetPostForParam", 8, "command [%.200s] user [%s]", cmd, user);
  }
}
