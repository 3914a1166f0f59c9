// What is said to the server about schemas and accounts, and to the log, and what every failure leaves.

#include <functional>
#include <new>
#include <string>

#include "orrery/mysql/MySqlInterface.h"

#include "access/library_fixture.h"
#include "support/index_record.h"

namespace {

thread_local bool refusesResults = false;

}  // namespace

// Memory for the object that holds a result is asked for in this way alone.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (refusesResults && size == sizeof(QueryResult)) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

using orrery::test::LibraryModeTest;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr const char* catalogue =
    "SELECT  TABLE_SCHEMA ,TABLE_NAME ,ENGINE FROM TABLES WHERE TABLE_TYPE=\"BASE TABLE\"";
constexpr const char* baseTables = "SHOW FULL TABLES WHERE TABLE_TYPE LIKE 'BASE TABLE'";
constexpr const char* status = "SHOW TABLE STATUS";
constexpr const char* variables = "SHOW VARIABLES;";
constexpr const char* tablesOfD =
    "SELECT `TABLE_SCHEMA` ,`TABLE_NAME` ,`ENGINE` FROM `INFORMATION_SCHEMA`.`TABLES` WHERE `TABLE_SCHEMA`='d'AND "
    "`TABLE_TYPE`!='VIEW'";
constexpr const char* createDatabase = "show create database `d`";
constexpr const char* createTable = "show create table `d`.`t`";
constexpr const char* fullTables = "show full tables where Table_Type != 'VIEW';";
constexpr const char* createCurrent = "show create table `t`;";
constexpr const char* users = "SELECT user, host FROM mysql.user where (host != 'localhost') and (host != '127.0.0.1')";
constexpr const char* roles = "SELECT user FROM mysql.user WHERE is_role='Y'";
constexpr const char* createUser = "SHOW CREATE USER `u`@`h`";
constexpr const char* grants = "SHOW GRANTS FOR `u`@`h`";

class MetadataRequests : public LibraryModeTest {
 protected:
  MetadataRequests() { EXPECT_EQ(session_.Init(id()), 0); }

  /// A server on which every request succeeds, for failures to be put before.
  void scriptAll() {
    library_.give(catalogue, 3, {"d", "t", "InnoDB"});
    library_.give(variables, 2, {"empty", "", "port", "1"});
    library_.give("SHOW DATABASES", 1, {"information_schema", "d", "performance_schema"});
    library_.give(baseTables, 1, {"t"});
    library_.give(status, 2, {"t", "InnoDB", "v", nullptr});
    library_.give("show engines", 2, {"Aria", "YES", "InnoDB", "DEFAULT", "Late", "DEFAULT"});
    library_.give(createDatabase, 2, {"D", "CREATE DATABASE"});
    library_.give(tablesOfD, 3, {"d", "t", "InnoDB"});
    library_.give(createTable, 2, {"t", "CREATE TABLE"});
    library_.give(fullTables, 2, {"t", "BASE TABLE"});
    library_.give(createCurrent, 2, {"t", "FOREIGN KEY (`p`) REFERENCES `q` (`i`) ENGINE=InnoDB"});
    library_.give(users, 2, {"u", "h"});
    library_.give(roles, 1, {"r`1"});
    library_.give(createUser, 1, {"CREATE USER"});
    library_.give(grants, 1, {"GRANT 1", "GRANT 2"});
  }
  void withoutCatalogue() {
    library_->select_error = 1044;
    library_->refused_db = "information_schema";
  }

  struct Operation {
    const char* name;
    const char* withoutConnection;
    const char* withoutMemory;
    std::function<int(GetMySqlInfoExt&)> run;
  };
  enum Index { collect, fillDatabase, fillTables, list, children, getUsers, getRoles, getCreate, getGrants, keys };
  static constexpr const char* noConnection = "m_Conn not initialized.";
  static constexpr const char* noMemory = "new QueryResult returned NULL. Insufficient memory";
  static constexpr const char* noMemoryBrief = "new QueryResult() returned NULL";
  const Operation operations_[10] = {
      {"CollectMetadata", "No valid connection to database found. m_Conn is NULL", noMemory,
       [&](auto& session) { return session.CollectMetadata(metadata_); }},
      {"fillDatabaseInfo", noConnection, noMemory,
       [&](auto& session) { return session.fillDatabaseInfo("d", &database_); }},
      {"fillTableInfoForDataBase", noConnection, noMemory,
       [&](auto& session) { return session.fillTableInfoForDataBase("d", &texts_); }},
      {"FetchTableList", noConnection, noMemoryBrief,
       [&](auto& session) { return session.FetchTableList("d", tables_); }},
      {"CollectChildTableData", noConnection, "Fetching table list failed",
       [&](auto& session) { return session.CollectChildTableData(children_); }},
      {"getUsers", noConnection, noMemory, [&](auto& session) { return session.getUsers(texts_); }},
      {"getRoles", noConnection, noMemory, [&](auto& session) { return session.getRoles(texts_); }},
      {"getCreateUserQuery", noConnection, noMemory,
       [&](auto& session) { return session.getCreateUserQuery("`u`@`h`", text_); }},
      {"getGrantQueries", noConnection, noMemory,
       [&](auto& session) { return session.getGrantQueries("`u`@`h`", texts_); }},
      {"collectForeignKeys", noConnection, noMemory, [&](auto& session) { return session.collectForeignKeys(keys_); }},
  };

