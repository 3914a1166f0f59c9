// Clients that do what a real one does rarely.

#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/instance_properties.h"

#include "support/backend_test.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::TemporaryDirectory;
using orrery::test::writeFile;

class StandInClients : public orrery::test::BackendTest {
 protected:
  void install(const std::string& program, const std::string& script) {
    writeFile(bin_ / program, "#!/bin/sh\n" + script + "\n", 0755);
  }
  void SetUp() override {
    const auto id = backend_.addInstance(
        "db",
        {{property::saUser, "agent"}, {property::socketFile, "/run/none.sock"}, {property::binaryPath, bin_.path()}});
    ASSERT_EQ(session_.Init(static_cast<long>(id)), 0);
  }
  int statement(const std::string& text = "SELECT 1") { return session_.executeMySqlCommand(text, output_, false); }

  TemporaryDirectory bin_;
  GetMySqlInfo session_;
  std::string output_;
};

TEST_F(StandInClients, FloodsOnBothStreamsAreTakenWhole) {
  install("mysql", "head -c 5000000 /dev/zero | tr '\\0' e >&2; head -c 5000000 /dev/zero | tr '\\0' o; exit 1");
  EXPECT_EQ(statement(), -1);
  EXPECT_EQ(output_, std::string(5000000, 'o'));
  EXPECT_EQ(session_.strErrorString, std::string(4094, 'e')) << "the beginning of the error text";
}

TEST_F(StandInClients, DeathBySignalLeavesNoNumber) {
  install("mysql", "kill -SEGV $$");
  EXPECT_EQ(statement(), -1);
  EXPECT_EQ(session_.iErrorCode, -1);
  EXPECT_EQ(session_.strErrorString, "");
  install("mysql", "echo 'ERROR 2013 (HY000): Lost connection' >&2; kill -TERM $$");
  EXPECT_EQ(statement(), -1);
  EXPECT_EQ(session_.iErrorCode, 2013) << "unless it said something before";
}

TEST_F(StandInClients, ASuccessLeavesTheLastFailureToBeRead) {
  install("mysql", "echo 'ERROR 1007 (HY000): there' >&2; exit 1");
  EXPECT_EQ(statement(), -1);
  install("mysql", "exit 0");
  EXPECT_EQ(statement(), 0);
  EXPECT_EQ(session_.iErrorCode, 1007);
  session_.clearErrors();
  EXPECT_EQ(session_.iErrorCode, 0);
}

TEST_F(StandInClients, EndlessOneIsEndedFromOutsideAndReported) {
  install("mysql", "echo $$ >" + (bin_ / "pid") + "; exec sleep 1000");
  std::thread killer([&] {
    ASSERT_TRUE(orrery::test::waitUntil([&] {
      if (access((bin_ / "pid").c_str(), R_OK) != 0) return false;
      const std::string pid = orrery::test::readFile(bin_ / "pid");
      return !pid.empty() && pid.back() == '\n' && kill(std::stoi(pid), SIGKILL) == 0;
    }));
  });
  EXPECT_EQ(statement(), -1);
  killer.join();
  EXPECT_TRUE(backend_.log().contains("Child died after receiving signal 9"));
}

TEST_F(StandInClients, LaterClientsAreGivenTheTextsThatTheyKnow) {
  // One that rejects the TLS option, sends "use" to its server, and knows the later statements only.
  const std::string log = bin_ / "asked";
  install("mysql", R"(for last; do :; done
case "$last" in --ssl) echo "mysql: [ERROR] unknown option '--ssl'." >&2; exit 2;; esac
while [ "$1" != -e ]; do shift; done
echo "$2 $last" >>)" + log +
                       R"(
case "$2" in
  *SLAVE*|*MASTER*|"use '"*) echo "ERROR 1064 (42000) at line 1: You have an error in your SQL syntax" >&2; exit 1;;
