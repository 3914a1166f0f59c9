// Failures, asked for and real: each is told, and leaves neither an image nor a process.

#include <signal.h>
#include <stdlib.h>

#include <filesystem>

#include <gmock/gmock.h>

#include "mysqlbackup_test.h"

namespace orrery::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class MysqlbackupFaults : public MysqlbackupTest {
 protected:
  /// A value of PATH that finds, in place of the real one, a mariadb-backup that writes some MiB and then fails.
  std::string breakingProgram() const {
    fs::create_directory(folder_ / "bin");
    writeFile(folder_ / "bin/mariadb-backup",
              "#!/bin/sh\nhead -c 3000000 /dev/zero\necho 'ERROR: not ours' >&2\necho 'no space' >&2\nexit 3\n", 0755);
    return folder_ / ("bin:" + std::string(::secure_getenv("PATH")));
  }
  static constexpr const char* brokenOff =
      "mariadb-backup failed with exit status 3; its last words: ERROR: not ours | no space";
};

TEST_F(MysqlbackupFaults, EveryFaultOfABackupLeavesNothing) {
  for (const std::string fault : {"start", "options", "server", "stream:2", "media_write:3", "close", "history"}) {
    SCOPED_TRACE(fault);
    EXPECT_TRUE(failedWith(backup("b" + fault, {}, fault), "the fault \"" + fault.substr(0, fault.find(':')) + "\""));
    EXPECT_THAT(mediaFiles(), IsEmpty());
    EXPECT_THAT(records("b" + fault), IsEmpty());
    EXPECT_FALSE(someProcessMentions(folder_.path()));
  }
  const ProgramResult silent = backup("quiet", {}, "no_error_line");
  EXPECT_EQ(silent.exitStatus, 1);
  EXPECT_THAT(silent.errors, Not(HasSubstr("ERROR:")));
  EXPECT_TRUE(failedWith(backup("typo", {}, "streem"), "names no fault: streem"));
}

TEST_F(MysqlbackupFaults, EveryFaultOfARestoreIsTold) {
  ASSERT_TRUE(completed(backup("full")));
  for (const std::string fault : {"stream:2", "unpack", "prepare", "copy_back"}) {
    SCOPED_TRACE(fault);
    EXPECT_TRUE(failedWith(restore("full", {}, fault), "the fault \"" + fault.substr(0, fault.find(':')) + "\""));
    EXPECT_FALSE(fs::exists(data()));
    EXPECT_TRUE(fs::exists(restoreDirectory("full") + "/image")) << "stays to be looked at";
    EXPECT_FALSE(someProcessMentions(folder_.path()));
  }
  ASSERT_TRUE(completed(backupIncrement("one")));
  ASSERT_TRUE(completed(restore("full")));
  EXPECT_TRUE(failedWith(restore("one", {"--incremental"}, "apply"), "the fault \"apply\""));
  EXPECT_TRUE(failedWith(restore("one", {"--incremental"}, "", breakingProgram()), brokenOff));
  EXPECT_TRUE(failedWith(restore("one", {"--incremental"}), "holds no restored backup")) << "it is half applied";
}

TEST_F(MysqlbackupFaults, RealFailuresAreToldInTheWordsOfTheProgramThatFailed) {
  writeFile(folder_ / "password.cnf", "[client]\npassword=wrong\n", 0600);
  EXPECT_TRUE(
      failedWith(runProgram(backupCommand("b")), "mariadb failed with exit status 1; its last words: ERROR 1045"));
  EXPECT_TRUE(failedWith(backup("broken", {}, "", breakingProgram()), brokenOff));
  EXPECT_THAT(mediaFiles(), IsEmpty());
  fs::remove_all(media());
  EXPECT_TRUE(failedWith(backup("c"), "the media library cannot begin the session of the image c: "));
}

TEST_F(MysqlbackupFaults, AKilledRunLeavesNoImageAndNoProcess) {
  EXPECT_EQ(backup("killed", {}, "crash:2").signal, SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return !someProcessMentions(folder_.path()); }));
  EXPECT_TRUE(completed(backup("next")));
  EXPECT_EQ(mediaFiles(), std::vector<std::string>{"next"});
}

TEST_F(MysqlbackupFaults, ARunThatIsToldToEndGivesItsImageUp) {
  writeFile(folder_ / "password.cnf", "[client]\npassword='" + server_->agentPassword() + "'\n", 0600);
  for (const std::string fault : {"slow:200", "silent", "hang"}) {
    SCOPED_TRACE(fault);
    RunningProgram program(backupCommand("b" + fault), {.environment = {"ORRERY_MYSQLBACKUP_FAULT=" + fault}});
    // The image is being written, and has another name as long as it is.
    ASSERT_TRUE(waitUntil([&] { return !mediaFiles().empty(); }));
    ::kill(program.pid(), SIGTERM);
    if (fault != "hang") {
      EXPECT_TRUE(failedWith(program.wait(), "told to end by a signal"));
      EXPECT_THAT(mediaFiles(), IsEmpty());
    } else {
      EXPECT_FALSE(waitUntil([&] { return mediaFiles().empty(); }, std::chrono::milliseconds(300)));
      program.signalGroup(SIGKILL);
      EXPECT_EQ(program.wait().signal, SIGKILL);
    }
    EXPECT_FALSE(someProcessMentions(folder_.path()));
  }
}

}  // namespace
}  // namespace orrery::test
