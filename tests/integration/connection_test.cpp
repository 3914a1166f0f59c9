// One connection to a real server: what comes over it, and what happens when it breaks.

#include <memory>
#include <string>

#include "integration/real_session.h"

namespace {

using orrery::test::MariaDbSandbox;
using Texts = std::list<std::string>;

class Connection : public orrery::test::ServerSuite<Connection> {
 public:
  static MariaDbSandbox::Options options() { return {.logBin = true, .serverOptions = {"--max-allowed-packet=64M"}}; }

 protected:
  Connection() { EXPECT_EQ(server().LoadAndInitialize(clientLibrary), 0) << server().getLastErrorStr(); }

  MySqlInterface& server() { return connection_; }
  /// Every row of a statement.
  std::list<Texts> rowsOf(const std::string& statement) {
    auto* result = new QueryResult;
    std::list<Texts> rows;
    EXPECT_EQ(connection_.RunQuery(statement, result), 0) << connection_.getLastErrorStr();
    for (Texts row; connection_.FetchNextRow(result, row) == 0 && !row.empty(); row.clear()) rows.push_back(row);
    EXPECT_EQ(rows.size(), result->rows);
    EXPECT_EQ(connection_.FreeResultSet(result), 0);
    EXPECT_EQ(result, nullptr);
    return rows;
  }
  std::string valueOf(const std::string& statement) {
    const auto rows = rowsOf(statement);
    return rows.size() == 1 ? rows.front().front() : "not one row";
  }
  void killConnection() { server_->execute("KILL " + valueOf("SELECT CONNECTION_ID()")); }