  /// Runs an operation and gives its lines, each behind its level.
  Texts linesOf(Index index, int result = 0) {
    backend_.log().clear();
    EXPECT_EQ(operations_[index].run(session_), result) << session_.strErrorString;
    Texts lines;
    for (const auto& line : backend_.log().entries()) {
      if (line.tag == std::string("GetMySqlInfoExt::") + operations_[index].name) {
        lines.push_back(std::to_string(line.level) + " " + line.text);
      }
    }
    return lines;
  }
  std::string lastLineOf(Index index, int result) {
    const Texts lines = linesOf(index, result);
    return lines.empty() ? "" : lines.back().substr(2);
  }

  ClMySqlMetaData metadata_;
  IdxMetadata::MySqlDbInfo database_;
  MySqlChildTables children_;
  std::vector<orrery::mysql::ForeignKey> keys_;
  std::list<std::string> tables_;
  Texts texts_;
  std::string text_ = "before";
};

TEST_F(MetadataRequests, TellTheirFailures) {
  enum Way { refused, broken, empty };
  const std::string lost = "FetchNextRow failed:lost while reading";
  const auto failed = [](const char* statement) {
    return "[" + std::string(statement) + "] query execution failed:no";
  };
  const auto without = [](const char* statement) { return "[" + std::string(statement) + "] query returned no rows."; };
  const auto account = [](const char* statement) {
    return "[" + std::string(statement) + "] query execution failed Error: [no]";
  };
  const struct {
    const char* statement;
    Way way;
    Index operation;
    std::string line;
    bool hasCatalogue = true;
  } table[] = {
      {catalogue, refused, collect, failed(catalogue)},
      {catalogue, broken, collect, lost},
      {catalogue, empty, collect, without(catalogue)},
      {variables, refused, collect, failed(variables)},
      {variables, broken, collect, lost},
      {variables, empty, collect, "SHOW VARIABLES query returned zero rows"},
      {"SHOW DATABASES", refused, collect, "could not get database list as part of metadata collection.", false},
      {baseTables, refused, collect, failed(baseTables), false},
      {baseTables, broken, collect, lost, false},
      {status, refused, collect, "[SHOW TABLE STATUS] query execution failed for d database:no", false},
      {status, broken, collect, lost, false},
      {"show engines", refused, fillDatabase, failed("show engines")},
      {"show engines", broken, fillDatabase, lost},
      {"show engines", empty, fillDatabase, without("show engines")},
      {createDatabase, refused, fillDatabase, failed(createDatabase)},
      {createDatabase, broken, fillDatabase, lost},
      {createDatabase, empty, fillDatabase, without(createDatabase)},
      {tablesOfD, refused, fillTables, failed(tablesOfD)},
      {tablesOfD, broken, fillTables, lost},
      {createTable, refused, fillTables, failed(createTable)},
      {createTable, broken, fillTables, lost},
      {createTable, empty, fillTables, without(createTable)},
      {"use `d`;", refused, list, "[use `d`;] failed:no"},
      {fullTables, refused, list, failed(fullTables)},
      {fullTables, broken, list, lost},
      {"SHOW DATABASES", refused, children, "querying db list failed"},
      {"use `d`;", refused, children, "Fetching table list failed"},
      {createCurrent, refused, children, failed(createCurrent)},
      {createCurrent, broken, children, lost},
      {createCurrent, empty, children,
       "no fields returned for table [t] in db [d] , each table must have create table statement"},
      {users, refused, getUsers, account(users)},
      {users, broken, getUsers, lost},
      {roles, refused, getRoles, "the roles cannot be listed: [1227:no]"},
      {createUser, refused, getCreate, account(createUser)},
      {createUser, broken, getCreate, lost},
      {grants, refused, getGrants, account(grants)},
      {grants, broken, getGrants, lost},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.statement + std::string(row.way == refused  ? " refused"
                                             : row.way == broken ? " broken"
                                                                 : " empty"));
    library_.forgetAnswers();
    library_->select_error = 0;
    if (!row.hasCatalogue) withoutCatalogue();
    static const char* const cells[] = {"x", "x", "x"};
    stand_in_answer answer{};
    answer.statement = row.statement;
    answer.error = row.way == refused ? 1227 : 0;
    answer.text = "no";
    answer.fields = row.way == refused ? 0 : 3;
    answer.rows = answer.lost_before_row = row.way == broken ? 1 : 0;
    answer.cells = cells;
    library_.answer(answer);
    scriptAll();
    session_.SetErrorStatus(0, "");
    EXPECT_EQ(lastLineOf(row.operation, -1), row.line);
    const std::string left = row.way == refused ? "1227 no" : row.way == broken ? "2013 lost while reading" : "-1 the ";
    EXPECT_EQ(failure().substr(0, left.size()), left);
  }
  EXPECT_FALSE(database_.isset(1)) << "a failure changes no record";
  EXPECT_EQ(text_, "before");
  EXPECT_TRUE(texts_.empty() && tables_.empty() && children_.empty());
  EXPECT_EQ(metadata_.databases["d"].tables.size(), 1U) << "what was stored stays";
}

