// What the databases of a real server hold.

#include <string>
#include <vector>

#include "integration/real_session.h"
#include "support/index_record.h"
#include "support/statement_gate.h"
#include "support/temporary_directory.h"

namespace {

using orrery::test::MariaDbSandbox;
using orrery::test::StatementGate;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::Pair;
using Texts = std::vector<std::string>;

class Metadata : public orrery::test::ServerSuite<Metadata> {
 public:
  static MariaDbSandbox::Options options() { return {.serverOptions = {"--performance-schema=ON"}}; }

 protected:
  ~Metadata() override {
    for (const std::string db : {"a", "copy", "empty", "views", "`it's \\ ``odd``; \"`"}) {
      server_->execute("DROP DATABASE IF EXISTS " + db);
    }
  }
  std::unique_ptr<GetMySqlInfoExt> at(const std::string& socket) {
    auto properties = propertiesOf(*server_);
    properties[orrery::platform::property::socketFile] = socket;
    return librarySessionFor(properties);
  }
  ClMySqlMetaData collect(GetMySqlInfoExt& session) {
    ClMySqlMetaData metadata;
    EXPECT_EQ(session.CollectMetadata(metadata), 0) << session.strErrorString;
    EXPECT_EQ(metadata.configuration["socket"], server_->socket());
    EXPECT_GT(metadata.configuration.size(), 500U);
    return metadata;
  }
  /// Name and engine of each table.
  static Texts tablesOf(ClMySqlMetaData& metadata, const std::string& db) {
    Texts tables;
    for (const auto& [name, table] : metadata.databases[db].tables) {
      EXPECT_EQ(name, table.name);
      tables.push_back(name + " " + table.engine);
    }
    return tables;
  }
  Texts recordsOf(const std::string& db) {
    Texts records;
    EXPECT_EQ(session_->fillTableInfoForDataBase(db, &records), 0) << session_->strErrorString;
    return records;
  }

  std::unique_ptr<GetMySqlInfoExt> session_ = librarySessionFor(propertiesOf(*server_));
};

constexpr const char* schema = R"sql(
  CREATE DATABASE empty; CREATE DATABASE views; CREATE VIEW views.v AS SELECT 1 AS x; CREATE DATABASE a; USE a;
  CREATE TABLE plain (id INT PRIMARY KEY, t VARCHAR(20) DEFAULT 'it''s "x"' COMMENT 'a\nb') COMMENT='漢字, ''q'' and\n"d"';
  CREATE TABLE parted (id INT) PARTITION BY RANGE (id) (PARTITION p0 VALUES LESS THAN (10), PARTITION p1 VALUES LESS
    THAN MAXVALUE);
  CREATE TABLE computed (x INT, y INT AS (x + 1) VIRTUAL, z INT GENERATED ALWAYS AS (x * 2) STORED);
  CREATE TABLE `history` (x INT) WITH SYSTEM VERSIONING;
  CREATE SEQUENCE numbers START WITH 7;
  CREATE TABLE isam (x INT) ENGINE=MyISAM; CREATE TABLE aria (x INT) ENGINE=Aria; CREATE TABLE mem (x INT) ENGINE=MEMORY;
  CREATE TABLE csv (x INT NOT NULL) ENGINE=CSV; CREATE TABLE merged (x INT) ENGINE=MERGE UNION=(isam);
  CREATE VIEW v AS SELECT * FROM plain;
)sql";

TEST_F(Metadata, OfTheCatalogueHoldsBaseTablesUnderRecordsWithoutAName) {
  server_->execute(schema);
  ClMySqlMetaData metadata = collect(*session_);
  EXPECT_EQ(metadata.databases["a"].name, "") << "kept";
  EXPECT_THAT(tablesOf(metadata, "a"), ElementsAre("aria Aria", "computed InnoDB", "csv CSV", "isam MyISAM",
                                                   "mem MEMORY", "merged MRG_MyISAM", "parted InnoDB", "plain InnoDB"));
  EXPECT_EQ(metadata.databases.count("performance_schema"), 1U) << "kept: no schema is passed over here";
  EXPECT_EQ(metadata.databases.count("views") + metadata.databases.count("empty"), 0U);

  // Collected again into the same object: what went stays, what came is there.
  server_->execute("DROP TABLE a.aria; CREATE TABLE a.new (x INT) ENGINE=MyISAM");
  ASSERT_EQ(session_->CollectMetadata(metadata), 0);
  EXPECT_THAT(tablesOf(metadata, "a"), testing::AllOf(Contains("aria Aria"), Contains("new MyISAM")));
}

