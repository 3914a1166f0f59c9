// orrery-mysql binlog against a real server, in both access modes.

#include "command_fixture.h"

namespace orrery::test {
namespace {

class BinlogTest : public ServerTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
    server().execute("reset master");
  }
  std::vector<std::string> binlog(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--access", GetParam(), "binlog"});
    return arguments;
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, BinlogTest, testing::Values("command", "library"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(BinlogTest, ShowsRotatesAndRemovesLogs) {
  EXPECT_EQ(runJson(binlog({"status", "db"})),
            Json({{"instance", "db"}, {"binary_logging", true}, {"directory", server().dataDirectory()}}));
  EXPECT_EQ(runJson(binlog({"flush", "db"})), Json({{"instance", "db"}, {"flushed", true}}));
  const Json list = runJson(binlog({"list", "db"}));
  EXPECT_TRUE(has(list, {{"logs", {"mysql-bin.000001", "mysql-bin.000002"}}, {"first", 1}, {"last", 2}}));
  EXPECT_EQ(run(binlog({"list", "db"})).output, "BINARY LOG\nmysql-bin.000001\nmysql-bin.000002\n");

  const Json current = runJson(binlog({"current", "db"}));
  EXPECT_EQ(current["file"], "mysql-bin.000002");
  const std::string row = server().execute("show master status");
  const std::string position = GetParam() == std::string("library") ? row.substr(17, row.find('\t', 17) - 17) : "null";
  EXPECT_EQ(current["position"].dump(), position) << "clients do not tell it";

  // Right after a rotation the server may keep the earlier log for a moment; the command tells what really went.
  Json removed = Json::array();
  EXPECT_TRUE(waitUntil([&] {
    removed = runJson(binlog({"purge", "db", "--before", "mysql-bin.000002", "--yes"}))["removed"];
    return !removed.empty();
  }));
  EXPECT_EQ(removed, Json({"mysql-bin.000001"}));
  EXPECT_EQ(runJson(binlog({"list", "db"}))["first"], 2);
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_P(BinlogTest, RemovesNothingUnasked) {
  runJson(binlog({"flush", "db"}));
  EXPECT_TRUE(refusedUsage(run(binlog({"purge", "db", "--before", "mysql-bin.000002"})), "--yes"));
  EXPECT_TRUE(refusedUsage(run(binlog({"purge", "db", "--yes"})), "--before is required"));
  EXPECT_TRUE(refusedUsage(run(binlog({"purge", "db", "--before=", "--yes"})), "--before"));
  EXPECT_TRUE(failedWith(run(binlog({"purge", "db", "--before", "mysql-bin.000009", "--yes"})), "[1373]"));
  EXPECT_TRUE(failedWith(run(binlog({"purge", "db", "--before", "a'b", "--yes"})), "quote"));
  EXPECT_EQ(runJson(binlog({"list", "db"}))["first"], 1);
}

using BinlogStandInTest = CommandTest;

TEST_F(BinlogStandInTest, AServerThatWritesNoneIsNoFailure) {
  addClients("printf 'log_bin\\tOFF\\n'\n");
  const auto off = [](Json more) {
    Json document = {{"instance", "db"}, {"binary_logging", false}};
    document.update(more);
    return document;
  };
  EXPECT_EQ(runJson({"binlog", "status", "db"}), off(Json({{"directory", nullptr}})));
  EXPECT_EQ(runJson({"binlog", "list", "db"}),
            off(Json({{"logs", Json::array()}, {"first", nullptr}, {"last", nullptr}})));
  EXPECT_EQ(runJson({"binlog", "current", "db"}), off(Json({{"file", nullptr}, {"position", nullptr}})));
  EXPECT_EQ(run({"binlog", "list", "db"}).errors, "orrery-mysql: note: binary logging is off on db\n");
}

TEST_F(BinlogStandInTest, AServerThatKnowsTheLaterStatementsOnly) {
  addClients(R"(while [ "$1" != -e ]; do shift; done
case "$2" in
  *log_bin\'*) printf 'log_bin\tON\n';;
  'SHOW BINARY LOGS') printf 'b.000007\t158\tNo\nb.000008\t158\tNo\n';;
  'SHOW BINARY LOG STATUS') printf 'b.000008\t158\t\t\t\n';;
  *) echo 'ERROR 1064 (42000) at line 1: You have an error in your SQL syntax' >&2; exit 1;;
esac
)");
  const Json list = runJson({"binlog", "list", "db"});
  EXPECT_EQ(list["logs"], Json({"b.000007", "b.000008"}));
  EXPECT_EQ(list["last"], 8);
  EXPECT_EQ(runJson({"binlog", "current", "db"})["file"], "b.000008");
}

}  // namespace
}  // namespace orrery::test
