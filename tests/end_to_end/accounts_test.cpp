// orrery-mysql accounts on a real server: its statements make the same accounts and roles on a second, empty one.

#include <signal.h>
#include <sys/stat.h>

#include <set>
#include <sstream>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class AccountsTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
    server().execute(
        "create or replace database shop; create table shop.t (a int, b int);"
        // A role is listed after what is granted it, and there is an account of a role's name.
        "create role a_late; create role base; grant base to a_late with admin option; create role `r``;\n--q`;"
        "create role writer with admin base; create user ''@'host.example'; create user `it's\xc3\xa9`@'::1';"
        "create user near@'127.0.0.1';"
        "grant select on shop.* to base; grant select on shop.t to PUBLIC;"
        "create user late@'10.%' identified by 'secret' require ssl with max_user_connections 3 password expire;"
        "grant a_late to late@'10.%'; set default role a_late for late@'10.%'; grant base to late@'10.%' with admin "
        "option;"
        "create user base@'%' account lock; grant insert (b), update on shop.t to base@'%';"
        "create user via@'%' identified via mysql_native_password using password('v') password expire;"
        "create user either@'%' identified via unix_socket or mysql_native_password using password('e') password "
        "expire; create user x509@'%' require issuer '/CN=a\\\\b\\'c' subject '/CN=d\\\\';"
        "create user `n\n-- drop`@'%' identified by 'x'; create user `t``\"'\\\\;\xc3\xbc`@'h%' identified by 'y';"
        "grant all privileges on *.* to `t``\"'\\\\;\xc3\xbc`@'h%' with grant option; create user `x``@``y`@'%'");
  }
  void TearDown() override {
    server().execute(
        "drop user late@'10.%', base@'%', via@'%', either@'%', x509@'%', `n\n-- drop`@'%', `t``\"'\\\\;\xc3\xbc`@'h%', "
        "`x``@``y`@'%', ''@'host.example', `it's\xc3\xa9`@'::1', near@'127.0.0.1'; drop role writer;"
        "drop role a_late; drop role base; drop role `r``;\n--q`; revoke select on shop.t from PUBLIC; drop database "
        "shop");
  }
  static std::vector<std::string> accounts(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--access", "library", "accounts", "db"});
    return more;
  }
  /// Servers give them in the order of their tables in memory.
  static std::multiset<std::string> rowsOf(const MariaDbSandbox& server, const std::string& statement) {
    std::istringstream lines(server.execute(statement));
    std::multiset<std::string> rows;
    for (std::string line; std::getline(lines, line);) rows.insert(line);
    EXPECT_FALSE(rows.empty());
    return rows;
  }
  static void expectSameAccounts(const MariaDbSandbox& second);
  static std::string client(const MariaDbSandbox& server, const std::string& statements, int& exitStatus) {
    const ProgramResult result =
        runProgram({"mariadb", "--defaults-file=" + server.directory() + "/agent.cnf", "--default-character-set=utf8"},
                   {.input = statements});
    exitStatus = result.exitStatus;
    return result.errors;
  }
};

TEST_F(AccountsTest, AsStatementsMakeThemOnAnEmptyServer) {
  const std::string file = directory_ / "accounts.sql";
  const ProgramResult result = run(accounts({"--output", file}));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, HasSubstr("the account `x`@`y`@`%` is left out, its name holds back-ticks"));
  EXPECT_THAT(result.errors, HasSubstr("accounts of the hosts localhost and 127.0.0.1 are not captured"));
  EXPECT_THAT(result.errors, HasSubstr("does not know hexadecimal digits for authentication strings: [1193]"));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  const std::string sql = readFile(file);
  EXPECT_THAT(sql, Not(HasSubstr("near`")));
  server().execute("set global sql_mode = 'NO_BACKSLASH_ESCAPES,ANSI_QUOTES'");
  EXPECT_EQ(run(accounts()).output, sql);
  server().execute("set global sql_mode = default");
  EXPECT_THAT(sql, HasSubstr("\n-- account `n\\n-- drop`@`%`\nCREATE USER IF NOT EXISTS `n\n-- drop`@`%`"));

  const MariaDbSandbox second;
  second.execute("create database shop; create table shop.t (a int, b int)");
  int exitStatus = -1;
  EXPECT_EQ(client(second, sql, exitStatus), "");
  EXPECT_EQ(exitStatus, 0) << sql;
  EXPECT_EQ(client(second, sql, exitStatus), "") << "a second time does no harm";
  expectSameAccounts(second);
}