TEST_F(Metadata, WhereTheCatalogueCannotBeSelectedComesFromEveryDatabase) {
  server_->execute(schema);
  const orrery::test::TemporaryDirectory place;
  const StatementGate gate(place / "s.sock", server_->socket(), "information_schema",
                           [] { return StatementGate::Then::breakConnection; });
  auto session = at(gate.path());
  Texts seen;
  session->watchTables([&](const std::string& db, const std::string&, std::size_t) {
    seen.push_back(db);
    return true;
  });
  ClMySqlMetaData metadata = collect(*session);
  EXPECT_TRUE(gate.wasSeen());
  EXPECT_EQ(metadata.databases["a"].name, "a");
  EXPECT_THAT(tablesOf(metadata, "a"),
              ElementsAre("aria Aria", "computed InnoDB", "csv CSV", "history InnoDB", "isam MyISAM", "mem MEMORY",
                          "merged MRG_MyISAM", "parted InnoDB", "plain InnoDB"))
      << "the server lists a system-versioned table as a base table here";
  EXPECT_THAT(seen, testing::UnorderedElementsAre("a", "empty", "mysql", "sys", "views"));
  for (const char* absent : {"information_schema", "performance_schema", "views", "empty"}) {
    EXPECT_EQ(metadata.databases.count(absent), 0U) << absent;
  }
  EXPECT_TRUE(logged("[v] is not a BASE TABLE"));
  EXPECT_TRUE(logged("skipping [performance_schema] from metadata"));
}

TEST_F(Metadata, AreCollectedUnderAnsiQuotesByTheSecondText) {
  server_->execute(std::string(schema) + "SET GLOBAL sql_mode='ANSI_QUOTES'");
  auto session = at(server_->socket());
  ClMySqlMetaData metadata = collect(*session);
  EXPECT_EQ(tablesOf(metadata, "a").size(), 8U);
  Texts records;
  EXPECT_EQ(session->fillTableInfoForDataBase("a", &records), 0) << session->strErrorString;
  server_->execute("SET GLOBAL sql_mode=DEFAULT");
}

TEST_F(Metadata, RecordsOfTablesOfEveryKindMakeThemAgain) {
  server_->execute(schema);
  std::string wide = "CREATE TABLE a.wide (";
  for (int i = 0; i < 58; ++i) wide += "c" + std::to_string(i) + " INT COMMENT '" + std::string(1000, 'x') + "', ";
  server_->execute(wide + "PRIMARY KEY (c0)) ENGINE=MyISAM");
  const Texts records = recordsOf("a");
  server_->execute("CREATE DATABASE copy");
  ASSERT_EQ(session_->runExeQuery("USE copy"), 0);
  Texts names;
  for (const std::string& record : records) {
    auto fields = orrery::test::fieldsOf(record);
    names.push_back(fields[4] + " " + fields[5]);
    const auto statement = orrery::test::fromAscii85(fields[1]);
    ASSERT_TRUE(statement) << fields[4];
    EXPECT_EQ(session_->runExeQuery(*statement), 0) << session_->strErrorString << *statement;
    EXPECT_EQ(fields.size(), 3U);
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("aria Aria", "computed InnoDB", "csv CSV", "isam MyISAM",
                                                   "mem MEMORY", "merged MRG_MyISAM", "parted InnoDB", "plain InnoDB",
                                                   "history InnoDB", "numbers InnoDB", "wide MyISAM"));
  server_->execute("ALTER TABLE copy.merged UNION=(a.isam); ALTER TABLE a.merged UNION=(a.isam)");
  Texts copies = recordsOf("copy");
  Texts originals = recordsOf("a");
  EXPECT_EQ(copies.size(), originals.size());
  for (const std::string& original : originals) {
    if (orrery::test::fieldsOf(original)[4] == "merged") continue;  // names its table's database in one of them
    EXPECT_THAT(copies, Contains(original));
  }
}

