// Databases of a real server in both modes. Where the modes differ on purpose, the test says so.

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "integration/real_session.h"

namespace {

using orrery::test::Mode;
using Names = std::list<std::string>;

std::string inBackTicks(const std::string& name) {
  return "`" + name + "`";
}

/// Names of every kind that the server takes. Line breaks and double quotes stand in no client's command line.
const Names kinds = {"plain",
                     "with blank",
                     "two  blanks",
                     "it's",
                     "'quoted'",
                     "per%cent",
                     "under_score",
                     "dot.ted",
                     "hy-phen",
                     "caf\xc3\xa9",
                     "\xe6\xbc\xa2\xe5\xad\x97",
                     "back\\slash",
                     "back\\\\slashes",
                     "back\\_slash",
                     "back\\'quote",
                     "back\\nslash",
                     "last\\",
                     "tab\tbed",
                     "semi;colon",
                     "-- dash",
                     std::string(64, 'x')};

Names withBackslashes() {
  Names names = kinds;
  names.remove_if([](const std::string& name) { return name.find('\\') == std::string::npos; });
  return names;
}

class Databases : public orrery::test::ServerSuite<Databases>, public testing::WithParamInterface<Mode> {
 public:
  static orrery::test::MariaDbSandbox::Options options() { return {.tcp = true}; }

 protected:
  ~Databases() override {
    for (const std::string& name : made_) server_->execute("DROP DATABASE " + inBackTicks(name));
  }

  static bool byLibrary() { return GetParam() == Mode::library; }
  std::unique_ptr<GetMySqlInfo> open() { return sessionFor(GetParam(), propertiesOf(*server_)); }
  /// "DB." in the statements stands for the database: a client's own USE reads backslashes in its name.
  void make(const std::string& name, std::string statements = {}) {
    for (std::size_t at = 0; (at = statements.find("DB.", at)) != std::string::npos;) {
      statements.replace(at, 2, inBackTicks(name));
      at += name.size();
    }
    server_->execute("CREATE DATABASE " + inBackTicks(name) + ";\n" + statements);
    made_.push_back(name);
  }
  Names list(GetMySqlInfo& session) {
    Names names;
    EXPECT_EQ(session.FetchDBList(names), 0) << session.strErrorString;
    return names;
  }
  /// As the mode's own class has it: library mode's does not override the other.
  int presence(GetMySqlInfo& session, std::string name, bool& present) {
    if (auto* library = dynamic_cast<GetMySqlInfoExt*>(&session)) return library->CheckDBPresence(name, present);
    return session.CheckDBPresence(name, present);
  }
  bool isPresent(const std::string& name) {
    bool present = false;
    EXPECT_EQ(presence(*session_, name, present), 0) << name << ": " << session_->strErrorString;
    return present;
  }
  bool isInnoDbOnly(const std::string& name) {
    bool answer = false;
    EXPECT_EQ(session_->isUsesInnoDBEngine(name, answer), 0) << name << ": " << session_->strErrorString;
    return answer;
  }

  /// Databases with a MyISAM table of two rows, under the server's present sql_mode.
  void expectFoundAndMeasured(const Names& names) {
    for (const std::string& name : names) {
      // Kept: library mode takes the name for a pattern, where "\_" is no backslash.
      const bool isReadAsWritten = !byLibrary() || name != "back\\_slash";
      EXPECT_EQ(isPresent(name), isReadAsWritten) << name;
      EXPECT_EQ(isPresent(name + "\n"), isReadAsWritten) << "one line feed at the end does not count";
      EXPECT_EQ(isPresent(name + "\n\n"), isReadAsWritten && !byLibrary()) << "kept: only command mode drops them all";
      EXPECT_FALSE(isPresent(name + "!")) << name;
      EXPECT_FALSE(isInnoDbOnly(name)) << name;
      std::string created;
      unsigned long long size = 0;
      EXPECT_EQ(session_->getDBProps(name, created, size), 0) << name << ": " << session_->strErrorString;
      EXPECT_EQ(size, isReadAsWritten ? 2U * 7 + 1024 : 0) << name << ": rows and the index file's head";
      EXPECT_EQ(created.rfind("20", 0), isReadAsWritten ? 0 : std::string::npos) << name << ": " << created;
    }
  }

