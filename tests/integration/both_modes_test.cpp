// One suite for what the two modes share. Where they differ on purpose, the test says so.

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/real_session.h"

namespace {

using orrery::test::MariaDbSandbox;

enum class Mode { command, library };

class BothModes : public orrery::test::RealSessionTest, public testing::WithParamInterface<Mode> {
 protected:
  static void SetUpTestSuite() {
    MariaDbSandbox::Options options;
    options.logBin = true;
    server_ = std::make_unique<MariaDbSandbox>(options);
  }
  static void TearDownTestSuite() { server_.reset(); }

  static bool byLibrary() { return GetParam() == Mode::library; }
  std::unique_ptr<GetMySqlInfo> open(const std::map<std::string, std::string>& properties) {
    if (byLibrary()) return librarySessionFor(properties);
    return sessionFor(properties);
  }
  bool exists(const std::string& database) {
    std::string hex;
    for (const unsigned char byte : database) {
      hex += "0123456789ABCDEF"[byte / 16];
      hex += "0123456789ABCDEF"[byte % 16];
    }
    const std::string names =
        "\n" + server_->execute("SELECT HEX(CONVERT(schema_name USING utf8mb4)) FROM information_schema.schemata");
    return names.find("\n" + hex + "\n") != std::string::npos;
  }
  std::size_t binaryLogs() {
    const std::string rows = server_->execute("SHOW BINARY LOGS");
    return static_cast<std::size_t>(std::count(rows.begin(), rows.end(), '\n'));
  }