TEST_F(Metadata, OfADatabaseNameItsStatementAndTheServersEngine) {
  server_->execute("CREATE DATABASE a CHARACTER SET latin1 COMMENT 'it''s caf\xc3\xa9'");
  IdxMetadata::MySqlDbInfo record;
  ASSERT_EQ(session_->fillDatabaseInfo("a", &record), 0) << session_->strErrorString;
  EXPECT_EQ(record.getstring(1), "a");
  EXPECT_EQ(record.getstring(2),
            "CREATE DATABASE `a` /*!40100 DEFAULT CHARACTER SET latin1 COLLATE latin1_swedish_ci */ COMMENT "
            "'it''s caf\xc3\xa9'");
  EXPECT_EQ(record.getstring(3), "InnoDB");
  EXPECT_EQ(session_->fillDatabaseInfo("none", &record), -1);
  EXPECT_EQ(session_->iErrorCode, 1049);
  EXPECT_EQ(record.getstring(1), "a") << "a failure changes nothing";
}

TEST_F(Metadata, OfNamesThatCouldEndTheirQuotingAreData) {
  const std::string name = "it's \\ `odd`; \"";
  server_->execute("CREATE DATABASE `it's \\ ``odd``; \"`; CREATE TABLE `it's \\ ``odd``; \"`.`t``; '\"\\` (x INT)");
  for (const char* mode : {"''", "'NO_BACKSLASH_ESCAPES,ANSI_QUOTES'"}) {
    server_->execute(std::string("SET GLOBAL sql_mode=") + mode);
    session_ = at(server_->socket());
    const Texts records = recordsOf(name);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_THAT(orrery::test::fieldsOf(records.front()), Contains(Pair(4U, "t`; '\"\\")));
    std::list<std::string> tables;
    EXPECT_EQ(session_->FetchTableList(name, tables), 0) << session_->strErrorString;
    EXPECT_THAT(tables, ElementsAre("t`; '\"\\"));
    IdxMetadata::MySqlDbInfo record;
    EXPECT_EQ(session_->fillDatabaseInfo(name, &record), 0) << session_->strErrorString;
    EXPECT_EQ(record.getstring(1), name);
  }
  server_->execute("SET GLOBAL sql_mode=DEFAULT");
}

TEST_F(Metadata, OfATableThatGoesMeanwhileFailAndWhatWasCollectedStays) {
  server_->execute(schema);
  session_->watchTables([&](const std::string& db, const std::string&, std::size_t tables) {
    EXPECT_EQ(db, "a");
    if (tables == 2) server_->execute("DROP DATABASE a");
    return true;
  });
  Texts records;
  EXPECT_EQ(session_->fillTableInfoForDataBase("a", &records), -1);
  EXPECT_EQ(session_->iErrorCode, 1146) << session_->strErrorString;
  EXPECT_EQ(records.size(), 2U);
}

TEST_F(Metadata, EndWhereTheirTakerOrTheWatcherSaysSo) {
  server_->execute(schema);
  Texts names;
  const auto take = [&](const std::string& table, const std::string&) {
    names.push_back(table);
    return names.size() < 3;
  };
  EXPECT_EQ(session_->forEachTableRecord("a", take), 1);
  EXPECT_EQ(names.size(), 3U);
  EXPECT_TRUE(logged("stopped by the caller in database [a], 3 tables done"));
  session_->watchTables([](const std::string&, const std::string&, std::size_t tables) { return tables < 2; });
  Texts records;
  EXPECT_EQ(session_->fillTableInfoForDataBase("a", &records), 1);
  EXPECT_EQ(records.size(), 2U);
}

TEST_F(Metadata, OfAnAccountWithoutRightsIsWhatItMaySee) {
  server_->execute(std::string(schema) +
                   "CREATE USER poor@localhost IDENTIFIED BY 'x'; GRANT INSERT ON a.isam TO "
                   "poor@localhost");
  auto properties = propertiesOf(*server_);
  properties[orrery::platform::property::saUser] = "poor";
  properties[orrery::platform::property::saPassword] = "sealed:x";
  auto poor = librarySessionFor(properties);
  ClMySqlMetaData metadata = collect(*poor);
  EXPECT_THAT(tablesOf(metadata, "a"), ElementsAre("isam MyISAM"));
  Texts records;
  EXPECT_EQ(poor->fillTableInfoForDataBase("a", &records), 0) << poor->strErrorString;
  EXPECT_EQ(records.size(), 1U);
  EXPECT_EQ(poor->fillTableInfoForDataBase("views", &records), 0);
  EXPECT_TRUE(backend_.log().contains("query returned no rows. No tables in the database"));
  IdxMetadata::MySqlDbInfo record;
  EXPECT_EQ(poor->fillDatabaseInfo("views", &record), -1);
  EXPECT_EQ(poor->iErrorCode, 1044) << poor->strErrorString;
}

}  // namespace
