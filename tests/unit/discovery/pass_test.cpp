// A whole pass over hosts as they were recorded.

#include <algorithm>
#include <cerrno>

#include <gmock/gmock.h>

#include "orrery/mysql/MySqlAutoDiscoveryLinux.h"

#include "discovery/commands.h"
#include "discovery/recorded_host.h"
#include "support/backend_test.h"

namespace orrery::mysql::discovery {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* versionOutput =
    "mysqld  Ver 10.11.19-MariaDB-0+deb12u1 for debian-linux-gnu on x86_64 (Debian 12)\n";

/// The host of a Debian package: one server without options, as its service starts it.
class DiscoveryPass : public test::BackendTest {
 protected:
  DiscoveryPass() {
    host_.answers[listServersCommand] = {0, "mysql 700 /usr/sbin/mariadbd\nroot 24701 sh\nroot 24702 grep\n", ""};
    host_.answers["echo $(whoami)"] = {0, "root\n", ""};
    host_.answers["which mysql"] = {0, "/usr/bin/mysql\n", ""};
    host_.answers["readlink -f /proc/700/exe"] = {0, "/usr/sbin/mariadbd\n", ""};
    host_.answers[findSocketCommand("700")] = {0, "/run/mysqld/mysqld.sock\n", ""};
    host_.answers[versionCommand("/usr/sbin")] = {0, versionOutput, ""};
    host_.processes["700"].commandLine = "/usr/sbin/mariadbd|";
    host_.processes["700"].sockets.paths = {"/run/mysqld/mysqld.sock"};
    host_.files["/usr/sbin/mysqld"] = "";
    host_.folders = {"/usr/bin", "/usr/sbin"};
  }

  void run(const std::string& client = "db1.example") {
    discovery_ = std::make_unique<MySqlAutoDiscoveryLinux>(client, std::make_unique<RecordedHost>(host_));
    error_ = discovery_->identifyMySqlInstanceInfo();
  }
  std::string recordsAsText() const {
    std::string text;
    for (const MysqlInstanceInfo& info : discovery_->getInstances()) {
      text += info.strUnixUser + "|" + info.strSocketFile + "|" + info.strLogDataDir + "|" + info.strBinaryDir + "|" +
              info.strPort + "|" + info.strConfigFile + "|" + info.strInstanceName + "\n";
    }
    return text;
  }
  const ServerProcess& first() const { return discovery_->getExplanation().processes.front(); }
  std::vector<std::string> hints() const {
    std::vector<std::string> texts;
    for (const DiscoveryHint& hint : first().hints) texts.push_back(hint.text + " " + hint.option + " " + hint.value);
    return texts;
  }

