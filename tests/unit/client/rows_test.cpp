#include "client/client_fixture.h"

namespace {

using orrery::test::ClientTest;
using orrery::test::Loaded;
using Query = ClientTest;
using Row = ClientTest;

/// A result that ends with the test.
struct Result {
  explicit Result(Loaded& loaded) : loaded_(loaded), rows(new QueryResult) {}
  ~Result() { EXPECT_EQ(loaded_.server.FreeResultSet(rows), 0); }
  int run(const char* statement) { return loaded_.server.RunQuery(statement, rows); }
  int next(std::list<std::string>& row) { return loaded_.server.FetchNextRow(rows, row); }

  Loaded& loaded_;
  QueryResult* rows;
};

TEST_F(Query, YieldsItsResultSet) {
  Loaded loaded("unknown");
  loaded.library.give("SELECT a,b", 2, {"1", "x", "2", nullptr, "3", "NULL"});
  Result result(loaded);
  ASSERT_EQ(result.run("SELECT a,b"), 0);
  EXPECT_EQ(result.rows->fields, 2U);
  EXPECT_EQ(result.rows->rows, 3U);
  EXPECT_TRUE(logged("[ MySqlInterface::RunQuery ] Query:  SELECT a,b\n"));
  EXPECT_TRUE(logged("[ MySqlInterface::RunQuery ] Retrieving Result Set...."));
  EXPECT_TRUE(logged("[ MySqlInterface::RunQuery ] Got 2 fields 3 rows..."));
  std::list<std::string> all;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(result.next(all), 0) << "also after the last row";
  EXPECT_THAT(all, testing::ElementsAre("1", "x", "2", "NULL", "3", "NULL")) << "kept: NULL is a text";
  EXPECT_TRUE(logged("[MySqlInterace::FetchRows] found a row.")) << "kept: the tag";
  EXPECT_TRUE(logged("[MySqlInterace::FetchRows] row[1]=[NULL]"));
  ASSERT_EQ(result.run("SELECT a,b"), 0);
  EXPECT_EQ(loaded.library->frees, 1U) << "the rows of the first run";
}

TEST_F(Query, WithoutAResultSetYieldsTheNumberOfChangedRows) {
  Loaded loaded("unknown");
  Result result(loaded);
  ASSERT_EQ(result.run("SET a=1"), 0);
  EXPECT_EQ(result.rows->result, nullptr);
  EXPECT_EQ(result.rows->fields, 0U);
  EXPECT_EQ(result.rows->rows, 7U);
  EXPECT_TRUE(logged("[ MySqlInterface::RunQuery ] zero rows returned..."));
}

TEST_F(Query, WhoseRowsNobodyWantsLeavesAUsableConnection) {
  Loaded loaded("unknown");
  loaded.library.give("SELECT a", 1, {"1"});
  EXPECT_EQ(loaded.server.RunQuery("SELECT a", nullptr), 0);
  EXPECT_EQ(loaded.server.RunQuery("SET a=1", nullptr), 0);
  EXPECT_EQ(loaded.server.PingServer(), 0);
}

TEST_F(Query, FailuresLeaveTheLibrarysNumberAndText) {
  Loaded loaded("unknown");
  Result result(loaded);
  loaded.library.refuse("BAD", 1064, "syntax");
  EXPECT_EQ(result.run("BAD"), -1);
  EXPECT_EQ(loaded.failure(), "1064 syntax");
  EXPECT_EQ(
      backend_.log().texts().back(),
      "[ MySqlInterface::RunQuery ] Query Execution Failed.ErrorCode [1064], ErrorStr [syntax].Reattempt with new "
      "connection");
  loaded.library.answer({"BIG", 0, "", 2, 9, nullptr, nullptr, 0, 1, 0});
  EXPECT_EQ(result.run("BIG"), -1);
  EXPECT_EQ(loaded.failure(), "2008 out of memory");
  EXPECT_EQ(backend_.log().texts().back(), "[ MySqlInterface::RunQuery ] mysql_store_result failed :out of memory ");
  EXPECT_EQ(loaded.server.RunQuery("SET a=1", nullptr), 0);
  EXPECT_EQ(loaded.server.getLastError(), 0);
}

TEST_F(Row, NoneCanBeReadWithoutAResultSet) {
  Loaded loaded("unknown");
  Result result(loaded);
  std::list<std::string> row;
  for (QueryResult* none : {static_cast<QueryResult*>(nullptr), result.rows}) {
    backend_.log().clear();
    EXPECT_EQ(loaded.server.FetchNextRow(none, row), -1);
    EXPECT_EQ(loaded.failure(), "-1 MYSQL_RES set is NULL");
    EXPECT_TRUE(logged("[MySqlInterace::FetchRows] QueryResult is NULL."));
  }
  MySqlInterface unused("u", "p", "s", 0);
  backend_.log().clear();
  EXPECT_EQ(unused.FetchNextRow(nullptr, row), -1);
  EXPECT_TRUE(logged("[MySqlInterace::FetchRows] QueryResult is NULL.")) << "also as the first line of an object";
}

TEST_F(Row, ThatBreaksOffIsAFailureAndNoEnd) {
  Loaded loaded("unknown");
  const char* const cells[] = {"1", "2", "3"};
  loaded.library.answer({"SELECT a", 0, "", 1, 3, cells, nullptr, 2, 0, 0});
  Result result(loaded);
  ASSERT_EQ(result.run("SELECT a"), 0);
  std::list<std::string> row;
  EXPECT_EQ(result.next(row), 0);
  EXPECT_EQ(result.next(row), -1);
  EXPECT_EQ(loaded.failure(), "2013 lost while reading");
  EXPECT_THAT(row, testing::ElementsAre("1"));
  EXPECT_EQ(backend_.log().texts().back(), "[MySqlInterace::FetchRows] mysql_fetch_row failed:lost while reading");
}

TEST_F(Row, ColumnsComeWholeWhereTheLibraryTellsTheirLengths) {
  const char* const cells[] = {"a\0b", nullptr, ""};
  const unsigned long lengths[] = {3, 0, 0};
  for (const char* name : {"unknown", "bare"}) {
    Loaded loaded(name);
    loaded.library.answer({"SELECT a", 0, "", 3, 1, cells, lengths, 0, 0, 0});
    Result result(loaded);
    ASSERT_EQ(result.run("SELECT a"), 0);
    std::list<std::string> row{"before"};
    EXPECT_EQ(result.next(row), 0);
    const std::string whole = std::string(name) == "bare" ? "a" : std::string("a\0b", 3);
    EXPECT_THAT(row, testing::ElementsAre("before", whole, "NULL", "")) << name;
  }
}

TEST_F(Row, ARequestThatReadsManyFailsWholeWhenOneBreaksOff) {
  Loaded loaded("unknown");
  const char* const cells[] = {"a", "b"};
  loaded.library.answer({"SHOW DATABASES", 0, "", 1, 2, cells, nullptr, 2, 0, 0});
  std::list<std::string> names{"before"};
  EXPECT_EQ(loaded.server.FetchDBList(names), -1);
  EXPECT_THAT(names, testing::ElementsAre("before"));
  EXPECT_TRUE(logged("[ MySqlInterface::FetchDBList ] mysql_fetch_row() Failed: Couldn't retrieve all Rows..."));
}

}  // namespace
