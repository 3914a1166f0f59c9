// orrery-mysql databases, instance subclient, paths and encode-name on a real server and a real store.

#include <filesystem>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using testing::Contains;
using testing::HasSubstr;

class DatabasesTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
    server().execute("create database if not exists shop; create or replace table shop.t (a int) engine=MyISAM");
  }
  Json content(const std::string& subclient) const {
    return runJson({"databases", "content", "db", "--subclient", subclient})["databases"];
  }
};

TEST_F(DatabasesTest, AreListedAndShownAlikeInBothModes) {
  const std::string created = server().execute(
      "create database if not exists `it's\\%_.-\xc3\xbc`; select create_time from information_schema.tables where "
      "table_schema = 'shop'");
  for (const char* access : {"command", "library"}) {
    SCOPED_TRACE(access);
    const Json listed = runJson({"--access", access, "databases", "list", "db"});
    EXPECT_THAT(listed["databases"], Contains("shop"));
    EXPECT_THAT(listed["databases"], Contains("it's\\%_.-\xc3\xbc"));
    const Json shown =
        runJson({"--access", access, "databases", "show", "db", "shop", "it's\\%_.-\xc3\xbc"})["databases"];
    ASSERT_EQ(shown.size(), 2U);
    EXPECT_TRUE(has(shown[0], {{"created", created.substr(0, created.size() - 1)}, {"innodb_only", false}}));
    const char* const fileName = "it@0027s@005c@0025_@002e@002d@00fc";
    EXPECT_TRUE(has(shown[1], {{"size", 0}, {"created", nullptr}, {"file_name", fileName}}));
    EXPECT_TRUE(failedWith(run({"--access", access, "databases", "show", "db", "sho_"}), "there is no database sho_"));
  }
}

TEST_F(DatabasesTest, ThePlanTellsAndChangesNothing) {
  ASSERT_EQ(run({"databases", "add", "db", "gone", "shop"}).exitStatus, 0);
  for (const char* access : {"command", "library"}) {
    SCOPED_TRACE(access);
    const ProgramResult noted = run({"--access", access, "databases", "plan", "db"});
    EXPECT_THAT(noted.errors, HasSubstr("--auto-discovery on"));
    Json plan = runJson({"--access", access, "databases", "plan", "db"});
    EXPECT_TRUE(has(plan, {{"valid", {"shop"}}, {"missing", {"gone"}}}));
    EXPECT_THAT(plan["unprotected"], Contains("mysql"));
    ASSERT_EQ(run({"instance", "set", "db", "--auto-discovery", "on"}).exitStatus, 0);
    plan = runJson({"--access", access, "databases", "plan", "db"});
    EXPECT_THAT(plan["new"], Contains("mysql"));
    EXPECT_THAT(plan["new"], testing::Not(Contains("shop")));
    EXPECT_EQ(plan["unprotected"], Json::array());
    ASSERT_EQ(run({"instance", "set", "db", "--auto-discovery", "off"}).exitStatus, 0);
  }
  EXPECT_EQ(content("default").size(), 2U);
}

TEST_F(DatabasesTest, ContentBelongsToSubclients) {
  ASSERT_EQ(run({"instance", "subclient", "add", "db", "night"}).exitStatus, 0);
  EXPECT_TRUE(failedWith(run({"instance", "subclient", "add", "db", "night"}), "night already"));
  ASSERT_EQ(run({"databases", "add", "db", "shop", "a/b"}).exitStatus, 0);
  const ProgramResult twice = run({"databases", "add", "db", "--subclient", "night", "shop"});
  EXPECT_THAT(twice.errors, HasSubstr("in the content of the subclient default as well"));
  EXPECT_EQ(content("night").size(), 1U);
  EXPECT_EQ(content("night")[0]["auto_discovered"], false);

  EXPECT_TRUE(failedWith(run({"databases", "remove", "db", "shop", "none"}), "none is not in the content"));
  EXPECT_EQ(content("default").size(), 2U) << "all or nothing";
  EXPECT_EQ(run({"databases", "remove", "db", "a/b"}).exitStatus, 0);
  EXPECT_EQ(content("default").size(), 1U);

  EXPECT_TRUE(failedWith(run({"instance", "subclient", "remove", "db", "default", "--yes"}), "cannot be removed"));
  EXPECT_EQ(run({"instance", "subclient", "remove", "db", "night", "--yes"}).exitStatus, 0);
  EXPECT_TRUE(failedWith(run({"databases", "content", "db", "--subclient", "night"}), "has no subclient night"));
}