esac)");
  session_.bUseSsl = true;
  EXPECT_EQ(session_.StopSlave(), 0);
  EXPECT_EQ(session_.StopSlave(), 0);
  EXPECT_EQ(session_.StartSlave(), 0);
  EXPECT_EQ(session_.ResetMaster(), 0);
  EXPECT_EQ(session_.UseDatabase("shop"), 0);
  EXPECT_EQ(orrery::test::readFile(log),
            "STOP SLAVE --ssl-mode=REQUIRED\nSTOP REPLICA --ssl-mode=REQUIRED\nSTOP REPLICA --ssl-mode=REQUIRED\n"
            "START SLAVE --ssl-mode=REQUIRED\nSTART REPLICA --ssl-mode=REQUIRED\n"
            "RESET MASTER --ssl-mode=REQUIRED\nRESET BINARY LOGS AND GTIDS --ssl-mode=REQUIRED\n"
            "use 'shop' --ssl-mode=REQUIRED\nuse `shop` --ssl-mode=REQUIRED\n");
}

TEST_F(StandInClients, LaterClientsAndServersAreAskedForTheReplicasStatusInTheirWords) {
  // Client and server of MySQL 9: no commands in a statement, no SLAVE in the server's language.
  const std::string log = bin_ / "asked";
  install("mysql", R"(case " $* " in *" --vertical "*) way=vertical;; *) way=plain;; esac
while [ "$1" != -e ]; do shift; done
echo "$2 $way" >>)" + log +
                       R"(
case "$2" in
  *'\G') echo "ERROR at line 1: Unknown command '\\G'." >&2; exit 1;;
  *SLAVE*) echo "ERROR 1064 (42000) at line 1: You have an error in your SQL syntax" >&2; exit 1;;
esac
echo '*************************** 1. row ***************************'
printf '%s\n' "Waiting for source to send event" 127.0.0.1 repl 3306 60 binlog.000002 158 relay.000002 371 binlog.000002 \
  Yes Yes shop '' '' '' '' '' 0 '' 0 158 580 None '' 0 Yes '' '' '' '' '' 0 No 0 '' 0 '')");
  bool running = false;
  bool partial = false;
  int status = 7;
  std::string text;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(session_.getReplicationStatus(running, partial, status, text), 0);
    EXPECT_TRUE(running && partial);
    EXPECT_EQ(status, 7);
  }
  EXPECT_EQ(orrery::test::readFile(log),
            "SHOW SLAVE STATUS\\G plain\nSHOW SLAVE STATUS vertical\nSHOW REPLICA STATUS vertical\n"
            "SHOW REPLICA STATUS vertical\n");
  EXPECT_EQ(session_.strSessionString2 + session_.strSessionString3 + session_.strSessionString4,
            "binlog.000002158shop");
}

TEST_F(StandInClients, AliveIsTheWholeAnswer) {
  const struct {
    const char* answer;
    int result;
  } table[] = {{"mysqld is alive", 0}, {"mariadbd is alive", 0}, {"mysqld is alive or not", -1}, {"", -1}};
  for (const auto& row : table) {
    install("mysqladmin", std::string("echo '") + row.answer + "'");
    EXPECT_EQ(session_.PingServer(), row.result) << row.answer;
  }
}

TEST_F(StandInClients, VersionEndsAtTheFirstHyphenAndValuesLoseTheirLineFeeds) {
  install("mysql", "echo 8.0.36");
  std::string text;
  EXPECT_EQ(session_.getVersionFromServer(text), 0);
  EXPECT_EQ(text, "8.0.36\n") << "without a hyphen it is the whole output";
  install("mysql", "printf 'name\\ta\\tb\\nc\\n'");
  EXPECT_EQ(session_.QueryVariable("name", text), 0);
  EXPECT_EQ(text, "a\tbc");
  install("mysql", "printf 'max_allowed_packet\\tmany\\n'");
  long long size = 7;
  EXPECT_EQ(session_.GetMaxAllowedPacket(size), -1) << "no number";
  EXPECT_EQ(size, 7);
}

}  // namespace
