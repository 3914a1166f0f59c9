// The command against a real server.

#include <filesystem>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using ServerCommandTest = ServerTest;

TEST_F(ServerCommandTest, QuestionsAsTablesAndAsJson) {
  addServer();
  const Json ping = runJson({"ping", "db"});
  EXPECT_TRUE(has(ping, {{"instance", "db"}, {"alive", true}}));
  EXPECT_GT(ping["milliseconds"].get<double>(), 0);
  EXPECT_THAT(run({"ping", "db"}).output, testing::MatchesRegex("db  alive  [0-9.]+ ms\n"));

  const std::string whole = server().execute("select @@version");
  const std::string number = whole.substr(0, whole.find('-'));
  EXPECT_EQ(runJson({"version", "db"}), Json({{"instance", "db"}, {"version", number}}));
  EXPECT_EQ(run({"version", "db"}).output, "db  " + number + "\n");

  EXPECT_EQ(runJson({"variable", "datadir", "db"})["value"], server().dataDirectory() + "/");
  EXPECT_EQ(run({"variable", "log_bin", "1"}).output, "log_bin  ON\n");
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(ServerCommandTest, AnEmptyVariableIsNoMissingOne) {
  addServer();
  EXPECT_EQ(runJson({"variable", "innodb_data_home_dir", "db"})["value"], "");
  EXPECT_TRUE(failedWith(run({"variable", "no_such_variable", "db"}), "no variable no_such_variable"));
  // A name is a name, not a pattern.
  EXPECT_TRUE(failedWith(run({"variable", "log%bin", "db"}), "no variable log%bin"));
  EXPECT_TRUE(failedWith(run({"variable", "a' or '1'='1", "db"}), "quote"));
}

TEST_F(ServerCommandTest, GlobalOptionsStandAnywhere) {
  addServer();
  const std::string command = ORRERY_MYSQL_COMMAND;
  for (const std::vector<std::string>& line :
       std::vector<std::vector<std::string>>{{command, "--home", home(), "--format", "json", "-v", "version", "db"},
                                             {command, "version", "db", "--home", home(), "--format=json", "-v"},
                                             {command, "version", "--format=json", "db", "-v", "--home", home()}}) {
    const ProgramResult result = runProgram(line);
    EXPECT_EQ(Json::parse(result.output)["instance"], "db");
    EXPECT_THAT(result.errors, testing::HasSubstr("Command to run")) << "-v shows the log";
  }
}

void expectNowhereBelow(const std::string& folder, const std::string& secret) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(readFile(entry.path()).find(secret), std::string::npos) << entry.path();
  }
}

TEST_F(ServerCommandTest, ThePasswordShowsNowhere) {
  // Clients that tell how they were started, then run for real.
  const std::string seen = directory_ / "seen";
  writeFile(seen, "", 0666);
  const std::string tell = "{ echo \"$0 $*\"; env; } >>" + seen + "\n";
  makeProgram(directory_ / "bin/mysql", tell + "exec mariadb \"$@\"\n");
  makeProgram(directory_ / "bin/mysqladmin", tell + "exec mariadb-admin \"$@\"\n");
  std::filesystem::permissions(directory_ / "bin", std::filesystem::perms(0755));
  runJson({"setting", "set", "nLevel", "10"});
  addServer({"--bin", directory_ / "bin"});

  const std::string& secret = server().agentPassword();
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"ping", "db", "-vv"},
                                             {"version", "db", "-vv"},
                                             {"variable", "none", "db", "-vv"},
                                             {"instance", "show", "db"}}) {
    const ProgramResult result = run(command);
    EXPECT_EQ((result.output + result.errors).find(secret), std::string::npos) << command[0];
  }
  const std::string starts = readFile(seen);
  EXPECT_THAT(starts, testing::HasSubstr("--defaults-file="));
  EXPECT_EQ(starts.find(secret), std::string::npos) << starts;
  expectNowhereBelow(home(), secret);
}

}  // namespace
}  // namespace orrery::test
