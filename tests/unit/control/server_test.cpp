// Start and stop with stand-in programs; a real server is stopped and started by tests/integration/control_test.cpp.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "session/session_fixture.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::platform::ScopedJob;
using orrery::platform::Severity;
using orrery::test::readFile;
using orrery::test::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;

/// A session whose pings are answered from a list, the last answer again and again: as in a mode that asks in another
/// way than with a client.
class ScriptedPings : public GetMySqlInfo {
 public:
  int PingServer() override {
    const std::size_t turn = std::min(pings++, answers.size() - 1);
    return answers[turn];
  }
  std::vector<int> answers{0, -1};
  std::size_t pings = 0;
};

class ServerControl : public orrery::test::SessionTest {
 protected:
  void SetUp() override {
    for (GetMySqlInfo* each : {static_cast<GetMySqlInfo*>(&session_), &plain_}) {
      ASSERT_EQ(each->Init(id()), 0);
      each->strBinaryPath = bin_.path();
    }
    backend_.log().clear();
  }
  void install(const std::string& program, const std::string& script) {
    orrery::test::writeFile(bin_ / program, "#!/bin/sh\n" + script + "\n", 0755);
  }
  std::string builtIn(const std::string& program = "mysqladmin") const {
    return bin_ / program + "  --defaults-file=" + session_.strConfigPwdFile +
           " --default-character-set=utf8 -u agent --socket=/run/db1.sock shutdown";
  }
  static std::string announcement(const std::string& command) {
    return "stopcmd=[" + command + "].  Running this to stop the database server as root user";
  }
  /// The text of the one event; each is critical and of the same code.
  std::string eventText() const {
    const auto events = backend_.events();
    if (events.size() != 1 || events[0].arguments.size() != 1) return std::to_string(events.size()) + " events";
    EXPECT_EQ(events[0].severity, Severity::critical);
    EXPECT_EQ(events[0].code, 0x57000056U);
    EXPECT_EQ(events[0].jobId, session_.evEvent.getJobId());
    return events[0].arguments[0];
  }

  ScopedJob job_{4711};
  orrery::test::TemporaryDirectory bin_;
  ScriptedPings session_;
  GetMySqlInfo plain_;
};

TEST_F(ServerControl, StartWithoutACommandAsksTheServiceManager) {
  install("service", "echo \"$0 $*\" >" + bin_ / "part" + " && mv " + bin_ / "part " + bin_ / "asked");
  const std::string path = getenv("PATH");
  setenv("PATH", (bin_.path() + ":" + path).c_str(), 1);
  EXPECT_EQ(session_.StartServer(nullptr), 0);
  setenv("PATH", path.c_str(), 1);
  ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(bin_ / "asked"); }));
  EXPECT_EQ(readFile(bin_ / "asked"), bin_ / "service mysqld start\n");
  EXPECT_THAT(
      backend_.log().lines(),
      ElementsAre("GetMySqlInfo::StartServer:  startcmd=<< service mysqld start >>   --- Running this to start  "
                  "the database server as root user"));
}

TEST_F(ServerControl, KeptAStartedCommandAndItsServerAreNotLookedAt) {
  EXPECT_EQ(session_.StartServer("exit 1"), 0);
  EXPECT_EQ(session_.pings, 0U);
  EXPECT_THAT(backend_.sleeps(), IsEmpty());
  EXPECT_THAT(backend_.events(), IsEmpty());
}

TEST_F(ServerControl, StartThatCannotBeLaunchedReachesTheJob) {
  EXPECT_EQ(session_.StartServer(std::string(200000, 'x').c_str()), -1) << "longer than an argument can be";
  const std::string reason = "/bin/sh was not started, it cannot be executed: Argument list too long";
  EXPECT_TRUE(logged("StartProcess failed with error [" + reason + "]"));
  EXPECT_EQ(eventText(), "Error while bringing up database server");
  EXPECT_EQ(session_.iErrorCode, -1);
  EXPECT_EQ(session_.strErrorString, reason);
}

TEST_F(ServerControl, StopOfAServerThatIsDownRunsNoCommand) {
  session_.answers = {-1};
  EXPECT_EQ(session_.StopServer("/no/such/program"), 0);
  EXPECT_THAT(backend_.log().lines(), ElementsAre("GetMySqlInfo::StopServer: database server is found already offline. "
                                                  "skipping server stop..."));
  EXPECT_THAT(backend_.events(), IsEmpty());
}

TEST_F(ServerControl, KeptARefusedPingCountsAsDownButItsReasonIsLogged) {
  install("mysqladmin", "echo \"error: 'Access denied for user'\" >&2");
  EXPECT_EQ(plain_.StopServer(nullptr), 0);
  EXPECT_TRUE(backend_.log().contains("no ping: [0:error: 'Access denied for user'\n]"));
  EXPECT_FALSE(backend_.log().contains("stopcmd"));
  EXPECT_EQ(plain_.strErrorString, "error: 'Access denied for user'\n");
}

