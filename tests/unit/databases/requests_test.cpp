// What is said to the server about databases, and to the log.

#include "access/library_fixture.h"

namespace {

using orrery::test::LibraryModeTest;
using Texts = std::vector<std::string>;

class DatabaseRequests : public LibraryModeTest {
 protected:
  /// The statements that command mode would run; its clients do not exist here.
  Texts statements() {
    Texts texts;
    for (const std::string& text : backend_.log().texts()) {
      if (text.rfind("running [", 0) == 0) texts.push_back(text.substr(9, text.size() - 10));
    }
    backend_.log().clear();
    return texts;
  }

  std::string text_;
  bool flag_ = false;
  unsigned long long size_ = 7;
};

TEST_F(DatabaseRequests, OfCommandModeCarryEveryNameAsData) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  std::string name = "a_b\nc";
  EXPECT_EQ(session.CheckDBPresence(name, flag_), -1);
  EXPECT_EQ(name, "a\\_bc") << "the caller's name is the pattern afterwards";
  EXPECT_EQ(session.getDBProps("sh%p", text_, size_), 0) << "kept: a list that fails counts as an empty one";
  EXPECT_EQ(text_ + std::to_string(size_), "00");
  flag_ = true;
  EXPECT_EQ(session.isUsesInnoDBEngine("a_b", flag_), -1);
  EXPECT_FALSE(flag_);
  name = "it's\\";
  EXPECT_EQ(session.CheckDBPresence(name, flag_), -1);
  EXPECT_EQ(session.isUsesInnoDBEngine("it's\\", flag_), -1);
  EXPECT_EQ(statements(),
            (Texts{R"(SHOW DATABASES LIKE 'a\_bc')",
                   R"(select TABLE_NAME from INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE 'sh\%p')",
                   "SELECT * from (SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE `TABLE_SCHEMA`='a_b') AS "
                   "innertable WHERE innertable.ENGINE <> 'InnoDB' ",
                   R"(SHOW DATABASES LIKE 'it''s\\\\')",
                   "SELECT * from (SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE "
                   R"(`TABLE_SCHEMA`='it''s\\') AS innertable WHERE innertable.ENGINE <> 'InnoDB' )"}));
}

TEST_F(DatabaseRequests, OfCommandModeRefuseWhatAClientCannotCarry) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  for (const std::string& name : {std::string("a\"b"), std::string("a\0b", 3), std::string("a\rb")}) {
    std::string edited = name;
    EXPECT_EQ(session.CheckDBPresence(edited, flag_), -1);
    EXPECT_EQ(session.getDBProps(name, text_, size_), -1);
    EXPECT_EQ(session.isUsesInnoDBEngine(name, flag_), -1);
  }
  EXPECT_EQ(session.getDBProps("a\nb", text_, size_), -1);
  EXPECT_EQ(session.strErrorString, "the database name holds a line break");
  EXPECT_EQ(statements(), Texts{});
}

TEST_F(DatabaseRequests, OfLibraryModeTakeTheNameAsAPattern) {
  ASSERT_EQ(session_.Init(id()), 0);
  library_.give("SHOW DATABASES LIKE 'a_b'", 1, {"axb"});
  library_.give(R"(SHOW DATABASES LIKE 'it''s \\\\ a\_b')", 1, {});
  library_.give(R"(select TABLE_NAME from INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE 'it''s')", 1, {"t"});
  library_.give(
      "SELECT SUM(data_length+index_length),min(create_time) FROM INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE "
      "'it''s'",
      2, {"42", "2026-02-03"});
  library_.give(
      "SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE `TABLE_SCHEMA`='it''s' AND "
      "`TABLE_TYPE`!='VIEW' AND `ENGINE` NOT IN ('InnoDB','MEMORY') LIMIT 1",
      1, {"Aria"});
  backend_.log().clear();
  EXPECT_EQ(session_.CheckDBPresence("a_b\n", flag_), 0);
  EXPECT_TRUE(flag_) << "\"_\" matches any character";
  EXPECT_EQ(session_.CheckDBPresence("it's \\ a\\_b", flag_), 0);
  EXPECT_FALSE(flag_);
  EXPECT_EQ(under("GetMySqlInfoExt::CheckDBPresence"),
            (Texts{"Database Found...[ a_b ] ", "Database Not Found...[ it's \\ a\\_b ] "}));
  EXPECT_EQ(session_.getDBProps("it's", text_, size_), 0);
  EXPECT_EQ(text_ + " " + std::to_string(size_), "2026-02-03 42");
  EXPECT_EQ(under("GetMySqlInfoExt::getDBProps"), Texts{"Got DB [ it's ] creation time : 2026-02-03 "});
  flag_ = true;
  EXPECT_EQ(session_.isUsesInnoDBEngine("it's", flag_), 0);
  EXPECT_FALSE(flag_);
}

