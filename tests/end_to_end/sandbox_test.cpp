// The script behind the private servers: it touches nothing that is not its own.

#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "command_fixture.h"

namespace orrery::test {
namespace {

ProgramResult sandbox(const std::vector<std::string>& arguments) {
  std::vector<std::string> line{ORRERY_MARIADB_SANDBOX};
  line.insert(line.end(), arguments.begin(), arguments.end());
  return runProgram(line);
}

/// A process that ended but was not yet reaped by its parent has no command line any more.
bool runs(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/cmdline";
  return std::filesystem::exists(path) && !readFile(path).empty();
}

TEST(SandboxScript, RefusesFoldersThatAreNotItsOwn) {
  const TemporaryDirectory directory;
  writeFile(directory / "precious", "data");
  for (const char* command : {"start", "stop", "env"}) {
    const ProgramResult result = sandbox({command, directory.path()});
    EXPECT_EQ(result.exitStatus, 1) << command;
    EXPECT_THAT(result.errors, testing::HasSubstr(directory.path()));
  }
  EXPECT_THAT(namesIn(directory.path()), testing::ElementsAre("precious"));
}

TEST(SandboxScript, AServerThatDoesNotStartShowsItsLogAndLeavesNothing) {
  const TemporaryDirectory directory;
  const std::string folder = directory / "db";
  const ProgramResult result = sandbox({"start", folder, "--", "--no-such-option"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.errors, testing::HasSubstr("no-such-option"));
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(SandboxScript, StopSparesAStrangerWithTheServersProcessId) {
  auto server = std::make_unique<MariaDbSandbox>();
  server->crash();
  RunningProgram stranger({"sleep", "300"});
  // The number in the file is the stranger's by now, but not the time at which that process began.
  writeFile(server->directory() + "/server.pid", std::to_string(stranger.pid()) + " 1\n");
  const std::string folder = server->directory();
  server.reset();
  EXPECT_TRUE(runs(stranger.pid()));
  EXPECT_FALSE(std::filesystem::exists(folder));
  stranger.signalGroup(SIGTERM);
  EXPECT_EQ(stranger.wait().signal, SIGTERM) << "and nobody had ended it before";
}

}  // namespace
}  // namespace orrery::test