TEST_F(AccountsTest, NeedTheDatabasesOnlyAtTheEndOfTheirStatements) {
  const std::string sql = run(accounts()).output;
  const MariaDbSandbox second;
  int exitStatus = -1;
  EXPECT_THAT(client(second, sql, exitStatus), HasSubstr("ERROR 1146"));
  EXPECT_EQ(exitStatus, 1);
  const std::string list =
      "select user, host, is_role, default_role, password_expired from mysql.user "
      "where host <> '127.0.0.1' and user not like 'x`%' and user <> 'PUBLIC'";  // whose only grant is one of a table
  EXPECT_EQ(rowsOf(second, list), rowsOf(server(), list));
  EXPECT_EQ(rowsOf(second, "select * from mysql.db"), rowsOf(server(), "select * from mysql.db"));
}

void AccountsTest::expectSameAccounts(const MariaDbSandbox& second) {
  const char* const every[] = {"late@'10.%'",
                               "via@'%'",
                               "either@'%'",
                               "x509@'%'",
                               "base@'%'",
                               "`n\n-- drop`@'%'",
                               "`t``\"'\\\\;\xc3\xbc`@'h%'",
                               "''@'host.example'",
                               "`it's\xc3\xa9`@'::1'"};
  for (const char* account : every) {
    for (const std::string what : {"show create user ", "show grants for "}) {
      EXPECT_EQ(rowsOf(second, what + account), rowsOf(server(), what + account));
    }
  }
  for (const char* role : {"a_late", "base", "writer", "`r``;\n--q`", "PUBLIC"}) {
    const std::string grants = std::string("show grants for ") + role;
    EXPECT_EQ(rowsOf(second, grants), rowsOf(server(), grants));
  }
  const std::string list =
      "select user, host, is_role, default_role from mysql.user where host <> '127.0.0.1' and user not like 'x`%'";
  EXPECT_EQ(rowsOf(second, list), rowsOf(server(), list));
}

TEST_F(AccountsTest, AsJsonTellWhatIsLeftOutAndWhy) {
  const Json document = runJson(accounts({"--hex"}));
  EXPECT_EQ(document["hexadecimal"], false);
  ASSERT_EQ(document["left_out"].size(), 2U);
  EXPECT_EQ(document["left_out"][0]["number"], 1193);
  EXPECT_EQ(document["left_out"][1]["account"], "`x`@`y`@`%`");
  bool seen = false;
  for (const Json& account : document["accounts"]) {
    if (account["user"] != "late") continue;
    seen = true;
    EXPECT_TRUE(has(account, {{"host", "10.%"}, {"role", false}}));
    EXPECT_THAT(account["statement"].get<std::string>(), HasSubstr("REQUIRE SSL"));
    EXPECT_EQ(account["grants"].size(), 4U);
  }
  EXPECT_TRUE(seen);
  EXPECT_TRUE(refusedUsage(run(accounts({"--as", "sql", "--format", "json"})), "contradict each other"));
}

TEST_F(AccountsTest, ThatOnlySomeCanBeReadOfAreWorthHaving) {
  const ProgramResult result = runGated("db", server(), "SHOW CREATE USER `base`@`%`", accounts(), [](pid_t) {
    server().execute("drop user base@'%'");
    return StatementGate::Then::handOn;
  });
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_THAT(result.errors, HasSubstr("the account `base`@`%` is left out, the server does not print it: [11"));
  EXPECT_THAT(result.output, HasSubstr("CREATE USER IF NOT EXISTS `late`@`10.%`"));
  server().execute("create user base@'%'");
}

TEST_F(AccountsTest, EndEarlyWithoutAWord) {
  for (const bool isInterrupt : {true, false}) {
    const ProgramResult result =
        runGated("db", server(), "SHOW GRANTS FOR `late`", accounts({"--output", directory_ / "sql"}),
                 isInterrupt ? sending(SIGINT) : breaking());
    EXPECT_EQ(result.signal, isInterrupt ? SIGINT : 0);
    EXPECT_TRUE(isInterrupt || failedWith(result, "not all accounts from db: [20")) << result.errors;
    EXPECT_THAT(namesIn(directory_ / ""), testing::ElementsAre("home"));
  }
}

TEST_F(AccountsTest, OfAnAccountWithoutRightsAreAFailure) {
  server().execute("create or replace user blind@localhost identified by 'b'");
  writeFile(directory_ / "password", "b");
  ASSERT_EQ(run({"instance", "set", "db", "--user", "blind", "--password-file", directory_ / "password"}).exitStatus,
            0);
  EXPECT_TRUE(failedWith(run(accounts()), "[1142]"));
  EXPECT_EQ(runJson({"--access", "library", "metadata", "db"})["totals"]["databases"], 0);
  EXPECT_EQ(run({"--access", "library", "references", "db", "--all"}).output, "");
  server().execute("drop user blind@localhost");
}

}  // namespace
}  // namespace orrery::test
