// A command that is asked to stop, or killed, while a client runs.

#include <signal.h>

#include "command_fixture.h"

namespace orrery::test {
namespace {

/// An instance whose clients tell that they run, and then do not end by themselves.
class InterruptTest : public CommandTest {
 protected:
  void addSleeper() const { addClients(": >" + started_ + "\nexec sleep 300\n"); }
  /// Clients that tell of every signal, and stay.
  void addDeafClients() const {
    addClients("trap ': >" + heard_ + "' INT TERM\n: >" + started_ + "\nwhile :; do sleep 0.05; done\n");
  }

  std::string started_ = directory_ / "started";
  std::string heard_ = directory_ / "heard";
};

TEST_F(InterruptTest, CtrlCLeavesNothingBehind) {
  addSleeper();
  RunningProgram program(commandLine(home(), {"ping", "db"}));
  ASSERT_TRUE(appears(started_));
  ASSERT_THAT(namesIn(home() + "/tmp"), testing::SizeIs(1)) << "the defaults file is there while the client runs";
  program.signalGroup(SIGINT);
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.signal, SIGINT) << "a shell shows this end as exit status 130";
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(InterruptTest, AShellSeesExitStatus130) {
  addSleeper();
  const ProgramResult result = runProgram({"bash", "-c",
                                           "\"$@\" & pid=$!; trap '' INT; until [ -e " + started_ +
                                               " ]; do sleep 0.02; done; kill -TERM $pid; wait $pid; echo $?",
                                           "bash", ORRERY_MYSQL_COMMAND, "--home", home(), "version", "db"});
  EXPECT_EQ(result.output, "143\n") << "the signal reached the command alone, not its client";
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(InterruptTest, ASecondSignalEndsAClientThatDoesNotListen) {
  addDeafClients();
  RunningProgram program(commandLine(home(), {"ping", "db"}));
  ASSERT_TRUE(appears(started_));
  ASSERT_EQ(::kill(program.pid(), SIGINT), 0);
  ASSERT_TRUE(appears(heard_)) << "the first signal is handed on";
  ASSERT_EQ(::kill(program.pid(), SIGTERM), 0);
  EXPECT_EQ(program.wait().signal, SIGINT);
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(InterruptTest, WhatAKilledCommandLeftIsRemovedByTheNext) {
  addSleeper();
  RunningProgram program(commandLine(home(), {"ping", "db"}));
  ASSERT_TRUE(appears(started_));
  program.signalGroup(SIGKILL);
  EXPECT_EQ(program.wait().signal, SIGKILL);
  ASSERT_THAT(namesIn(home() + "/tmp"), testing::SizeIs(1));
  EXPECT_THAT(instanceNames(), testing::ElementsAre("db"));
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

}  // namespace
}  // namespace orrery::test
