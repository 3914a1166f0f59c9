// orrery-mysql metadata and references on a real server: all forms of the results, hostile names, and early ends.

#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Names that end quotes, lines, labels and entities wherever they are not written as data.
const std::string kHostileDatabase = "d'\"`\\;\xc3\xbc";
const std::string kHostileTable = "t'\"`\\\\n; --\n&amp;<b>\xe6\xbc\xa2";

std::string quoted(const std::string& name) {
  std::string text = "`";
  for (const char c : name) text.append(c == '`' ? 2 : 1, c);
  return text + "`";
}

class MetadataTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
    const std::string parent = quoted(kHostileDatabase) + "." + quoted(kHostileTable);
    server().execute(
        "create or replace database shop; create or replace database " + quoted(kHostileDatabase) +
        "; create table shop.customer (id int primary key, code int unique, note text comment 'a''b\\\\ \xc3\xa9');"
        "create table shop.orders (id int primary key, c int, d int, constraint first foreign key (c) references "
        "shop.customer (id) on delete cascade, constraint second foreign key (d) references shop.customer (code));"
        "create table shop.log (a int) engine=MyISAM; create view shop.seen as select 1; create table " +
        parent + " (a int primary key, b int, constraint `k\"\\\\` foreign key (b) references shop.customer (id))");
  }
  void TearDown() override {
    server().execute("drop database " + quoted(kHostileDatabase) + "; drop database shop");
    EXPECT_THAT(namesIn(home() + "/tmp"), IsEmpty());
  }

  static std::vector<std::string> metadata(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--access", "library", "metadata", "db"});
    return more;
  }
  static std::vector<std::string> references(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--access", "library", "references", "db"});
    return more;
  }
  /// The statement as the ordinary client shows it, its escapes undone.
  static std::string statementOf(const std::string& what) {
    const std::string line = server().execute("show create " + what);
    std::string text;
    for (std::size_t i = line.find('\t') + 1; i < line.size() && line[i] != '\t' && line[i] != '\n'; ++i) {
      text += line[i] != '\\' ? line[i] : line[++i] == 'n' ? '\n' : line[i];
    }
    return text;
  }
};

TEST_F(MetadataTest, JsonHoldsEveryStatementAsTheServerPrintsIt) {
  const Json all = runJson(metadata());
  EXPECT_EQ(all["job"], nullptr);
  std::map<std::string, Json> databases;
  for (const Json& database : all["databases"]) databases[database["name"]] = database;
  ASSERT_EQ(databases.count("mysql"), 1U);
  ASSERT_EQ(databases.count("shop"), 1U);
  ASSERT_EQ(databases.count(kHostileDatabase), 1U);
  const Json& shop = databases["shop"];
  EXPECT_TRUE(has(shop, {{"default_engine", "InnoDB"}, {"statement", statementOf("database shop")}}));
  ASSERT_EQ(shop["tables"].size(), 3U) << "no view";
  for (const Json& table : shop["tables"]) {
    const std::string name = table["name"];
    const Json statement = statementOf("table shop." + name);
    EXPECT_TRUE(has(table, {{"engine", name == "log" ? "MyISAM" : "InnoDB"}, {"statement", statement}}));
  }
  const Json& hostile = databases[kHostileDatabase]["tables"];
  ASSERT_EQ(hostile.size(), 1U);
  const Json statement = statementOf("table " + quoted(kHostileDatabase) + "." + quoted(kHostileTable));
  EXPECT_TRUE(has(hostile[0], {{"name", kHostileTable}, {"statement", statement}}));
}

TEST_F(MetadataTest, PeopleSeeCountsAndTheTablesOfWhatTheyAskFor) {
  EXPECT_THAT(run(metadata()).output, HasSubstr("InnoDB          3       InnoDB 2, MyISAM 1\n"));
  const ProgramResult tables = run(metadata({"--database", "shop", "--database", "shop"}));
  EXPECT_THAT(tables.output, HasSubstr("\nshop      InnoDB          log       MyISAM\n"));
  EXPECT_THAT(tables.output, HasSubstr("\ntotal 1                   3         InnoDB 2, MyISAM 1\n"));
  EXPECT_TRUE(has(runJson(metadata({"--configuration"}))["configuration"],
                  {{"socket", server().socket()}, {"init_connect", ""}}));
  // Also those that are no base tables of the catalogue, of which there are records.
  server().execute("create table shop.history (a int) with system versioning; create sequence shop.numbers");
  EXPECT_THAT(
      run(metadata({"--database", "shop"})).output,
      testing::AllOf(HasSubstr(" history "), HasSubstr(" numbers "), HasSubstr("\ntotal 1                   5 ")));
  EXPECT_THAT(run(metadata()).output, HasSubstr("InnoDB          5       InnoDB 4, MyISAM 1\n"));
}

