// Servers that refuse, are down or cannot be reached; accounts and disks that went away.

#include <unistd.h>

#include <filesystem>

#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"

#include "command_fixture.h"

namespace orrery::test {
namespace {

namespace fs = std::filesystem;

using ServerFailureTest = ServerTest;
using UnreachableTest = CommandTest;

TEST_F(ServerFailureTest, AWrongPasswordIsToldWithTheServersNumber) {
  addServer();
  ASSERT_EQ(run({"instance", "set", "db", "--password-stdin"}, {.input = "not the password\n"}).exitStatus, 0);
  const ProgramResult version = run({"version", "db"});
  EXPECT_TRUE(failedWith(version, ": [1045] Access denied for user 'agent'@'localhost' (using password: YES); "));
  EXPECT_TRUE(failedWith(version, "--password-file"));
  EXPECT_TRUE(failedWith(run({"binlog", "flush", "db", "--format", "json"}), "[1045]"));
  EXPECT_TRUE(failedWith(run({"ping", "db"}), "Access denied"));
  EXPECT_EQ((version.errors + log()).find("not the password"), std::string::npos);
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(ServerFailureTest, AnAccountThatWentAwayIsNamed) {
  addServer();
  {
    std::shared_ptr<const platform::Services> services;
    ASSERT_TRUE(platform::openHome(home(), services).ok());
    ASSERT_TRUE(services->inventory->writeProperties(1, {{platform::property::unixUser, "no-such-account-here"}}).ok());
  }
  EXPECT_TRUE(failedWith(run({"ping", "db"}), "the Unix account no-such-account-here does not exist"));
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(UnreachableTest, ASocketThatBecameAFile) {
  const std::string socket = directory_ / "s.sock";
  addInstance("db", socket);
  EXPECT_TRUE(failedWith(run({"version", "db"}), "[2002]"));
  writeFile(socket, "no socket");
  EXPECT_TRUE(failedWith(run({"ping", "db"}), socket));
  EXPECT_TRUE(failedWith(run({"version", "db"}), "[2002]"));
}

TEST_F(UnreachableTest, ClientsThatWentAway) {
  addClients("exit 0\n");
  const std::string bin = directory_ / "bin";
  fs::remove_all(bin);
  fs::create_directory(bin);
  EXPECT_TRUE(failedWith(run({"ping", "db"}), bin));
  EXPECT_TRUE(failedWith(run({"version", "db"}), bin));
}

TEST_F(UnreachableTest, AClientThatSaysNothingAndFails) {
  addClients("exit 9\n");
  EXPECT_TRUE(failedWith(run({"version", "db"}), "no version from db: "));
  EXPECT_TRUE(failedWith(run({"ping", "db"}), "no answer from db: "));
}

TEST_F(UnreachableTest, AClientWithManyLinesIsPutOnOne) {
  addClients(
      "printf -- '--------------\\nFLUSH LOGS\\n--------------\\n\\nERROR 1105 (HY000) at line 1: "
      "odd\\n\\ttext\\033[1m\\n' >&2\nexit 1\n");
  EXPECT_TRUE(failedWith(run({"binlog", "flush", "db"}), ": [1105] odd text [1m; "));
}

/// Runs a command where a folder of the home is a file system of its own, prepared by `prepare`. Whatever the command
/// leaves there is listed in `left`.
ProgramResult runOnSmallDisk(const std::string& folder, const std::string& options, const std::string& prepare,
                             const std::vector<std::string>& command, const std::string& left) {
  const char* const script =
      "set -e; folder=$1; left=$2; shift 2; mount -t tmpfs -o mode=0711,\"$MOUNT\" none \"$folder\"; cd \"$folder\"; "
      "eval \"$PREPARE\"; status=0; \"$@\" || status=$?; ls -A \"$folder\" >\"$left\"; exit $status";
  std::vector<std::string> line{"unshare", ::geteuid() == 0 ? "-m" : "-rm", "sh", "-c", script, "sh", folder, left};
  line.insert(line.end(), command.begin(), command.end());
  return runProgram(line, {.environment = {"MOUNT=" + options, "PREPARE=" + prepare}});
}

TEST_F(UnreachableTest, AFullDiskForShortLivedFiles) {
  addInstance("db", "h:1");
  const std::string left = directory_ / "left";
  const ProgramResult result = runOnSmallDisk(home() + "/tmp", "size=16k", "cat /dev/zero >filler 2>/dev/null || true",
                                              commandLine(home(), {"ping", "db"}), left);
  EXPECT_TRUE(failedWith(result, "the disk under " + home() + "/tmp is full"));
  EXPECT_EQ(readFile(left), "filler\n");
}

TEST_F(UnreachableTest, AFullDiskForResults) {
  addInstance("db", "h:1");
  const std::string left = directory_ / "left";
  const ProgramResult result =
      runOnSmallDisk(home() + "/results", "nr_inodes=2", "touch filler", commandLine(home(), {"version", "db"}), left);
  EXPECT_TRUE(failedWith(result, home() + "/results"));
  EXPECT_EQ(readFile(left), "filler\n");
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

}  // namespace
}  // namespace orrery::test