  Recording host_;
  std::unique_ptr<MySqlAutoDiscoveryLinux> discovery_;
  CKyError error_;
};

TEST_F(DiscoveryPass, DebianPackage) {
  host_.answers[findPortCommand("700")] = {0, "3306\n", ""};
  host_.files["/etc/mysql/my.cnf"] = "[client-server]\nsocket=/run/mysqld/mysqld.sock\n!includedir /etc/mysql/conf.d\n";
  host_.files["/etc/mysql/conf.d/50-server.cnf"] = "[mariadbd]\ndatadir=/var/lib/mysql\n";
  host_.processes["700"].sockets.ports = {3306};
  run();
  EXPECT_FALSE(error_.isError());
  EXPECT_EQ(recordsAsText(), "root|/run/mysqld/mysqld.sock||/usr/bin|3306|/etc/mysql/my.cnf|db1_3306\n");
  EXPECT_THAT(host_.commands,
              ElementsAre(listServersCommand, "echo $(whoami)", findSocketCommand("700"), "which mysql",
                          findPortCommand("700"), "readlink -f /proc/700/exe", "\"/usr/sbin/mysqld\" --version"));
  EXPECT_EQ(first().socket.source, FactSource::socketList);
  EXPECT_EQ(first().configFile.source, FactSource::usualPlace);
  EXPECT_EQ(first().binaryDirectory.source, FactSource::searchPath);
  EXPECT_THAT(hints(),
              ElementsAre("the server runs as mysql; the record has the account of the agent --unix-user mysql",
                          "/etc/mysql/conf.d/50-server.cnf [mariadbd] sets the data directory; the record does "
                          "not have it --data /var/lib/mysql"));
  EXPECT_TRUE(logged("`mysqld` not found in the PATH.bindir[/usr/bin]"));
}

TEST_F(DiscoveryPass, OptionsOfTheCommandLineWin) {
  host_.processes["700"].commandLine =
      "/opt/db/bin/mysqld|--defaults-file=/opt/my.cnf|--basedir=/opt/db|--datadir=/opt/data|--socket=/opt/"
      "s|--port=3307|";
  host_.files["/opt/my.cnf"] = "[mysqld]\ndatadir=/other\nport=1\n";
  host_.files["/opt/db/bin/mysqld"] = "";
  host_.folders.push_back("/opt/db/bin");
  host_.answers[versionCommand("/opt/db/bin")] = {0, "mysqld  Ver 8.0.26 for Linux", ""};
  run("db2");
  EXPECT_EQ(recordsAsText(), "root|/opt/s|/opt/data|/opt/db/bin|3307|/opt/my.cnf|db2_3307\n");
  EXPECT_THAT(host_.commands, ElementsAre(listServersCommand, "echo $(whoami)", "\"/opt/db/bin/mysqld\" --version"));
  EXPECT_EQ(first().logDataDirectory.source, FactSource::commandLine);
}

TEST_F(DiscoveryPass, OptionFileFillsWhatIsMissingAndTheLogFolderTakesThePlaceOfTheDataDirectory) {
  host_.processes["700"].commandLine = "mysqld|--defaults-file=/my.cnf|";
  host_.files["/my.cnf"] = "[mysqld]\ndatadir=/data\nlog-bin=/logs/bin\n";
  run();
  EXPECT_EQ(recordsAsText(), "root|/run/mysqld/mysqld.sock|/logs/|/usr/bin|3306|/my.cnf|db1_3306\n");
  EXPECT_EQ(first().port.source, FactSource::defaultValue);
  EXPECT_EQ(first().logDataDirectory.source, FactSource::optionFile);
  EXPECT_THAT(hints(), Contains(HasSubstr("folder of the binary logs --data /data")));
}

TEST_F(DiscoveryPass, TheTildeIsTakenLiterallyAndWithoutAnOptionFileNotEvenTheDefaultPortIsKnown) {
  run();
  EXPECT_EQ(recordsAsText(), "root|/run/mysqld/mysqld.sock||/usr/bin|||db1_\n");
  host_.files["~/.my.cnf"] = "[mysqld]\nport=3309\n";
  host_.answers[findSocketCommand("700")].output = "/a/mysql.sock\n/b/mysql.sock\n";
  run();
  EXPECT_EQ(recordsAsText(), "root|/a/mysql.sock||/usr/bin|3309|~/.my.cnf|db1_3309\n") << "the first of the sockets";
  EXPECT_THAT(hints(), Contains(HasSubstr("the socket /a/mysql.sock is another process's")));
}

TEST_F(DiscoveryPass, AProcessListThatCannotBeReadEndsThePassAndFloodsNoLogAndNoError) {
  host_.answers[listServersCommand] = {2, "out", "err"};
  run();
  EXPECT_EQ(error_.code(), 1168);
  EXPECT_EQ(error_.text(), "Failed to find mysql server's PIDs. stdout=out stderr=err");
  EXPECT_TRUE(logged(error_.text()));
  host_.answers[listServersCommand] = {2, std::string(5000, 'o'), std::string(3000000, 'e')};
  run();
  EXPECT_TRUE(host_.rules.front().dropsLongLines);
  EXPECT_LT(error_.text().size(), 10000U);
  EXPECT_THAT(error_.text(), HasSubstr("[5000 bytes in all] stderr=e"));
  EXPECT_TRUE(logged(error_.text()));
}

TEST_F(DiscoveryPass, TheErrorOfTheUserNameIsBuiltAndDropped) {
  host_.answers["echo $(whoami)"] = {1, "", "no"};
  run();
  EXPECT_FALSE(error_.isError());
  EXPECT_TRUE(logged("Failed to find unix username. stdout= stderr=no"));
  EXPECT_EQ(discovery_->getInstances().front().strUnixUser, "");
}

TEST_F(DiscoveryPass, OneServerThatCannotBeDescribedCostsNoOther) {
  host_.answers[listServersCommand].output += "x 1 mysqld\nx 2 mysqld\nx 3 mysqld\nx 4 mysqld\n";
  host_.processes["2"].commandLine = "mysqld|--basedir=/gone|";
  host_.processes["3"].commandLine = "mysqld|--basedir=/file|";
  host_.processes["4"].commandLine = "mysqld|--basedir=/old|";
  host_.files["/file/bin"] = "";
  host_.files["/old/bin/mysqld"] = "";
  host_.folders.push_back("/old/bin");
  host_.answers[versionCommand("/old/bin")].output = "mysqld  Ver 5.1.73 x";
  run();
  EXPECT_FALSE(error_.isError());
  EXPECT_EQ(discovery_->getInstances().size(), 1U);
  EXPECT_TRUE(logged("Failed to open cmdline file for MySQL process [1]. Continuing."));
  EXPECT_TRUE(logged("Path [/gone/bin] does not exist. out= basedir=/gone"));
  EXPECT_TRUE(logged("Path [/file/bin] is found to be a file. Please check configuration."));
  EXPECT_TRUE(logged("Failed to get the binary directory."));
  std::vector<std::string> reasons;
  for (const ServerProcess& server : discovery_->getExplanation().processes) reasons.push_back(server.leftOut);
  EXPECT_THAT(reasons,
              ElementsAre("", "its command line cannot be read; it may have ended", "there is no folder /gone/bin",
                          "there is no folder /file/bin", "version 5.1.73 is not supported"));
}

TEST_F(DiscoveryPass, WithoutAClientTheFolderIsThatOfTheRunningProgram) {
  host_.answers["which mysql"] = {1, "", ""};
  run();
  EXPECT_EQ(discovery_->getInstances().front().strBinaryDir, "/usr/sbin");
  EXPECT_EQ(first().binaryDirectory.source, FactSource::program);
  host_.answers["readlink -f /proc/700/exe"] = {1, "", "denied"};
  run();
  EXPECT_TRUE(discovery_->getInstances().empty());
  EXPECT_TRUE(logged("Failed to find binary directory. stdout= stderr=denied retCode=1 cmd=readlink -f /proc/700/exe"));
}

TEST_F(DiscoveryPass, WhatAStrangerCouldHavePutThereRunsWithTheStrangersRightsOrNotAtAll) {
  host_.verdicts["/usr/sbin/mysqld"].replaceableBy = "/home/x belongs to the account 1000";
  run();
  EXPECT_EQ(discovery_->getInstances().size(), 1U);
  ASSERT_TRUE(host_.rules.back().account);
  EXPECT_EQ(host_.rules.back().account->uid, 999U);
  EXPECT_EQ(host_.rules.back().milliseconds, 10000);
  EXPECT_EQ(first().claimedBecause, "/home/x belongs to the account 1000");
  EXPECT_THAT(hints(), Contains(HasSubstr("with the rights of mysql")));
  const struct {
    uid_t agent;
    ProcessAccount account;
    const char* reason;
  } table[] = {{0, {true, true, 999, 999, "x"}, "was started by another account"},
               {0, {true, false, 0, 0, "root"}, "runs as root"},
               {0, {}, "is not known"},
               {1000, {true, false, 999, 999, "x"}, "only a superuser"}};
  for (const auto& row : table) {
    host_.commands.clear();
    host_.agent = row.agent;
    host_.processes["700"].account = row.account;
    run();
    EXPECT_TRUE(discovery_->getInstances().empty()) << row.reason;
    EXPECT_THAT(first().leftOut, HasSubstr(row.reason));
    EXPECT_THAT(host_.commands, Not(Contains(HasSubstr("--version"))));
  }
}

TEST_F(DiscoveryPass, AProcessThatLivesElsewhereNamesNothingHere) {
  RecordedProcess& server = host_.processes["700"];
  const struct {
    bool otherMounts, otherUsers, unseen;
    const char* refusal;
    const char* ofUser;
    const char* reason;
  } table[] = {{true, false, false, "", "", "other folders"},
               {false, true, false, "", "", "user namespace"},
               {false, false, false, "/proc/7 lies in /proc", "", "lies in /proc"},
               {false, false, true, "", "/mnt nosuid", "cannot be seen"},
               {false, false, true, "", "", ""},  // whose programs are root's they may be asked
               {false, false, false, "", "/mnt nosuid", ""}};
  for (const auto& row : table) {
    server.places.otherMounts = row.otherMounts;
    server.places.otherUsers = row.otherUsers;
    server.places.unseen = row.unseen;
    host_.verdicts["/usr/sbin/mysqld"] = {"", row.ofUser, row.refusal, 0, 0};
    run();
    EXPECT_EQ(discovery_->getInstances().size(), *row.reason == '\0' ? 1U : 0U) << row.reason;
    EXPECT_THAT(first().leftOut, HasSubstr(row.reason));
  }
  EXPECT_TRUE(host_.rules.back().account) << "of a file system that a user may have brought along";
}

TEST_F(DiscoveryPass, StrangersProgramsGetAnAccountsRightsOnceAndAMinuteInAll) {
  host_.slowness = 9000;
  std::string list;
  for (int pid = 1; pid <= 20; ++pid) {
    const std::string text = std::to_string(pid);
    const std::string folder = "/x" + text + "/bin";
    list += "x " + text + " mysqld\n";
    host_.processes[text].commandLine = "mysqld|--basedir=/x" + text + "|--socket=/s|--port=1|";
    host_.folders.push_back(folder);
    host_.files[folder + "/mysqld"] = "";
    // Each of the first ten is the same program as one of the last.
    host_.verdicts[folder + "/mysqld"] = {"/x is another's", "", "", 1, static_cast<ino_t>(pid % 10 + 1)};
    host_.answers[versionCommand(folder)] = {0, versionOutput, ""};
  }
  host_.answers[listServersCommand].output = list;
  run();
  const auto isForeign = [](const CommandRules& rules) { return rules.account.has_value(); };
  EXPECT_EQ(std::count_if(host_.rules.begin(), host_.rules.end(), isForeign), 7);
  EXPECT_EQ(host_.rules.back().milliseconds, 6000) << "what was left of the minute";
  EXPECT_EQ(discovery_->getInstances().size(), 7U);
  EXPECT_THAT(discovery_->getExplanation().processes.back().leftOut, HasSubstr("is used up"));
}

TEST_F(DiscoveryPass, WhatOthersCouldChangeInARecordIsTold) {
  host_.files["/etc/my.cnf"] = "[mysqld]\nport=\n";
  host_.verdicts["/etc/my.cnf"].replaceableBy = "a";
  host_.verdicts["/usr/bin/mysqladmin"].replaceableBy = "b";
  run();
  EXPECT_EQ(first().configFile.replaceableBy, "a");
  EXPECT_EQ(first().binaryDirectory.replaceableBy, "b");
  EXPECT_EQ(first().port.value + " " + std::to_string(static_cast<int>(first().port.source)), "3306 7")
      << "a port without a value is the default";
}

TEST_F(DiscoveryPass, IsStoppedBetweenProcesses) {
  host_.answers[listServersCommand].output += "x 8 mysqld\n";
  discovery_ = std::make_unique<MySqlAutoDiscoveryLinux>("h", std::make_unique<RecordedHost>(host_));
  discovery_->stopWhen([&] { return host_.commands.size() > 3; });
  EXPECT_EQ(discovery_->identifyMySqlInstanceInfo().code(), ECANCELED);
  EXPECT_TRUE(discovery_->getInstances().empty());
  EXPECT_FALSE(logged("Failed to open cmdline file for MySQL process [8]. Continuing."));
  ASSERT_TRUE(host_.rules.back().isStopped);
}

TEST_F(DiscoveryPass, WhatIsMissingToLookWithIsTold) {
  host_.agent = 1000;
  host_.answers[listServersCommand] = {0, "", "/bin/sh: 1: grep: not found\nsh: line 1: ps: command not found\n"};
  run();
  const auto packages = [&] {
    std::string values;
    for (const DiscoveryHint& hint : discovery_->getExplanation().hints) values += hint.value + ";";
    return values;
  };
  EXPECT_EQ(packages(), "procps;grep;;") << "the last: it is not root";
  host_.processes["700"].commandLine = "mysqld|--socket=/s|";
  host_.answers[listServersCommand] = {0, "x 700 mysqld\n", ""};
  host_.answers[findPortCommand("700")] = {0, "", "/bin/sh: 1: ss: not found"};
  host_.answers["readlink -f /proc/700/exe"] = {127, "", "/bin/sh: 1: readlink: not found"};
  run();
  EXPECT_EQ(packages(), "iproute2;coreutils;;");
}

TEST_F(DiscoveryPass, HintsOnWhatTheRulesMiss) {
  RecordedProcess& server = host_.processes["700"];
  server.commandLine = "/usr/sbin/mariadbd|--port|3307|--datadir=/a=b|";
  server.places = {"/opt/x/mariadbd (deleted)", "/data", "/srv/jail", true, true, false, false};
  server.sockets = {};
  server.account.name = "db";
  host_.answers[findPortCommand("700")] = {0, "7001\n", ""};
  host_.answers[findSocketCommand("700")] = {1, "", "/bin/sh: 1: ss: not found"};
  host_.answers[versionCommand("/usr/sbin")] = {127, "", "not found"};
  run();
  const std::vector<std::string> found = hints();
  for (const char* part : {"the server runs as db", "mount namespace", "a network of its own", "--port 3307",
                           "data directory; the record does not have it --data /a=b", "no Unix socket",
                           "the port 7001 is another process's", "its program has been replaced"}) {
    EXPECT_THAT(found, Contains(HasSubstr(part)));
  }
  EXPECT_EQ(discovery_->getExplanation().hints.front().value, "iproute2");
}

TEST_F(DiscoveryPass, MariadbdAloneAndAnotherTitleAreExplained) {
  host_.files.erase("/usr/sbin/mysqld");
  host_.answers[versionCommand("/usr/sbin")] = {127, "", "sh: 1: /usr/sbin/mysqld: not found"};
  run();
  EXPECT_TRUE(discovery_->getInstances().empty());
  EXPECT_THAT(hints(), Contains(HasSubstr("a link /usr/sbin/mysqld")));
  EXPECT_TRUE(
      logged("Failed to find mysql version. errCode[0], nprocessRetCode[127], output[], err[sh: 1: "
             "/usr/sbin/mysqld: not found]"));
  host_.answers[listServersCommand].output = "x 5 valgrind\n";
  host_.processes["5"] = {};
  run();
  EXPECT_THAT(first().leftOut, HasSubstr("title does not begin"));
}

TEST_F(DiscoveryPass, RunCommandTellsAStartThatFailedFromACommandThatFailed) {
  run();
  std::string output;
  std::string errors;
  int code = 0;
  EXPECT_EQ(discovery_->RunCommand("x", output, errors, code, false), -1);
  EXPECT_EQ(code, 1);
  EXPECT_TRUE(logged("StartProcess ERROR: no process"));
  host_.answers["x"] = {7, "said", ""};
  EXPECT_EQ(discovery_->RunCommand("x", output, errors, code, true), 0);
  EXPECT_EQ(code, 7);
  EXPECT_TRUE(logged("Output read: [said]"));
  EXPECT_EQ(discovery_->findParamInCmdLine("a --b=c d", "--b"), "c");
  EXPECT_EQ(discovery_->findParamInCmdLine("a", "--b"), "");
  EXPECT_TRUE(logged("Param [--b] not found in [a]"));
  EXPECT_FALSE(discovery_->isMysqlVersionSupported(""));
  EXPECT_TRUE(logged("Empty binary directory found."));
}

}  // namespace
}  // namespace orrery::mysql::discovery
