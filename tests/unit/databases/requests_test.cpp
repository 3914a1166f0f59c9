// What is said to the server about databases, and to the log.

#include "access/library_fixture.h"
#include "support/program.h"
#include "support/temporary_directory.h"

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

  /// Level and text of the lines under a tag.
  Texts levelled(const std::string& tag) {
    Texts lines;
    for (const auto& line : backend_.log().entries()) {
      if (line.tag == tag) lines.push_back(std::to_string(line.level) + ":" + line.text);
    }
    return lines;
  }

  std::string text_;
  bool flag_ = false;
  unsigned long long size_ = 7;
};

TEST_F(DatabaseRequests, OfCommandModeCarryEveryNameAsData) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  std::string name = "a_b\nc";
  flag_ = true;
  EXPECT_EQ(session.CheckDBPresence(name, flag_), -1);
  EXPECT_TRUE(flag_) << "a failure is no answer";
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
                   "SHOW DATABASES WHERE CAST(`Database` AS BINARY) LIKE _utf8 X'697427735C' ESCAPE '|'",
                   "SELECT * from (SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE "
                   "`TABLE_SCHEMA`=_utf8 X'697427735C') AS innertable WHERE innertable.ENGINE <> 'InnoDB' "}));
}

TEST_F(DatabaseRequests, OfCommandModeReadTheirClientsAnswers) {
  orrery::test::TemporaryDirectory bin;
  GetMySqlInfo session;
  auto properties = this->properties();
  properties[orrery::platform::property::binaryPath] = bin.path();
  ASSERT_EQ(session.Init(static_cast<long>(backend_.addInstance("played", properties))), 0);
  const auto answer = [&](const std::string& sum, const std::string& other) {
    orrery::test::writeFile(bin / "mysql", "#!/bin/sh\ncase \"$*\" in *SUM*) " + sum + ";; *) " + other + ";; esac\n",
                            0755);
  };
  const auto last = [&](const char* request) {
    return under(std::string(" <<FALLBACK>> GetMySqlInfo::") + request).back();
  };
  const struct {
    const char *row, *created;
    unsigned long long size;
  } table[] = {{"42\\t2026-02-03\\n", "2026-02-03", 42},
               {"42\\t2026\\n-02\\n", "2026-02", 42},  // every line feed goes
               {"\\t2026-02-03\\n", "2026-02-03", 0},  // an empty size is none, not the year
               {"NULL\\tNULL\\n", "NULL", 0},
               {"42\\n", "before", 42}};
  for (const auto& row : table) {
    answer(std::string("printf '") + row.row + "'", "echo t");
    text_ = "before";
    EXPECT_EQ(session.getDBProps("d", text_, size_), 0);
    EXPECT_EQ(text_, row.created) << row.row;
    EXPECT_EQ(size_, row.size) << row.row;
  }
  answer("exit 1", "echo t");
  EXPECT_EQ(session.getDBProps("d", text_, size_), -1);
  EXPECT_EQ(last("getDBProps"), "GetMySqlInfo::getDBProps() failed...");
  std::list<std::string> names{"information_schema"};
  answer(":", "printf 'b\\ninformation_schema\\nperformance_schema\\n'");
  EXPECT_EQ(session.FetchDBList(names), 0);
  answer(":", "exit 1");
  EXPECT_EQ(session.FetchDBList(names), -1);
  EXPECT_THAT(names, testing::ElementsAre("information_schema", "/b")) << "what the caller has is the caller's";
  EXPECT_EQ(last("FetchDBList"), "failed...");
  std::string name = "d";
  EXPECT_EQ(session.CheckDBPresence(name, flag_), -1);
  EXPECT_EQ(last("CheckDBPresence"), "failed...");
  EXPECT_EQ(session.isUsesInnoDBEngine("d", flag_), -1);
  EXPECT_EQ(last("isUsesInnoDBEngine"), "failed");
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
  library_.give("SHOW DATABASES WHERE CAST(`Database` AS BINARY) LIKE _utf8 X'697427735C617C5F62' ESCAPE '|'", 1, {});
  library_.give(R"(select TABLE_NAME from INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE 'it''s')", 1, {"t"});
  library_.give(
      "SELECT SUM(data_length+index_length),min(create_time) FROM INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE "
      "'it''s'",
      2, {"42", "2026-02-03"});
  constexpr const char* engines =
      "SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE `TABLE_SCHEMA`='it''s' AND "
      "`TABLE_TYPE`!='VIEW' AND `ENGINE` NOT IN ('InnoDB','MEMORY') LIMIT 1";
  library_.give(engines, 1, {"Aria"}, 1);
  library_.give(engines, 1, {});
  backend_.log().clear();
  EXPECT_EQ(session_.CheckDBPresence("a_b\n", flag_), 0);
  EXPECT_TRUE(flag_) << "\"_\" matches any character";
  EXPECT_EQ(session_.CheckDBPresence("it's\\a\\_b", flag_), 0);
  EXPECT_FALSE(flag_);
  EXPECT_EQ(under("GetMySqlInfoExt::CheckDBPresence"),
            (Texts{"Database Found...[ a_b ] ", "Database Not Found...[ it's\\a\\_b ] "}));
  EXPECT_EQ(session_.getDBProps("it's", text_, size_), 0);
  EXPECT_EQ(text_ + " " + std::to_string(size_), "2026-02-03 42");
  EXPECT_EQ(under("GetMySqlInfoExt::getDBProps"), Texts{"Got DB [ it's ] creation time : 2026-02-03 "});
  flag_ = true;
  EXPECT_EQ(session_.isUsesInnoDBEngine("it's", flag_), 0);
  EXPECT_FALSE(flag_);
  EXPECT_EQ(session_.isUsesInnoDBEngine("it's", flag_), 0);
  EXPECT_TRUE(flag_);
  for (const char* text :
       {"[ MySqlInterface::CheckDBExistence ] Database << it's\\a\\_b >> Not found on the Server",
        "[ MySqlInterface::CheckDBExistence ] Found Database << a_b >> On the Server",
        " Database [ it's ] has InnoDB tables.", " Database [ it's ] has non-InnoDB tables as well."}) {
    EXPECT_THAT(backend_.log().texts(), testing::Contains(text));
  }
}

TEST_F(DatabaseRequests, OfLibraryModeListAsTheServerDoes) {
  library_.give("SHOW DATABASES", 1, {"b", "performance_schema", "mysql", "information_schema", "sys", "innodb", "a"});
  std::list<std::string> names{"/before"};
  ASSERT_EQ(session_.Init(id()), 0);
  backend_.log().clear();
  ASSERT_EQ(session_.FetchDBList(names), 0);
  EXPECT_THAT(names, testing::ElementsAre("/before", "/b", "/mysql", "/sys", "/innodb", "/a"));
  EXPECT_THAT(levelled("GetMySqlInfoExt::FetchDBList"),
              testing::ElementsAre("6:db:b", "6:db:performance_schema", "6:db:mysql", "6:db:information_schema",
                                   "6:db:sys", "6:db:innodb", "6:db:a", "0:Removed perf and inf schemas...",
                                   "0:Fetching Database List Succeeded"));

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
  flag_ = true;
  const auto askAll = [&](GetMySqlInfoExt& session) {
    EXPECT_EQ(session.FetchDBList(names), -1);
    EXPECT_EQ(session.CheckDBPresence("d", flag_), -1);
    EXPECT_TRUE(flag_) << "a failure is no answer";
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