TEST_F(DatabasesTest, PathsAreThoseOfTheMapAndThoseFoundBesideItInBothModesAndInTheManifest) {
  namespace fs = std::filesystem;
  const std::string far = server().directory() + "/a,b;c";
  fs::create_directory(far);
  server().execute("create or replace database moved; create table moved.t (a int) engine=MyISAM");
  server().execute("flush tables");
  fs::rename(server().dataDirectory() + "/moved", far + "/moved");
  fs::create_directory_symlink(far + "/moved", server().dataDirectory() + "/moved");
  const auto place = [](const char* kind, const std::string& path, const char* origin, const Json& note) {
    const std::string account = server().account();
    return Json{{"kind", kind},     {"path", path},     {"owner", account},
                {"group", account}, {"origin", origin}, {"note", note}};
  };
  const std::string data = server().dataDirectory() + "/";
  const Json known = place("data_directory", data, "map", nullptr);
  const Json linked = place("database", far + "/moved", "found", "moved");
  for (const char* access : {"command", "library"}) {
    SCOPED_TRACE(access);
    const Json found = runJson({"--access", access, "paths", "db"});
    EXPECT_EQ(found["data_directory"], data);
    const Json logs = place("innodb_log_group_home_dir", data, "map", nullptr);
    const Json expected = access == std::string("command") ? Json{known, linked} : Json{known, logs, linked};
    EXPECT_EQ(found["paths"], expected);
    EXPECT_EQ(runJson({"--access", access, "backup", "db"})["paths"], expected);
  }
  ASSERT_EQ(run({"databases", "add", "db", "moved"}).exitStatus, 0);
  const std::string printed = run({"--access", "library", "backup", "db"}).output;
  for (const char* const part :
       {"databases                  1: moved\n", "binary logs in ", "\nmanifest ", "replication "}) {
    EXPECT_THAT(printed, HasSubstr(part));
  }
  EXPECT_THAT(printed, HasSubstr("database                   " + far + "/moved, of " + server().account()));
  server().execute("drop table moved.t");
  fs::remove(server().dataDirectory() + "/moved");
  fs::remove_all(far);
}

TEST_F(DatabasesTest, NamesOfOtherFormsAreTakenAsTheyStand) {
  ASSERT_EQ(run({"databases", "add", "db", "[shop]", "[p,q]", "shop"}).exitStatus, 0);
  ASSERT_EQ(run({"databases", "add", "db", "--", "-x"}).exitStatus, 0);
  EXPECT_EQ(content("default").size(), 4U);
  ASSERT_EQ(run({"databases", "remove", "db", "[shop]"}).exitStatus, 0);
  const Json left = content("default");
  EXPECT_EQ(left[1]["name"], "[p,q]");
  EXPECT_EQ(left[2]["name"], "shop");
  EXPECT_EQ(runJson({"encode-name", "[a,b]"})["names"].size(), 1U);
  for (const std::string& name : {std::string(), std::string(65, 'x'), std::string("\xff")}) {
    EXPECT_TRUE(refusedUsage(run({"databases", "add", "db", name}), "name")) << name;
  }
  // Bytes that would steer a terminal.
  ASSERT_EQ(run({"databases", "add", "db", "a\xc2\x9b[31m\xe2\x80\xae\\"}).exitStatus, 0);
  EXPECT_THAT(run({"databases", "content", "db"}).output, HasSubstr(R"(a\xc2\x9b[31m\xe2\x80\xae\\ )"));
}

TEST_F(DatabasesTest, AreShownByTheirOwnNameAndInSpiteOfOneThatCannotBeAskedFor) {
  server().execute(
      "create database if not exists shxp; create or replace table shxp.t (a int); create database if not exists "
      "`sh_p`; create database if not exists `dq\"q`");
  for (const char* access : {"command", "library"}) {
    SCOPED_TRACE(access);
    EXPECT_EQ(runJson({"--access", access, "databases", "show", "db", "sh_p"})["databases"][0]["size"], 0);
    const Json all = runJson({"--access", access, "databases", "show", "db"})["databases"];
    EXPECT_GT(all.size(), 4U);
    const bool isAskedFor = access == std::string("library");
    for (const Json& one : all) {
      if (one["name"] == "dq\"q") {
        EXPECT_EQ(one["size"].is_null(), !isAskedFor);
      }
    }
  }
  EXPECT_TRUE(failedWith(run({"--access", "command", "databases", "show", "db", "dq\"q"}), "double quote"));
  server().execute("drop database shxp; drop database `sh_p`");
}

TEST_F(DatabasesTest, NamesAreEncodedWithoutAServerOrAHome) {
  std::filesystem::remove_all(home());
  const ProgramResult result = run({"encode-name", "my-db", "a.b", "--format", "json"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(Json::parse(result.output)["names"][0]["file_name"], "my@002ddb");
}

}  // namespace
}  // namespace orrery::test