std::string protocText(const std::string& message) {
  const ProgramResult result = runProgram(
      {"protoc", "--proto_path=" ORRERY_DOCS, "--decode=IdxMetadata.IndexRecord", ORRERY_DOCS "/index_file.proto"},
      {.input = message});
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  return result.output;
}

/// The messages of a file of delimited ones.
std::vector<std::string> messagesOf(const std::string& bytes) {
  std::vector<std::string> messages;
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t length = 0;
    for (unsigned shift = 0;; shift += 7) {
      const auto byte = static_cast<unsigned char>(bytes.at(at++));
      length |= static_cast<std::size_t>(byte & 0x7FU) << shift;
      if (byte < 0x80) break;
    }
    messages.push_back(bytes.substr(at, length));
    EXPECT_EQ(messages.back().size(), length);
    at += length;
  }
  return messages;
}

TEST_F(MetadataTest, RecordsAreReadByReadersOfTheFormat) {
  const std::string file = directory_ / "records";
  const Json printed = runJson(metadata({"--database", "shop", "--records", file}));
  EXPECT_EQ(printed["totals"], Json({{"databases", 1}, {"tables", 3}, {"engines", {{"InnoDB", 2}, {"MyISAM", 1}}}}));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  const std::string bytes = readFile(file);
  EXPECT_EQ(run(metadata({"--database", "shop", "--records", "-"})).output, bytes);
  const std::vector<std::string> messages = messagesOf(bytes);
  ASSERT_EQ(messages.size(), 4U);
  const std::string first = protocText(messages[0]);
  EXPECT_THAT(first, HasSubstr("database {\n  name: \"shop\"\n  creation_statement: \"CREATE DATABASE `shop` "));
  EXPECT_THAT(first, HasSubstr("default_engine: \"InnoDB\""));
  std::string tables;
  for (std::size_t i = 1; i < messages.size(); ++i) tables += protocText(messages[i]);
  EXPECT_THAT(tables, HasSubstr("name: \"log\"\n  engine: \"MyISAM\"\n"));
  // "CREATE TABLE" in Ascii85.
  EXPECT_THAT(tables, HasSubstr("table {\n  creation_statement: \"6W-?=<(.p/5se76"));
}

TEST_F(MetadataTest, ReplacesNothingButAFile) {
  EXPECT_TRUE(failedWith(run(metadata({"--records", directory_ / ""})), "is there and no regular file"));
  EXPECT_TRUE(failedWith(run(metadata({"--records", "/dev/null"})), "is there and no regular file"));
  EXPECT_TRUE(failedWith(run(metadata({"--records", directory_ / "none/x"})), "No such file"));
  std::filesystem::create_symlink("nowhere", directory_ / "link");
  EXPECT_TRUE(failedWith(run(metadata({"--records", directory_ / "link"})), "is a link that leads nowhere"));
  for (const char* name : {"out.999999999.new", "out.1.new", "out.x.new", "xout.999999999.new"}) {
    writeFile(directory_ / name, "");
  }
  EXPECT_EQ(run(metadata({"--database", "shop", "--records", directory_ / "out"})).exitStatus, 0);
  EXPECT_THAT(namesIn(directory_ / ""),
              ElementsAre("home", "link", "out", "out.1.new", "out.x.new", "xout.999999999.new"));
  EXPECT_TRUE(refusedUsage(run(metadata({"--records="})), "name"));
  EXPECT_TRUE(failedWith(run(metadata({"--database", "shox"})), "there is no database shox"));
  for (const char* option : {"--records=x", "--job=1", "--database=shop"}) {
    EXPECT_TRUE(refusedUsage(run(metadata({"--configuration", option})), "excludes --configuration"));
  }
  EXPECT_TRUE(failedWith(run(metadata({"--job", "7"})), "there is no job 7"));
}

TEST_F(MetadataTest, IsNotOfferedInCommandMode) {
  for (const char* command : {"metadata", "references", "accounts"}) {
    EXPECT_TRUE(failedWith(run({command, "db"}), "command mode, which does not offer that; --access library"));
  }
}