TEST_F(DatabaseRequests, OfLibraryModeListAsTheServerDoes) {
  library_.give("SHOW DATABASES", 1, {"b", "performance_schema", "mysql", "information_schema", "sys", "innodb", "a"});
  std::list<std::string> names{"/before"};
  ASSERT_EQ(session_.Init(id()), 0);
  backend_.log().clear();
  ASSERT_EQ(session_.FetchDBList(names), 0);
  EXPECT_THAT(names, testing::ElementsAre("/before", "/b", "/mysql", "/sys", "/innodb", "/a"));
  EXPECT_THAT(
      under("GetMySqlInfoExt::FetchDBList"),
      testing::ElementsAre("db:b", "db:performance_schema", "db:mysql", "db:information_schema", "db:sys", "db:innodb",
                           "db:a", "Removed perf and inf schemas...", "Fetching Database List Succeeded"));

  names.clear();
  backend_.log().clear();
  GetMySqlInfoExt cloud;
  ASSERT_EQ(cloud.Init(addCloud("10.0.0.1:3306")), 0) << cloud.strErrorString;
  ASSERT_EQ(cloud.FetchDBList(names), 0);
  EXPECT_THAT(names, testing::ElementsAre("/b", "/a")) << "kept: a provider's own schemas are left out here alone";
  EXPECT_TRUE(logged("Removed mysql database"));
}

TEST_F(DatabaseRequests, OfLibraryModeTellTheirFailures) {
  std::list<std::string> names{"before"};
  const auto askAll = [&](GetMySqlInfoExt& session) {
    EXPECT_EQ(session.FetchDBList(names), -1);
    EXPECT_EQ(session.CheckDBPresence("d", flag_), -1);
    EXPECT_EQ(session.getDBProps("d", text_, size_), -1);
    EXPECT_EQ(session.isUsesInnoDBEngine("d", flag_), -1);
    Texts texts;
    for (const char* name : {"FetchDBList", "CheckDBPresence", "getDBProps", "isUsesInnoDBEngine"}) {
      for (std::string& text : under(std::string("GetMySqlInfoExt::") + name)) texts.push_back(std::move(text));
    }
    backend_.log().clear();
    return texts;
  };
  const std::string without = "m_Conn not initialized.";
  GetMySqlInfoExt unconnected;
  EXPECT_EQ(askAll(unconnected), (Texts{without, "m_Conn not initialized", without,
                                        "object not initialized before calling this function."}));
  unconnected.bInitialized = true;
  EXPECT_EQ(askAll(unconnected), (Texts{without, "m_Conn not initialized", without, without}));
  unconnected.bInitialized = false;

  ASSERT_EQ(session_.Init(id()), 0);
  library_->connect_error = 2002;
  const std::string failed = "GetDBProperties Failed...";
  EXPECT_EQ(askAll(session_),
            (Texts{"FetchDBList failed [2002:refused Failed to execute mysql_real_connect ]",
                   "Checking DB Presence Failed...Probably connection to Server not present or Querying Server failed",
                   failed, failed}))
      << "kept: the engines' failure has the words of the properties";
  EXPECT_EQ(failure(), "2002 refused Failed to execute mysql_real_connect ");
  EXPECT_THAT(names, testing::ElementsAre("before"));
}

}  // namespace