  static std::unique_ptr<MariaDbSandbox> server_;
  std::unique_ptr<GetMySqlInfo> session_ = open(propertiesOf(*server_));
};
std::unique_ptr<MariaDbSandbox> BothModes::server_;

INSTANTIATE_TEST_SUITE_P(Access, BothModes, testing::Values(Mode::command, Mode::library), [](const auto& mode) {
  return mode.param == Mode::command ? std::string("command") : std::string("library");
});

TEST_P(BothModes, PingAndReadTheServersFacts) {
  EXPECT_EQ(session_->PingServer(), 0);
  long long packet = 0;
  EXPECT_EQ(session_->GetMaxAllowedPacket(packet), 0);
  EXPECT_EQ(std::to_string(packet) + "\n", server_->execute("SELECT @@global.max_allowed_packet"));
  std::string text;
  EXPECT_EQ(session_->GetLogBinPath(text), 0);
  EXPECT_EQ(text, server_->dataDirectory());
  EXPECT_EQ(session_->QueryVariable("datadir", text), 0);
  EXPECT_EQ(text, server_->dataDirectory() + "/");
  EXPECT_EQ(session_->QueryVariable("init_connect", text), 0);
  EXPECT_EQ(text, "") << "an empty value";
}

TEST_P(BothModes, TheVersionIsCutAtTheFirstHyphenOrAfterTheLastDigit) {
  std::string version;
  ASSERT_EQ(session_->getVersionFromServer(version), 0);
  const std::string whole = server_->execute("SELECT @@version");
  EXPECT_EQ(whole.rfind(version, 0), 0U);
  if (byLibrary()) {
    EXPECT_EQ(whole.substr(version.size()).find_first_of("0123456789"), std::string::npos);
  } else {
    EXPECT_EQ(version, whole.substr(0, whole.find('-')));
  }
}

TEST_P(BothModes, AVariableThatDoesNotExistIsAnEmptyTextOrAFailure) {
  std::string value = "before";
  EXPECT_EQ(session_->QueryVariable("no_such_variable", value), byLibrary() ? -1 : 0);
  EXPECT_EQ(value, byLibrary() ? "before" : "");
}

TEST_P(BothModes, DatabasesOfEveryKindOfNameComeAndGo) {
  for (const char* name : {"plain", "with blank", "two  blanks", "per%cent", "under_score", "dot.ted", "hy-phen",
                           "it's", "back\\slash", "back\\", "caf\xc3\xa9", "semi;colon", "ha#sh", "-- dash"}) {
    EXPECT_EQ(session_->CreateDB(name), 0) << name << ": " << session_->strErrorString;
    EXPECT_EQ(session_->CreateDB(name), 0) << "an existing one will do";
    EXPECT_TRUE(exists(name)) << name;
    EXPECT_EQ(session_->DropDB(name), 0) << name << ": " << session_->strErrorString;
    EXPECT_FALSE(exists(name)) << name;
  }
}

TEST_P(BothModes, NamesThatCouldEndTheirQuotingAreRefused) {
  const std::size_t before = static_cast<std::size_t>(std::stoul(server_->execute(
      "SELECT variable_value FROM information_schema.global_status WHERE variable_name='Com_drop_db'")));
  for (const char* name : {"a` ; DROP DATABASE mysql; -- ", "`"}) {
    session_->clearErrors();
    EXPECT_EQ(session_->DropDB(name), -1);
    EXPECT_EQ(session_->iErrorCode, -1);
    EXPECT_THAT(session_->strErrorString, testing::HasSubstr("back-tick"));
  }
  EXPECT_EQ(session_->PurgeLogsTo("x' or 'y"), -1);
  EXPECT_THAT(session_->strErrorString, testing::HasSubstr("single quote"));
  EXPECT_EQ(
      std::to_string(before) + "\n",
      server_->execute("SELECT variable_value FROM information_schema.global_status WHERE variable_name='Com_drop_db'"))
      << "nothing was sent";
}

TEST_P(BothModes, ADropOfAnUnknownDatabaseIsAnErrorOrDone) {
  EXPECT_EQ(session_->DropDB("no_such_db"), byLibrary() ? 0 : -1);
}

TEST_P(BothModes, ServerErrorsLeaveNumberAndText) {
  const struct {
    const char* name;
    int number;
    const char* text;
    std::function<int(GetMySqlInfo&)> request;
  } table[] = {
      {"purge to an unknown log", 1373, "Target log not found",
       [](GetMySqlInfo& s) { return s.PurgeLogsTo("nothing.000001"); }},
      {"bad statement", 1064, "error in your SQL syntax",
       [](GetMySqlInfo& s) { return s.createDatabaseUsingSchema("CREATE NOTHING"); }},
      {"table in an unknown database", 1049, "Unknown database 'no_such_db'",
       [](GetMySqlInfo& s) { return s.createTableUsingSchema("no_such_db", "CREATE TABLE x.t (a INT)"); }},
  };
  for (const auto& row : table) {
    session_->clearErrors();
    EXPECT_EQ(row.request(*session_), -1) << row.name;
    EXPECT_EQ(session_->iErrorCode, row.number) << row.name;
    EXPECT_THAT(session_->strErrorString, testing::HasSubstr(row.text)) << row.name;
  }
}

TEST_P(BothModes, RotatePurgeAndResetBinaryLogs) {
  ASSERT_EQ(session_->ResetMaster(), 0);
  EXPECT_EQ(binaryLogs(), 1U);
  ASSERT_EQ(session_->FlushLogs(), 0);
  ASSERT_EQ(session_->FlushLogs(), 0);
  EXPECT_EQ(binaryLogs(), 3U);
  const std::string rows = server_->execute("SHOW BINARY LOGS");
  const std::string last = rows.substr(rows.rfind('\n', rows.size() - 2) + 1);
  ASSERT_EQ(session_->PurgeLogsTo(last.substr(0, last.find('\t'))), 0);
  EXPECT_EQ(binaryLogs(), 1U);
}

// Kept: in command mode the database is selected in a client of its own, over the connection for what follows.
TEST_P(BothModes, ABareTableNameResolvesOverTheConnectionAlone) {
  ASSERT_EQ(session_->createDatabaseUsingSchema("CREATE DATABASE shop"), 0);
  ASSERT_EQ(session_->createTableUsingSchema("shop", "CREATE TABLE shop.items (id INT PRIMARY KEY) ENGINE=InnoDB"), 0);
  EXPECT_EQ(session_->discardTableSpace("shop", "items"), byLibrary() ? 0 : -1);
  EXPECT_EQ(session_->importTableSpace("shop", "items"), -1);
  EXPECT_EQ(session_->iErrorCode, byLibrary() ? 1030 : 1046) << session_->strErrorString;
  ASSERT_EQ(session_->DropDB("shop"), 0);
}

// Kept: a client is gone with its session, so command mode switches the server's default, the connection its own.
TEST_P(BothModes, ForeignKeyChecksOfTheServerOrOfTheConnection) {
  ASSERT_EQ(session_->setForeignKeyConstraint(0), 0);
  EXPECT_EQ(server_->execute("SELECT @@global.foreign_key_checks"), byLibrary() ? "1\n" : "0\n");
  std::string value;
  EXPECT_EQ(session_->QueryVariable("foreign_key_checks", value), 0);
  EXPECT_EQ(value, "OFF");
  ASSERT_EQ(session_->setForeignKeyConstraint(1), 0);
  EXPECT_EQ(server_->execute("SELECT @@global.foreign_key_checks"), "1\n");
}

TEST_P(BothModes, AWrongPasswordIsToldWithTheServersText) {
  auto properties = propertiesOf(*server_);
  properties["sa_password"] = "sealed:wrong";
  const auto session = open(properties);
  EXPECT_EQ(session->PingServer(), -1);
  EXPECT_THAT(session->strErrorString, testing::HasSubstr("Access denied for user 'agent'@'localhost'"));
  EXPECT_EQ(session->FlushLogs(), -1);
  EXPECT_EQ(session->iErrorCode, 1045);
}

TEST_P(BothModes, TheFamilyOfAPackagedServerIsToldByItsVersion) {
  bool mariaDb = false;
  backend_.log().clear();
  ASSERT_EQ(session_->isMariaDb(mariaDb), 0);
  EXPECT_TRUE(mariaDb);
  EXPECT_TRUE(backend_.log().contains("told by the version")) << "or by the comment, where it names a family";
  ASSERT_EQ(session_->updateMariaDbFlag(), 0);
  bool stored = false;
  EXPECT_EQ(session_->pMySqlInstance->getIsMariaDB(stored), 0);
  EXPECT_TRUE(stored);
}

TEST_P(BothModes, ThePasswordShowsInNoLog) {
  session_->PingServer();
  session_->DropDB("no_such_db");
  EXPECT_FALSE(backend_.log().contains(server_->agentPassword()));
}

}  // namespace
