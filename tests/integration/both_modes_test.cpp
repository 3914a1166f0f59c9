// One suite for what the two modes share. Where they differ on purpose, the test says so.

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "integration/real_session.h"

namespace {

using orrery::test::MariaDbSandbox;
using orrery::test::Mode;

class BothModes : public orrery::test::ServerSuite<BothModes>, public testing::WithParamInterface<Mode> {
 public:
  static MariaDbSandbox::Options options() { return {.logBin = true}; }

 protected:
  static bool byLibrary() { return GetParam() == Mode::library; }
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

  std::unique_ptr<GetMySqlInfo> session_ = sessionFor(GetParam(), propertiesOf(*server_));
};

INSTANTIATE_TEST_SUITE_P(Access, BothModes, orrery::test::bothModes(), orrery::test::nameOfMode);

TEST_P(BothModes, PingAndReadTheServersFacts) {
  EXPECT_EQ(session_->PingServer(), 0);
  long long packet = 0;
  EXPECT_EQ(session_->GetMaxAllowedPacket(packet), 0);
  EXPECT_EQ(std::to_string(packet) + "\n", server_->execute("SELECT @@global.max_allowed_packet"));
  std::string text;
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
    EXPECT_EQ(session_->DropDB(name), byLibrary() ? 0 : -1) << "one that is gone is an error, or done";
  }
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
  const auto session = sessionFor(GetParam(), properties);
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