TEST_F(MetadataRequests, TellWhatIsMissing) {
  GetMySqlInfoExt unconnected;
  for (const Operation& operation : operations_) {
    const std::string tag = std::string("GetMySqlInfoExt::") + operation.name;
    const bool wantsInstance = tag.find("fill") != std::string::npos;
    EXPECT_EQ(operation.run(unconnected), -1);
    if (wantsInstance) {
      EXPECT_EQ(under(tag).back(), "object not initialized before calling this function.");
    }
    unconnected.bInitialized = true;
    EXPECT_EQ(operation.run(unconnected), -1);
    EXPECT_EQ(under(tag).back(), operation.withoutConnection);
    unconnected.bInitialized = false;

    scriptAll();
    refusesResults = true;
    EXPECT_EQ(operation.run(session_), -1);
    refusesResults = false;
    EXPECT_EQ(under(tag).back(), operation.withoutMemory) << "and nothing else is said";
    EXPECT_EQ(failure(), "-1 there is not enough memory for the answer");
  }
  EXPECT_EQ(unconnected.setIdentifiedWithAsHex("ON"), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::setIdentifiedWithAsHex").back(), noConnection);
  EXPECT_EQ(session_.fillDatabaseInfo("d", nullptr), -1);
}

TEST_F(MetadataRequests, OfLibraryModeSayWhatTheyDo) {
  scriptAll();
  EXPECT_THAT(linesOf(collect),
              ElementsAre("9 dbname = d ;table = t ; engine = InnoDB", "6 [empty]=[]", "6 [port]=[1]",
                          "3 Metadata details:", "6  database :d", "6 Table Name = t Table Engine =InnoDB",
                          "3 configuration parameters:", "3 [empty]", "3 [port=1]"));
  EXPECT_THAT(linesOf(fillDatabase), ElementsAre("9 Got the default engine [InnoDB]",
                                                 "5 The database values are [D] [CREATE DATABASE] [InnoDB]"));
  EXPECT_THAT(linesOf(fillTables), ElementsAre("9 table = t ; engine = InnoDB",
                                               "9 table = [t] createcommand =[CREATE TABLE], engine = [InnoDB]"));
  EXPECT_THAT(orrery::test::fieldsOf(texts_.at(0)),
              ElementsAre(testing::Pair(1U, "6W-?=<(.p/5se76"), testing::Pair(4U, "t"), testing::Pair(5U, "InnoDB")));
  texts_.clear();
  EXPECT_THAT(linesOf(list), ElementsAre());
  EXPECT_THAT(tables_, ElementsAre("t"));
  EXPECT_THAT(linesOf(children),
              ElementsAre("5 ignoring information_schema/performance_schema",
                          "3 Table t create table =[FOREIGN KEY (`p`) REFERENCES `q` (`i`) ENGINE=InnoDB]",
                          "3 references table=[q]",
                          "3 Table t create table =[FOREIGN KEY (`p`) REFERENCES `q` (`i`) ENGINE=InnoDB]",
                          "3 references table=[q]",
                          "3 Printing child table details of all tables:", "3 [d.q] is referenced in :", "3 ->[d.t]",
                          "3 [performance_schema.q] is referenced in :", "3 ->[performance_schema.t]"))
      << "kept: performance_schema is searched";
  EXPECT_THAT(linesOf(getUsers), ElementsAre("5 Executing query [" + std::string(users) + "]", "5 User - [`u`@`h`]"));
  EXPECT_THAT(linesOf(getCreate), ElementsAre("5 Executing query [SHOW CREATE USER `u`@`h`]",
                                              "5 Create user - [`u`@`h`] Query - [CREATE USER]"));
  EXPECT_THAT(linesOf(getGrants),
              ElementsAre("5 Executing query [SHOW GRANTS FOR `u`@`h`]", "5 Grants for user [`u`@`h`]",
                          "5 Grant query [GRANT 1]", "5 Grant query [GRANT 2]"));
  EXPECT_THAT(linesOf(getRoles), ElementsAre());
  EXPECT_THAT(texts_, ElementsAre("`u`@`h`", "GRANT 1", "GRANT 2", "`r``1`"));
  library_.calls();
  EXPECT_EQ(session_.setIdentifiedWithAsHex("ON;x"), 0);
  EXPECT_EQ(library_.calls(), "query SET print_identified_with_as_hex=ON;x\n") << "kept: the value is not looked at";
}

TEST_F(MetadataRequests, OfEachDatabaseSayWhatTheyPassOver) {
  withoutCatalogue();
  library_.give("SHOW DATABASES", 1, {"information_schema", "empty", "d", "gone", "performance_schema"});
  library_.give(baseTables, 1, {}, 1);
  library_.give(status, 2, {"t", "InnoDB", "v", nullptr}, 1);
  library_.give(status, 2, {});
  scriptAll();
  metadata_.databases["d"].tables["earlier"].engine = "Aria";
  const Texts lines = linesOf(collect);
  ASSERT_GT(lines.size(), 11U);
  EXPECT_THAT(
      Texts(lines.begin(), lines.begin() + 11),
      ElementsAre("0 connection to information_schema database failed.",
                  "0 we will run 'show table status' on for each database to collect metadata",
                  "0 skipping [information_schema] from metadata",
                  "0 [SHOW FULL TABLES WHERE TABLE_TYPE LIKE 'BASE TABLE'] query returned zero rows",
                  "0 WARNING: The database contain NO BASE TABLES with given user privileges",
                  "3 [v] is not a BASE TABLE", "0 for [gone] database query 'SHOW TABLE STATUS' returned zero rows",
                  "0 Previous SHOW FULL TABLES query returned non-zero set.",
                  "0 Tableis of this database might got dropped meanwhile.", "0 Considering the database as empty.",
                  "0 skipping [performance_schema] from metadata"));
  ASSERT_EQ(metadata_.databases.size(), 1U);
  EXPECT_EQ(metadata_.databases["d"].name, "d");
  EXPECT_EQ(metadata_.databases["d"].tables.size(), 2U) << "existing entries are extended";

  library_->refused_db = nullptr;
  EXPECT_EQ(lastLineOf(collect, -1), "cannot connect to database empty to collect table list:no such database");
  EXPECT_EQ(failure(), "1044 no such database");
}

TEST_F(MetadataRequests, OfATableWithoutAnEncodableStatementStillMakeARecord) {
  library_.give(createTable, 2, {"t", ""});
  scriptAll();
  EXPECT_THAT(linesOf(fillTables), testing::Contains(testing::StartsWith("0 CAscii85::Encode failed. error=")));
  EXPECT_THAT(orrery::test::fieldsOf(texts_.at(0)), ElementsAre(testing::Pair(4U, "t"), testing::Pair(5U, "InnoDB")));
}

TEST_F(MetadataRequests, WithoutAnAnswerAreNoFailures) {
  library_.give("show engines", 2, {"Aria", "YES"});
  library_.give(tablesOfD, 3, {});
  library_.give(fullTables, 2, {});
  library_.give(createUser, 1, {});
  library_.refuse(roles, 1054, "Unknown column 'is_role' in 'where clause'");
  scriptAll();
  EXPECT_THAT(linesOf(fillDatabase), ElementsAre("5 The database values are [D] [CREATE DATABASE] []"));
  EXPECT_EQ(lastLineOf(fillTables, 0),
            "[" + std::string(tablesOfD) + "] query returned no rows. No tables in the database");
  EXPECT_THAT(linesOf(list), ElementsAre("0 no tables found."));
  EXPECT_THAT(linesOf(getCreate), ElementsAre("5 Executing query [SHOW CREATE USER `u`@`h`]"));
  EXPECT_EQ(text_, "before");
  EXPECT_THAT(linesOf(getRoles), ElementsAre());
  EXPECT_TRUE(texts_.empty() && tables_.empty());
}

TEST_F(MetadataRequests, ASyntaxErrorWhileReadingACreationStatementIsKeptSilent) {
  stand_in_answer answer{};
  answer.statement = createUser;
  answer.fields = answer.rows = answer.lost_before_row = 1;
  library_->row_error = 1064;
  library_.answer(answer);
  session_.SetErrorStatus(7, "earlier");
  EXPECT_THAT(linesOf(getCreate, -1), ElementsAre("5 Executing query [SHOW CREATE USER `u`@`h`]"));
  EXPECT_EQ(failure(), "7 earlier");
}

}  // namespace