TEST_F(MetadataTest, ThatEndsInTheMiddleLeavesNothingAndChangesNothing) {
  const std::string file = directory_ / "records";
  writeFile(file, "earlier");
  for (const auto& form : {std::pair("--records", file), std::pair("--format", std::string("json"))}) {
    for (const bool isInterrupt : {true, false}) {
      SCOPED_TRACE(form.first + std::string(isInterrupt ? ", interrupted" : ", broken"));
      const ProgramResult result =
          runGated("db", server(), "`shop`.`orders`", metadata({"--database", "shop", form.first, form.second}),
                   isInterrupt ? sending(SIGINT) : breaking());
      EXPECT_EQ(result.output, "");
      EXPECT_EQ(result.signal, isInterrupt ? SIGINT : 0);
      EXPECT_TRUE(isInterrupt ||
                  failedWith(result, "no metadata of the database shop of db, at the table shop.orders: [20"))
          << result.errors;
    }
  }
  EXPECT_EQ(readFile(file), "earlier");
  EXPECT_THAT(namesIn(directory_ / ""), ElementsAre("home", "records"));
}

TEST_F(MetadataTest, IsTheSameWhateverTheServersMode) {
  const Json all = runJson(metadata());
  EXPECT_EQ(all["sql_mode"], "");
  const std::string tables = run(metadata()).output;
  const std::string map = run(references()).output;
  for (const char* mode : {"ANSI_QUOTES,NO_BACKSLASH_ESCAPES", "NO_TABLE_OPTIONS,NO_KEY_OPTIONS,NO_FIELD_OPTIONS"}) {
    server().execute(std::string("set global sql_mode = '") + mode + "'");
    EXPECT_EQ(runJson(metadata()), all) << mode;
    EXPECT_EQ(run(metadata()).output, tables) << mode;
    EXPECT_EQ(run(references()).output, map) << mode;
  }
  server().execute("set global sql_mode = default");
}

TEST_F(MetadataTest, OfOneBrokenOrVanishedTableDoesNotKeepTheOthersFromTheResult) {
  const std::string frm = server().dataDirectory() + "/shop/log.frm";
  server().execute("flush tables");
  const std::string whole = readFile(frm);
  writeFile(frm, "broken");
  EXPECT_TRUE(failedWith(run(metadata({"--database", "shop", "--records", "-"})),
                         "no metadata of the database shop of db, at the table shop.log: [1033]"));
  const ProgramResult result = run(metadata({"--format", "json"}));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.errors, HasSubstr("at the table shop.log: [1033]"));
  const Json document = Json::parse(result.output, nullptr, false);
  ASSERT_FALSE(document.is_discarded()) << result.output;
  ASSERT_EQ(document["left_out"].size(), 1U);
  EXPECT_EQ(document["left_out"][0]["database"], "shop");
  EXPECT_THAT(result.output, Not(HasSubstr("\"orders\""))) << "no half of a database";
  EXPECT_EQ(document["databases"].size(), document["totals"]["databases"].get<std::size_t>());
  EXPECT_TRUE(failedWith(run(references()), "no references from db, at the table shop.log: [1033]"));
  writeFile(frm, whole);

  const ProgramResult vanished = runGated("db", server(), "`shop`.`orders`", metadata({"--format", "json"}), [](pid_t) {
    server().execute("drop table shop.orders");
    return StatementGate::Then::handOn;
  });
  EXPECT_EQ(vanished.exitStatus, 0) << vanished.errors;
  EXPECT_EQ(Json::parse(vanished.output)["left_out"][0]["database"], "shop");
}

TEST_F(MetadataTest, EndsAtTheSecondSignalWhenTheServerDoesNotAnswer) {
  const auto hangs = [](pid_t pid) {
    const auto isGone = [pid] { return ::kill(pid, 0) != 0; };
    ::kill(pid, SIGINT);
    EXPECT_FALSE(waitUntil(isGone, std::chrono::milliseconds(300))) << "the first one waits";
    ::kill(pid, SIGINT);
    EXPECT_TRUE(waitUntil(isGone));
    return StatementGate::Then::breakConnection;
  };
  const std::vector<std::string> line = metadata({"--database", "shop", "--format", "json"});
  EXPECT_EQ(runGated("db", server(), "`shop`.`orders`", line, hangs).signal, SIGINT);
}

