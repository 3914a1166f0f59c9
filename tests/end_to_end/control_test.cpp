// server start and server stop.

#include <signal.h>

#include <chrono>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using ControlCommandTest = ServerTest;
using ControlWithoutServerTest = CommandTest;

TEST_F(ControlCommandTest, StopAndStartTellWhatTheyFound) {
  addServer();
  EXPECT_EQ(runJson({"server", "start", "db", "--command", "false"})["result"], "already_running");
  EXPECT_THAT(run({"server", "stop", "db"}).output, testing::MatchesRegex("db  stopped  [0-9.]+ s\n"));
  EXPECT_EQ(run({"server", "stop", "db"}).output, "db  already down\n");
  ASSERT_TRUE(waitUntil([] { return server().hasEnded(); }));

  const Json started = runJson({"server", "start", "db", "--command", server().startCommand(), "--wait", "60"});
  EXPECT_EQ(started["result"], "started");
  EXPECT_GT(started["seconds"].get<double>(), 0);
  EXPECT_EQ(server().execute("select 1"), "1\n") << "it outlives the command";

  // The command of the settings, a stop command of one's own, and no waiting.
  const std::string stop = "/usr/bin/mariadb-admin --defaults-file=" + server().directory() + "/agent.cnf shutdown";
  EXPECT_EQ(runJson({"server", "stop", "db", "--command", stop})["result"], "stopped");
  ASSERT_TRUE(waitUntil([] { return server().hasEnded(); }));
  runJson({"setting", "set", "sServerStartCmd", server().startCommand()});
  EXPECT_EQ(runJson({"server", "start", "db", "--wait", "0"}),
            Json({{"instance", "db"}, {"result", "launched"}, {"seconds", nullptr}}));
  EXPECT_TRUE(waitUntil([&] { return run({"ping", "db"}).exitStatus == 0; }, std::chrono::seconds(60)));
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(ControlCommandTest, AServerThatRefusesTheAccountIsNeitherDownNorStarted) {
  addServer();
  ASSERT_EQ(run({"instance", "set", "db", "--password-stdin"}, {.input = "not the password\n"}).exitStatus, 0);
  for (const char* what : {"stop", "start"}) {
    EXPECT_TRUE(failedWith(run({"server", what, "db"}),
                           "the server of db runs, but refuses the account: Access denied for user 'agent'@'localhost' "
                           "(using password: YES); orrery-mysql instance set"));
  }
}

TEST_F(ControlWithoutServerTest, AServerThatDoesNotComeUpIsAFailureAfterTheWait) {
  addInstance("db", directory_ / "none.sock");
  EXPECT_TRUE(failedWith(run({"server", "start", "db", "--command", "false", "--wait", "2"}),
                         "no answer from db within 2 s: Can't connect to local server through socket '" +
                             directory_ / "none.sock' (2); run the start command by hand"));
  EXPECT_EQ(run({"server", "stop", "db"}).output, "db  already down\n");
}

TEST_F(ControlWithoutServerTest, AServerThatTakesConnectionsAndDoesNotAnswerIsNotWaitedForBeyondTheLimit) {
  makeProgram(directory_ / "bin/mysql", "exit 1\n");
  makeProgram(directory_ / "bin/mysqladmin",
              "[ -e " + directory_ / "up" + " ] && exec sleep 300\n: >" + directory_ / "up" +
                  "\necho \"error: 'Can'\\''t connect to server on '\\''h'\\'' (111)'\" >&2; exit 1\n");
  addInstance("db", "h:1", {"--bin", directory_ / "bin"});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(failedWith(run({"server", "start", "db", "--command", "true", "--wait", "1"}),
                         "no answer from db within 1 s; run the start command by hand"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(ControlWithoutServerTest, WhatCannotWorkIsToldBeforeAnythingRuns) {
  addClients("echo Too many >&2; exit 1\n");
  EXPECT_TRUE(failedWith(run({"server", "stop", "db"}),
                         "nothing is stopped: it is not known whether the server of db runs: Too many; "));
  EXPECT_TRUE(refusedUsage(run({"server", "stop", "db", "--command", "service mysqld stop"}), "program's path"));
  EXPECT_TRUE(refusedUsage(run({"server", "start", "db", "--command="}), "--command is empty"));
  writeFile(home() + "/settings.ini", "[MySQL]\nnStartServerWaitTime = soon\n");
  EXPECT_TRUE(failedWith(run({"server", "start", "db", "--command", "true"}),
                         "the value soon of nStartServerWaitTime is refused"));
}

TEST_F(ControlWithoutServerTest, CtrlCEndsTheWaitForAServer) {
  const std::string asked = directory_ / "asked";
  addClients("case $0 in *admin) echo x >>" + asked + "; echo 'not yet' >&2;; esac; exit 1\n");
  RunningProgram program(commandLine(home(), {"server", "start", "db", "--command", "true"}));
  ASSERT_TRUE(appears(asked));
  ASSERT_TRUE(waitUntil([&] { return readFile(asked).size() >= 6; })) << "it asks again and again";
  program.signalGroup(SIGINT);
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.signal, SIGINT);
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(ControlWithoutServerTest, CtrlCEndsTheWaitForAServerThatStaysUp) {
  addClients("echo mysqld is alive\n");
  RunningProgram program(commandLine(home(), {"server", "stop", "db", "--command", "/bin/true"}));
  ASSERT_TRUE(waitUntil([&] { return log().find("status check attempt 0") != std::string::npos; }));
  const auto begin = std::chrono::steady_clock::now();
  program.signalGroup(SIGINT);
  EXPECT_EQ(program.wait().signal, SIGINT);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "not after the pause of ten seconds";
}

}  // namespace
}  // namespace orrery::test