TEST_F(ServerControl, KeptBuiltInStopHasTwoBlanksNoTlsOptionAndRunsAsTheAgent) {
  install("mysqladmin", "exit 0");
  session_.bUseSsl = true;
  session_.strUnixUser = "nobody";
  session_.strErrorString = "of an earlier request";
  EXPECT_EQ(session_.StopServer(nullptr), 0);
  EXPECT_TRUE(logged("No stopcmd specified, we shall use mysqladmin shutdown."));
  EXPECT_TRUE(logged(announcement(builtIn())));
  EXPECT_TRUE(logged("No Impersonation for this Child Process"));
  EXPECT_TRUE(logged("status check attempt 0"));
  EXPECT_EQ(backend_.log().texts().back(), "Database server shutdown success.");
  const auto entries = backend_.log().entries();
  EXPECT_EQ(entries[entries.size() - 2].text, "server is down now.");
  EXPECT_EQ(entries[entries.size() - 2].level, 4);
  EXPECT_EQ(session_.strErrorString, "of an earlier request") << "a success leaves the last failure to be read";
  EXPECT_THAT(backend_.sleeps(), IsEmpty());
}

TEST_F(ServerControl, StopTakesTheProgramsSuccessorWhereTheOldNameIsMissing) {
  install("mariadb-admin", "echo \"$*\" >" + bin_ / "asked");
  session_.answers = {0, 0, -1};
  EXPECT_EQ(session_.StopServerFn(nullptr), 0);
  EXPECT_THAT(backend_.sleeps(), ElementsAre(10000)) << "until the first ping that fails";
  EXPECT_TRUE(logged(announcement(builtIn()))) << "the old name goes first";
  EXPECT_TRUE(logged(announcement(builtIn("mariadb-admin"))));
  EXPECT_THAT(readFile(bin_ / "asked"), testing::EndsWith(" shutdown\n"));
  EXPECT_THAT(backend_.events(), IsEmpty());
}

TEST_F(ServerControl, StopCommandThatFailsReachesTheJobWithItsErrorText) {
  install("stop", "echo nothing of this; echo no such server >&2; exit 4");
  const std::string command = bin_ / "stop \"right now\"";
  EXPECT_EQ(session_.StopServer(command.c_str()), -1);
  EXPECT_TRUE(logged(announcement(command)));
  EXPECT_TRUE(logged(" Failed to shutdown the server << " + command + " >>"));
  EXPECT_EQ(eventText(), "Error [no such server\n] while shutting down database server");
  EXPECT_EQ(session_.strErrorString, "no such server\n");
  EXPECT_EQ(session_.pings, 1U) << "nobody looks whether it went down all the same";
}

TEST_F(ServerControl, StopCommandThatCannotBeStartedReachesTheJob) {
  backend_.setJobResults("/dev/null");
  EXPECT_EQ(session_.StopServer("/bin/true"), -1);
  EXPECT_TRUE(logged(" Couldn't Create Child Process : << /bin/true >> failed "));
  EXPECT_EQ(eventText(), "Error while shutting down database server");
  EXPECT_THAT(session_.strErrorString, testing::HasSubstr("the folder for error files cannot be created"));
}

TEST_F(ServerControl, StopCommandThatPrintsAMegabyteAndReadsItsInputEnds) {
  install("stop", "cat; head -c 1000000 /dev/zero || exit 5");
  EXPECT_EQ(session_.StopServer((bin_ / "stop").c_str()), 0);
}

TEST_F(ServerControl, BuiltInStopWithAPartThatFallsApartIsRefused) {
  session_.strBinaryPath = bin_ / "a b";
  EXPECT_EQ(session_.StopServer(nullptr), -1);
  EXPECT_FALSE(backend_.log().contains("stopcmd=["));
  EXPECT_THAT(session_.strErrorString, testing::HasSubstr("holds a blank or a quote"));
  EXPECT_EQ(eventText(), "Error while shutting down database server");
}

TEST_F(ServerControl, KeptAServerThatStaysUpIsWaitedForAfterTheLastCheckTooAndRaisesNoEvent) {
  session_.answers = {0};
  EXPECT_EQ(session_.StopServer("/bin/true"), -1);
  EXPECT_THAT(backend_.sleeps(), ElementsAre(10000, 10000, 10000));
  EXPECT_TRUE(logged("status check attempt 2"));
  EXPECT_FALSE(logged("status check attempt 3"));
  EXPECT_EQ(backend_.log().texts().back(), "server has not come down in timeout period");
  EXPECT_THAT(backend_.events(), IsEmpty());
}

}  // namespace