TEST_F(MetadataTest, ReferencesAreTheAgentsMapOrEveryKeyAndNeverBoth) {
  const std::string hostile = R"(`d'"``\\;)"
                              "\xc3\xbc"
                              R"(`.`t'"``\\\\n; --\n&amp;<b>)"
                              "\xe6\xbc\xa2`";
  EXPECT_EQ(run(references()).output, "shop.customer <- " + hostile + ", shop.orders\n");
  const std::string all = run(references({"--all", "--database", "shop"})).output;
  EXPECT_THAT(all, HasSubstr("shop.customer <- shop.orders  first (c) -> (id) on update RESTRICT on delete CASCADE\n"
                             "shop.customer <- shop.orders  second (d) -> (code) "));
  const Json map = runJson(references());
  ASSERT_EQ(map["parents"].size(), 1U);
  EXPECT_EQ(map["parents"][0]["children"][0], Json({{"database", kHostileDatabase}, {"table", kHostileTable}}));
  EXPECT_EQ(map.contains("keys"), false);
  const Json keys = Json::parse(run(references({"--all", "--as", "json"})).output);
  ASSERT_EQ(keys["keys"].size(), 3U);
  EXPECT_EQ(keys.contains("parents"), false);
  EXPECT_EQ(keys["keys"][0]["name"], "k\"\\\\");
  EXPECT_EQ(keys["keys"][1]["columns"], Json({"c"}));
  EXPECT_TRUE(refusedUsage(run(references({"--as", "dot", "--format", "json"})), "contradict each other"));
  EXPECT_EQ(run(references({"--database", "mysql"})).output, "");
}

TEST_F(MetadataTest, GraphvizReadsTheGraphWhateverNamesHold) {
  for (const bool all : {false, true}) {
    const std::string graph = run(references(all ? std::vector<std::string>{"--all", "--as", "dot"}
                                                 : std::vector<std::string>{"--as", "dot"}))
                                  .output;
    const ProgramResult drawn = runProgram({"dot", "-Tsvg"}, {.input = graph});
    EXPECT_EQ(drawn.exitStatus, 0) << graph;
    EXPECT_EQ(drawn.errors, "") << graph;
    EXPECT_THAT(drawn.output, HasSubstr(">shop</text>"));
    // As tables for people show it: control characters and backslashes escaped.
    EXPECT_THAT(drawn.output, HasSubstr("&quot;`\\\\;\xc3\xbc</text>"));
    EXPECT_THAT(drawn.output, HasSubstr("`\\\\\\\\n; &#45;&#45;\\n&amp;amp;&lt;b&gt;\xe6\xbc\xa2</text>"));
    EXPECT_EQ(drawn.output.find("second: (d) &#45;&gt; (code)") != std::string::npos, all);
  }
}

class RecordedMetadataTest : public ReplicaPairTest {
 protected:
  void SetUp() override {
    ReplicaPairTest::SetUp();
    primary().execute("create or replace database shop; create table shop.t (a int); create table shop.u (a int)");
    awaitReplica();
    ASSERT_EQ(run({"databases", "add", "db", "shop"}).exitStatus, 0);
  }
  void TearDown() override {
    EXPECT_TRUE(waitUntil(runs));
    EXPECT_EQ(counter(), "0");
    primary().execute("drop database shop");
  }
  /// Runs a backup that meets `act` while the tables are recorded.
  ProgramResult backupThrough(const Act& act, const std::string& name = "db",
                              const std::string& statement = "`shop`.`u`") {
    return runGated(name, name == "db" ? replica() : primary(), statement, {"--access", "library", "backup", name},
                    [&](pid_t pid) {
                      EXPECT_EQ(runs(), name != "db") << "the replica is held meanwhile";
                      return act(pid);
                    });
  }
  Json onlyJob() const { return runJson({"job", "show", "1"}); }
};

TEST_F(RecordedMetadataTest, IsShownFromTheIndexWithoutTheServer) {
  const Json printed = runJson({"--access", "library", "backup", "db"});
  EXPECT_EQ(printed["metadata"],
            Json({{"recorded", true}, {"databases", 1}, {"tables", 2}, {"failed", Json::array()}}));
  Json live = runJson({"--access", "library", "metadata", "db", "--database", "shop"});
  const std::string records =
      run({"--access", "library", "metadata", "db", "--database", "shop", "--records", "-"}).output;
  ASSERT_EQ(run({"instance", "set", "db", "--socket", directory_ / "none.sock"}).exitStatus, 0);
  Json kept = runJson({"metadata", "db", "--job", "1"});
  EXPECT_EQ(kept["job"], 1);
  kept["job"] = nullptr;
  EXPECT_EQ(kept, live);
  EXPECT_EQ(run({"metadata", "db", "--job", "1", "--records", "-"}).output, records);
  EXPECT_THAT(run({"metadata", "db", "--job", "1"}).output, HasSubstr("shop      InnoDB          2       InnoDB 2"));
  EXPECT_TRUE(
      failedWith(run({"metadata", "db", "--job", "1", "--database", "mysql"}), "no metadata of the database mysql"));
  EXPECT_TRUE(failedWith(run({"metadata", "primary", "--job", "1"}), "the job 1 is not one of primary"));
}

