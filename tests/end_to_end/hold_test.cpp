// orrery-mysql replica hold: a real replica is stopped while a command runs, and let go whatever the command does.

#include <signal.h>

#include <filesystem>

#include "orrery/platform/DZFile.h"

#include "command_fixture.h"

namespace orrery::test {
namespace {

class HoldTest : public ReplicaPairTest {
 protected:
  std::vector<std::string> hold(std::vector<std::string> words) const {
    words.insert(words.begin(), {"--access", "auto", "replica", "hold", "db", "--"});
    return words;
  }
  Json status() const { return runJson({"replica", "status", "db"}); }
  /// A command that tells that it runs and goes on until it is told to end.
  std::vector<std::string> untilTold() const {
    return {"sh", "-c", ": >" + running_ + "; until [ -e " + end_ + " ]; do sleep 0.02; done; exit 7"};
  }

  const std::string running_ = directory_ / "running";
  const std::string end_ = directory_ / "end";
};

TEST_F(HoldTest, TheCommandsArgumentsOutputAndExitStatusAreItsOwn) {
  const ProgramResult result =
      run(hold({"sh", "-c", "printf '%s|' \"$@\"; ls -l /proc/self/fd >" + running_ + "; exit 7", "sh", "[a,b]",
                "--home", "", "x  y", "--"}));
  EXPECT_EQ(result.exitStatus, 7);
  EXPECT_EQ(result.output, "[a,b]|--home||x  y|--|");
  EXPECT_EQ(result.errors, "");
  const std::string open = readFile(running_);
  EXPECT_THAT(open, testing::Not(testing::HasSubstr("socket:"))) << "it inherits nothing of the holder's";
  EXPECT_THAT(open, testing::Not(testing::HasSubstr(home())));
  EXPECT_EQ(counter(), "0");
  EXPECT_TRUE(waitUntil(runs));
  EXPECT_EQ(status()["holders"], Json::array());
  EXPECT_EQ(run(hold({"sh", "-c", "kill -KILL $$"})).exitStatus, 128 + SIGKILL);
  EXPECT_EQ(counter(), "0");
}

TEST_F(HoldTest, TwoHoldersShareTheReplicaAndTheLastLetsItGo) {
  RunningProgram first(commandLine(home(), hold(untilTold())));
  ASSERT_TRUE(appears(running_));
  EXPECT_FALSE(runs());
  const Json found = status();
  EXPECT_TRUE(has(found, {{"replication", "held"}, {"counter", 1}}));
  ASSERT_EQ(found["holders"].size(), 1U);
  EXPECT_TRUE(has(found["holders"][0], {{"alive", true}, {"pid", first.pid()}}));
  EXPECT_EQ(run(hold({"true"})).exitStatus, 0);
  EXPECT_EQ(counter(), "1");
  EXPECT_FALSE(runs()) << "the first one still holds it";
  writeFile(end_, "");
  EXPECT_EQ(first.wait().exitStatus, 7);
  EXPECT_TRUE(waitUntil(runs));
  EXPECT_EQ(status()["replication"], "running");
}

TEST_F(HoldTest, AnInterruptReachesTheCommandOnceAndLetsTheReplicaGo) {
  RunningProgram deaf(commandLine(home(), hold(untilTold())));
  ASSERT_TRUE(appears(running_));
  deaf.signalGroup(SIGINT);
  EXPECT_EQ(deaf.wait().signal, SIGINT);
  EXPECT_EQ(counter(), "0");
  EXPECT_TRUE(waitUntil(runs));
  std::filesystem::remove(running_);

  // A command that answers a signal in its own way, which the signal's sender alone may end.
  const std::string heard = directory_ / "heard";
  RunningProgram careful(commandLine(home(), hold({"sh", "-c",
                                                   "trap 'echo x >>" + heard + "' TERM; : >" + running_ +
                                                       "; until [ -e " + end_ + " ]; do sleep 0.02; done; exit 5"})));
  ASSERT_TRUE(appears(running_));
  ASSERT_EQ(::kill(careful.pid(), SIGTERM), 0);
  ASSERT_TRUE(appears(heard));
  writeFile(end_, "");
  EXPECT_EQ(careful.wait().exitStatus, 5) << "the command's own end is the end";
  EXPECT_EQ(readFile(heard), "x\n");
  EXPECT_EQ(counter(), "0");
}

TEST_F(HoldTest, AnInterruptedHolderWaitsForTheLockAndLetsGoAllTheSame) {
  RunningProgram holder(commandLine(home(), hold(untilTold())));
  ASSERT_TRUE(appears(running_));
  DZFile lock;
  ASSERT_TRUE(lock.open(home() + "/tmp/MySQLInstance_2_LOCK", DZFile::modeReadWrite));
  ASSERT_GT(lock.lock(DZFile::lockExclusive, 0), 0);
  holder.signalGroup(SIGTERM);
  EXPECT_FALSE(waitUntil([&] { return log().find("waited for 10 minutes") != std::string::npos; },
                         std::chrono::milliseconds(500)));
  EXPECT_EQ(counter(), "1");
  lock.close();
  EXPECT_EQ(holder.wait().signal, SIGTERM);
  EXPECT_EQ(counter(), "0");
  EXPECT_TRUE(waitUntil(runs));
}

TEST_F(HoldTest, ACounterThatCannotBeWrittenLeavesNoReplicaStopped) {
  run(hold({"true"}));
  std::filesystem::create_directory(home() + "/tmp/Instance_2_RunningBkpUps.new");
  const ProgramResult refused = run(hold({"echo", "ran"}));
  EXPECT_EQ(refused.exitStatus, 1);
  EXPECT_EQ(refused.output, "");
  EXPECT_TRUE(waitUntil(runs)) << refused.errors;
}

TEST_F(HoldTest, ACounterThatCannotBeReadAtTheEndIsToldAndItsHolderKept) {
  const std::string file = home() + "/tmp/Instance_2_RunningBkpUps";
  const ProgramResult result = run(hold({"sh", "-c", "rm -f " + file + "; mkdir " + file}));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.errors, testing::HasSubstr("is not let go: the counter " + file + " cannot be "));
  EXPECT_FALSE(runs());
  std::filesystem::remove(file);
  EXPECT_EQ(status()["holders"].size(), 1U) << "who left it stopped is known";
  EXPECT_EQ(run({"replica", "release", "--stale", "db", "--yes"}).exitStatus, 0);
  EXPECT_TRUE(waitUntil(runs));
}

TEST_F(HoldTest, AReplicaThatRunsAlthoughItIsCountedIsNotTakenForHeld) {
  writeFile(home() + "/tmp/Instance_2_RunningBkpUps", "1", 0600);
  EXPECT_TRUE(failedWith(run(hold({"echo", "ran"})), "but replication runs there"));
  EXPECT_EQ(counter(), "1");
  EXPECT_TRUE(runs());
}

TEST_F(HoldTest, AHolderThatIsKilledIsClearedOnceItsCommandHasEnded) {
  RunningProgram holder(commandLine(home(), hold(untilTold())));
  ASSERT_TRUE(appears(running_));
  ASSERT_EQ(::kill(holder.pid(), SIGKILL), 0);
  EXPECT_EQ(holder.wait().signal, SIGKILL);
  EXPECT_EQ(status()["holders"][0]["alive"], true) << "the command still reads";
  EXPECT_EQ(runJson({"replica", "release", "--stale", "--yes", "db"})["counter"], 1);
  writeFile(end_, "");
  ASSERT_TRUE(waitUntil([&] { return status()["holders"][0]["alive"] == false; }));
  EXPECT_FALSE(runs());
  const Json done = runJson({"replica", "release", "--stale", "--yes", "db"});
  EXPECT_TRUE(has(done, {{"counter", 0}, {"replica_started", true}}));
  EXPECT_TRUE(waitUntil(runs));
}

TEST_F(HoldTest, WhatIsNoRunningReplicaIsNotHeld) {
  EXPECT_TRUE(failedWith(run({"--access", "library", "replica", "hold", "primary", "--", "true"}), "is no replica"));
  replica().execute("stop slave");
  EXPECT_TRUE(failedWith(run(hold({"true"})), "replication does not run there"));
  EXPECT_EQ(status()["replication"], "stopped");
  replica().execute("start slave");
}

}  // namespace
}  // namespace orrery::test