  MySqlInterface connection_{"agent", server_->agentPassword(), server_->socket(), 0};
};

TEST_F(Connection, ColumnsComeAsTheyAre) {
  EXPECT_EQ(rowsOf("SELECT NULL, '', 'NULL', 'a\\0b', 'two\\nlines', 'caf\xc3\xa9', 42"),
            (std::list<Texts>{{"NULL", "", "NULL", std::string("a\0b", 3), "two\nlines", "caf\xc3\xa9", "42"}}));
  EXPECT_TRUE(rowsOf("SELECT 1 FROM mysql.user WHERE 1=0").empty());
  EXPECT_EQ(valueOf("SELECT REPEAT('x', 16777216)"), std::string(16777216, 'x'));
}

// The connection's character set is utf8, of three bytes, as in command mode: the server cannot send more.
TEST_F(Connection, FourByteCharactersComeAsQuestionMarks) {
  EXPECT_EQ(valueOf("SELECT CONVERT(UNHEX('F09F9880') USING utf8mb4)"), "?");
  std::string byClient;
  const auto session = sessionFor(propertiesOf(*server_));
  ASSERT_EQ(session->executeMySqlCommand("SELECT CONVERT(UNHEX('F09F9880') USING utf8mb4)", byClient, false), 0);
  EXPECT_EQ(byClient, "?\n");
}

TEST_F(Connection, AMillionRowsComeAllAndInOrder) {
  QueryResult result;
  ASSERT_EQ(server().RunQuery("SELECT seq, seq FROM mysql.seq_1_to_1000000", &result), 0);
  EXPECT_EQ(result.rows, 1000000U);
  EXPECT_EQ(result.fields, 2U);
  long expected = 0;
  Texts row;
  while (server().FetchNextRow(&result, row) == 0 && !row.empty()) {
    ++expected;
    ASSERT_EQ(row.front(), std::to_string(expected));
    row.clear();
  }
  EXPECT_EQ(expected, 1000000);
  ASSERT_EQ(server().RunQuery("DO 1", &result), 0) << "which releases the rows";
  EXPECT_EQ(result.result, nullptr);
}

TEST_F(Connection, StatementsWithoutRowsTellHowManyTheyChanged) {
  for (const char* statement : {"CREATE OR REPLACE DATABASE counted", "CREATE TABLE counted.t (a INT)"}) {
    ASSERT_EQ(server().RunQuery(statement, nullptr), 0) << server().getLastErrorStr();
  }
  QueryResult result;
  ASSERT_EQ(server().RunQuery("INSERT INTO counted.t VALUES (1), (2), (3)", &result), 0);
  EXPECT_EQ(result.rows, 3U);
  EXPECT_EQ(result.fields, 0U);
  Texts row;
  EXPECT_EQ(server().FetchNextRow(&result, row), -1);
  EXPECT_EQ(server().getLastErrorStr(), "MYSQL_RES set is NULL");
  ASSERT_EQ(server().DropDB("counted"), 0);
}

TEST_F(Connection, RequestsOfOneStatementEach) {
  ASSERT_EQ(server().RunQuery("CREATE OR REPLACE DATABASE facts", nullptr), 0);
  unsigned long long size = 1;
  std::string text;
  bool answer = false;
  EXPECT_EQ(server().GetDBProperties("facts", size, text), 0);
  EXPECT_EQ(size, 0U) << "without tables";
  EXPECT_EQ(text, "0");
  EXPECT_EQ(server().createTableUsingSchema("facts", "CREATE TABLE t (a INT) ENGINE=InnoDB"), 0);
  EXPECT_EQ(server().GetDBProperties("facts", size, text), 0);
  EXPECT_GE(size, 16384U);
  EXPECT_THAT(text, testing::MatchesRegex("[0-9]{4}-[0-9-]{5} [0-9:]{8}"));
  EXPECT_EQ(server().isUsesInnoDBEngine("facts", answer), 0);
  EXPECT_TRUE(answer);
  EXPECT_EQ(server().createTableUsingSchema("facts", "CREATE TABLE u (a INT) ENGINE=MyISAM"), 0);
  EXPECT_EQ(server().isUsesInnoDBEngine("facts", answer), 0);
  EXPECT_FALSE(answer);
  EXPECT_EQ(server().CheckDBExistence("facts", answer), 0);
  EXPECT_TRUE(answer);
  ASSERT_EQ(server().DropDB("facts"), 0);
  EXPECT_EQ(server().CheckDBExistence("facts", answer), 0);
  EXPECT_FALSE(answer);

  Texts databases{"there before"};
  EXPECT_EQ(server().FetchDBList(databases), 0);
  EXPECT_EQ(databases.front(), "there before");
  EXPECT_THAT(databases, testing::IsSupersetOf({"mysql", "information_schema"}));
  Texts status;
  EXPECT_EQ(server().GetReplicationStatus(status), 100) << "no replica";
}

TEST_F(Connection, AKilledConnectionIsMadeAgainWithItsDatabase) {
  ASSERT_EQ(server().UseDatabase("mysql"), 0);
  killConnection();
  EXPECT_EQ(valueOf("SELECT DATABASE()"), "mysql");
  killConnection();
  EXPECT_EQ(server().PingServer(), 0);
}

TEST_F(Connection, SurvivesARestartOfTheServer) {
  ASSERT_EQ(server().PingServer(), 0);
  server_->stop();
  EXPECT_EQ(server().RunQuery("DO 1", nullptr), -1);
  EXPECT_THAT(server().getLastError(), testing::AnyOf(2002, 2006, 2013));
  EXPECT_FALSE(server().getLastErrorStr().empty());
  EXPECT_EQ(server().PingServer(), -1);
  server_->start();
  EXPECT_EQ(server().RunQuery("DO 1", nullptr), 0) << server().getLastErrorStr();
}

/// Whether another client can write at this moment.
bool takesWrites(const MariaDbSandbox& server) {
  try {
    server.execute("SET lock_wait_timeout=1; CREATE OR REPLACE DATABASE probe");
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

TEST_F(Connection, TheReadLockLivesAsLongAsTheConnection) {
  const auto session = librarySessionFor(propertiesOf(*server_));
  ASSERT_EQ(session->QuiesceDB(), 0);
  EXPECT_FALSE(takesWrites(*server_));
  EXPECT_EQ(server().UnQuiesceDB(), 0) << "another object releases nothing";
  EXPECT_FALSE(takesWrites(*server_));
  EXPECT_EQ(session->UnQuiesceDB(), 0);
  EXPECT_TRUE(takesWrites(*server_));
  EXPECT_TRUE(backend_.events().empty());
}

TEST_F(Connection, AReadLockThatWasLostIsToldWhenItIsGivenBack) {
  for (const bool restart : {false, true}) {
    const auto session = librarySessionFor(propertiesOf(*server_));
    ASSERT_EQ(session->QuiesceDB(), 0);
    if (restart) {
      server_->stop();
      server_->start();
    } else {
      killLastConnection(*server_);
    }
    EXPECT_TRUE(takesWrites(*server_));
    const std::size_t before = backend_.events().size();
    EXPECT_EQ(session->UnQuiesceDB(), 0) << "the statement itself succeeds";
    ASSERT_EQ(backend_.events().size(), before + 1);
    EXPECT_EQ(backend_.events().back().code, 0x570000F0U);
    EXPECT_TRUE(backend_.log().contains("the connection that held the read lock was lost"));
  }
}

}  // namespace