/// Tables in front of shop.u, enough that the index gets the database in more than one portion.
void addPortion(const MariaDbSandbox& server) {
  std::string columns;
  for (int i = 0; i < 54; ++i) {
    columns += (i == 0 ? "c" : ", c") + std::to_string(i) + " int comment '" + std::string(1000, 'x') + "'";
  }
  std::string statements = "create table shop.a (" + columns + ") engine=MyISAM;";
  for (int i = 0; i < 80; ++i) statements += "create table shop.a" + std::to_string(i) + " like shop.a;";
  server.execute(statements);
}

TEST_F(RecordedMetadataTest, OfABackupThatWasKilledIsNotTakenForWholeAndGoesWithTheNextOne) {
  addPortion(primary());
  ASSERT_EQ(run({"databases", "add", "primary", "shop"}).exitStatus, 0);
  // The order of the tables is the server's.
  const std::string tables =
      primary().execute("select table_name from information_schema.tables where table_schema = 'shop'");
  const std::size_t last = tables.find_last_of('\n', tables.find_last_not_of('\n')) + 1;
  const ProgramResult result = backupThrough(
      sending(SIGKILL), "primary", "`shop`.`" + tables.substr(last, tables.find_last_not_of('\n') + 1 - last) + "`");
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_TRUE(failedWith(run({"metadata", "primary", "--job", "1"}), "in the middle of the database shop"));
  EXPECT_TRUE(failedWith(run({"metadata", "primary", "--job", "1", "--database", "shop"}), "in the middle of it"));
  ASSERT_EQ(run({"--access", "library", "backup", "primary"}).exitStatus, 0);
  EXPECT_TRUE(failedWith(run({"metadata", "primary", "--job", "1"}), "its backup recorded none"));
  EXPECT_EQ(runJson({"metadata", "primary", "--job", "2"})["totals"]["tables"], 83);
}

TEST_F(RecordedMetadataTest, ThatFailsIsACauseAndTheBackupGoesOn) {
  addPortion(primary());
  awaitReplica();
  const ProgramResult result = backupThrough([](pid_t) {
    replica().execute("set sql_log_bin = 0; drop table shop.u");
    return StatementGate::Then::handOn;
  });
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_THAT(result.errors, HasSubstr("not recorded in the index: shop"));
  const Json job = onlyJob();
  EXPECT_EQ(job["state"], "completed with errors");
  EXPECT_EQ(job["causes"][0]["code"], "0x570000f5");
  EXPECT_THAT(job["causes"][0]["text"].get<std::string>(), HasSubstr("1146"));
  EXPECT_TRUE(failedWith(run({"metadata", "db", "--job", "1"}), "its backup recorded none")) << "no half of a database";
  replica().execute("set sql_log_bin = 0; create table shop.u (a int)");
}

TEST_F(RecordedMetadataTest, ABrokenConnectionIsACauseToo) {
  const ProgramResult result = backupThrough(breaking());
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_EQ(onlyJob()["state"], "completed with errors");
}

TEST_F(RecordedMetadataTest, EndsBetweenTwoTablesWhenAsked) {
  const ProgramResult result = backupThrough(sending(SIGTERM));
  EXPECT_EQ(result.signal, SIGTERM);
  EXPECT_EQ(onlyJob()["state"], "failed");
  EXPECT_THAT(onlyJob()["causes"][0]["text"].get<std::string>(), HasSubstr("'record the metadata'"));
}

TEST_F(RecordedMetadataTest, IsLeftOutAndToldInCommandMode) {
  const ProgramResult result = run({"--access", "command", "backup", "primary"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.errors, HasSubstr("not recorded in the index: command mode"));
  EXPECT_EQ(onlyJob()["state"], "succeeded");
  EXPECT_TRUE(failedWith(run({"metadata", "primary", "--job", "1"}), "its backup recorded none"));
}

}  // namespace
}  // namespace orrery::test