  std::unique_ptr<GetMySqlInfo> session_ = open();

 private:
  Names made_;
};

INSTANTIATE_TEST_SUITE_P(Access, Databases, orrery::test::bothModes(), orrery::test::nameOfMode);

TEST_P(Databases, OfEveryKindOfNameAreListedFoundAndMeasured) {
  Names expected{"/mysql", "/sys"};
  for (const std::string& name : kinds) {
    make(name, "CREATE TABLE DB.t (a INT) ENGINE=MyISAM; INSERT INTO DB.t VALUES (1),(2)");
    expected.push_back("/" + name);
  }
  EXPECT_THAT(list(*session_), testing::UnorderedElementsAreArray(expected));
  expectFoundAndMeasured(kinds);
  server_->execute("SET GLOBAL sql_mode='NO_BACKSLASH_ESCAPES'");
  session_ = open();
  expectFoundAndMeasured(withBackslashes());
  server_->execute("SET GLOBAL sql_mode=DEFAULT");
}

TEST_P(Databases, WithLineBreaksAndDoubleQuotesAreListedAlike) {
  make("line\nbreak");
  make("double\"quote");
  EXPECT_THAT(list(*session_), testing::UnorderedElementsAre("/mysql", "/sys", "/line\nbreak", "/double\"quote"));
  bool present = false;
  EXPECT_EQ(presence(*session_, "double\"quote", present), byLibrary() ? 0 : -1);
  EXPECT_EQ(present, byLibrary());
  if (!byLibrary()) {
    EXPECT_EQ(session_->strErrorString,
              "the database name holds a double quote, which a client's command line cannot carry");
  }
  std::string created;
  unsigned long long size = 0;
  EXPECT_EQ(session_->getDBProps("line\nbreak", created, size), byLibrary() ? 0 : -1);
}

// Library mode asks for the pattern as it was given; command mode escapes the name first.
TEST_P(Databases, APatternMatchesOverTheConnectionAlone) {
  make("axb");
  EXPECT_EQ(isPresent("a_b"), byLibrary());
  EXPECT_EQ(isPresent("a%"), byLibrary());
  EXPECT_FALSE(isPresent("a\\_b"));
  for (const char* name : {"", "\n"}) EXPECT_TRUE(isPresent(name)) << "kept: the server answers with all databases";
  make("a_b");
  EXPECT_TRUE(isPresent("a_b"));
  if (byLibrary()) {
    EXPECT_TRUE(isPresent("a\\_b")) << "escaped by the caller, as SpecialCharactersCheck does";
  }
}

// Kept: the size of a name with "_" is that of all databases that it matches.
TEST_P(Databases, SizesOfAPatternsMatchesAreSummedOverTheConnectionAlone) {
  make("axb", "CREATE TABLE DB.t (a INT) ENGINE=MyISAM; INSERT INTO DB.t VALUES (1),(2)");
  make("a_b", "CREATE TABLE DB.t (a INT) ENGINE=MyISAM; INSERT INTO DB.t VALUES (1)");
  std::string created;
  unsigned long long size = 0;
  EXPECT_EQ(session_->getDBProps("a_b", created, size), 0) << session_->strErrorString;
  EXPECT_EQ(size, 1024U + 7 + (byLibrary() ? 1024 + 2 * 7 : 0));
}

TEST_P(Databases, EnginesAndSizesTellWhatIsInThem) {
  const struct {
    const char* name;
    const char* statements;
    bool inCommandMode, inLibraryMode;  // only InnoDB
    bool hasSize;
    const char* created;  // null: a time
  } table[] = {
      {"empty", "", true, true, false, "0"},
      {"innodb only", "CREATE TABLE DB.t (a INT) ENGINE=InnoDB", true, true, true, nullptr},
      {"views only", "CREATE VIEW DB.v AS SELECT 1", true, true, false, "NULL"},
      // Kept: a table in memory is none that a file backup could tear; command mode does not know that.
      {"memory", "CREATE TABLE DB.t (a INT) ENGINE=MEMORY", false, true, false, nullptr},
      {"myisam", "CREATE TABLE DB.t (a INT) ENGINE=InnoDB; CREATE TABLE DB.u (a INT) ENGINE=MyISAM", false, false, true,
       nullptr},
      {"aria", "CREATE TABLE DB.t (a INT) ENGINE=Aria", false, false, true, nullptr},
  };
  for (const auto& row : table) {
    make(row.name, row.statements);
    EXPECT_EQ(isInnoDbOnly(row.name), byLibrary() ? row.inLibraryMode : row.inCommandMode) << row.name;
    std::string created;
    unsigned long long size = 77;
    EXPECT_EQ(session_->getDBProps(row.name, created, size), 0);
    EXPECT_EQ(size != 0, row.hasSize) << row.name << " " << size;
    if (row.created != nullptr) {
      EXPECT_EQ(created, row.created) << row.name;
    } else {
      EXPECT_EQ(created + "\n",
                server_->execute("SELECT MIN(create_time) FROM information_schema.tables WHERE table_schema='" +
                                 std::string(row.name) + "'"));
    }
  }
  EXPECT_TRUE(isInnoDbOnly("no such database"));
}

// Kept: a provider's own schemas are left out over the connection alone.
TEST_P(Databases, OfACloudDatabaseDifferByMode) {
  make("innodb");
  namespace property = orrery::platform::property;
  orrery::platform::Id client = 0;
  ASSERT_TRUE(
      backend_.services()->inventory->putClient(byLibrary() ? "cloud library" : "cloud command", 1, client).ok());
  backend_.setProxyDirectory(client, property::applicationTypeMySql, "", "/usr/bin");
  auto properties = propertiesOf(*server_);
  properties[property::socketFile] = "127.0.0.1:" + std::to_string(server_->port());
  const long instance = static_cast<long>(backend_.addInstance(client, "cloud", properties));
  std::unique_ptr<GetMySqlInfo> cloud;
  if (byLibrary()) {
    cloud = std::make_unique<GetMySqlInfoExt>();
  } else {
    cloud = std::make_unique<GetMySqlInfo>();
  }
  ASSERT_EQ(cloud->Init(instance), 0) << cloud->strErrorString;
  EXPECT_THAT(list(*session_), testing::UnorderedElementsAre("/mysql", "/sys", "/innodb"));
  if (byLibrary()) {
    EXPECT_THAT(list(*cloud), testing::IsEmpty());
  } else {
    EXPECT_THAT(list(*cloud), testing::UnorderedElementsAre("/mysql", "/sys", "/innodb"));
  }
}

TEST_P(Databases, LieInTheFoldersThatTheEncodingNames) {
  // Where the server has no shorter code of its own.
  for (const char* name : {"my-db", "a.b", "with blank", "$@#", "back\\", "it's", "`%+:,~", "tab\tbed", "a\xcc\x81",
                           "\xc2\xbd\xe2\x82\xac", "\xd7\xa9", "\xe0\xb8\x81", "\xe6\xbc\xa2\xe5\xad\x97",
                           "\xed\x95\x9c", "1234", "A_b9"}) {
    std::string quoted = name;
    if (const std::size_t tick = quoted.find('`'); tick != std::string::npos) quoted.insert(tick, "`");
    server_->execute("CREATE DATABASE " + inBackTicks(quoted));
    const std::string folder = server_->dataDirectory() + "/" + session_->getMySqlHexName(name);
    EXPECT_EQ(access(folder.c_str(), F_OK), 0) << name << ": " << folder;
    server_->execute("DROP DATABASE " + inBackTicks(quoted));
  }
}

}  // namespace
