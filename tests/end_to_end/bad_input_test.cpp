// Everything that cannot be right is refused with one line, and nothing is stored.

#include <sys/socket.h>
#include <sys/un.h>

#include "command_fixture.h"

namespace orrery::test {
namespace {

class BadInputTest : public CommandTest {};

TEST_F(BadInputTest, RefusedInstancesAreOneLineAndNothingIsStored) {
  writeFile(directory_ / "plain", "no socket");
  const std::string here = directory_.path();
  const struct {
    const char* option;  // in place of the good one
    std::string value;
    const char* reason;
  } table[] = {{"NAME", "", "it is empty"},
               {"NAME", "42", "taken for an id"},
               {"NAME", "-x", "taken for an option"},
               {"NAME", "a\nb", "control character"},
               {"NAME", std::string(256, 'n'), "more than 255"},
               {"--socket", "", "neither an absolute path nor HOST:PORT"},
               {"--socket", "run/s.sock", "neither an absolute path nor HOST:PORT"},
               {"--socket", "::1", "neither an absolute path nor HOST:PORT"},
               {"--socket", ":3306", "neither an absolute path nor HOST:PORT"},
               {"--socket", "h:", "no number from 1 to 65535"},
               {"--socket", "h:0", "no number from 1 to 65535"},
               {"--socket", "h:65536", "no number from 1 to 65535"},
               {"--socket", "h:3306x", "no number from 1 to 65535"},
               {"--socket", "/tmp/a b.sock", "holds a blank"},
               {"--socket", "/" + std::string(108, 's'), "at most 107 bytes"},
               {"--socket", "/tmp/a:b.sock", "cannot hold a colon"},
               {"--socket", here + "/plain", "something else than a socket"},
               {"--socket", here, "something else than a socket"},
               {"--user", "", "it is empty"},
               {"--user", "a\"b", "holds a blank"},
               {"--user", "a b", "holds a blank"},
               {"--unix-user", "no-such-account-here", "no such account"},
               {"--bin", here + "/none", "no such folder"},
               {"--bin", here, "no mysql or mariadb"},
               {"--ssl-ca", here + "/none.pem", "no such file"},
               {"--ssl-key", here, "no such file"},
               {"--ssl-cert", "none.pem", "no such file"},
               {"--data", "/var/'x'", "holds a blank"},
               {"--version-hint", "10\n11", "control character"}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.option + (" " + row.value));
    std::map<std::string, std::string> options{{"--socket", "h:1"}, {"--user", "agent"}, {"--bin", "/usr/bin"}};
    std::string name = "db";
    (row.option == std::string("NAME") ? name : options[row.option]) = row.value;
    std::vector<std::string> line{"instance", "add", "--no-password"};
    for (const auto& [option, value] : options) line.insert(line.end(), {option, value});
    line.insert(line.end(), {"--", name});
    EXPECT_TRUE(failedWith(run(line), row.reason));
    EXPECT_THAT(instanceNames(), testing::IsEmpty());

    // The same value is refused for an instance that is there, which stays as it was.
    if (name != "db") continue;
    addInstance("db", "h:1");
    const Json before = runJson({"instance", "show", "db"});
    EXPECT_TRUE(failedWith(run({"instance", "set", "db", row.option, row.value}), row.reason));
    EXPECT_EQ(runJson({"instance", "show", "db"}), before);
    run({"instance", "remove", "db", "--yes"});
  }
}

TEST_F(BadInputTest, AFolderWithOneClientOnlyIsNotEnough) {
  makeProgram(directory_ / "bin/mariadb", "exit 0\n");
  EXPECT_TRUE(failedWith(
      run({"instance", "add", "db", "--socket", "h:1", "--user", "u", "--no-password", "--bin", directory_ / "bin"}),
      "no mysqladmin or mariadb-admin"));
}

TEST_F(BadInputTest, APasswordFileThatCannotBeRead) {
  for (const auto& [path, reason] :
       {std::pair(directory_ / "none", "No such file"), {directory_.path(), "directory"}}) {
    EXPECT_TRUE(
        failedWith(run({"instance", "add", "db", "--socket", "h:1", "--user", "u", "--password-file", path}), reason));
  }
  EXPECT_THAT(instanceNames(), testing::IsEmpty());
}

TEST_F(BadInputTest, ANameIsTakenOnce) {
  addInstance("db", "h:1");
  EXPECT_TRUE(failedWith(run({"instance", "add", "db", "--socket", "h:2", "--user", "u", "--no-password"}), "taken"));
  EXPECT_EQ(runJson({"instance", "show", "db"})["socket"], "h:1");
}

TEST_F(BadInputTest, ASocketThatIsNotThereYetIsToldAndTaken) {
  const std::string socket = directory_ / "later.sock";
  const ProgramResult result =
      run({"instance", "add", "db", "--socket", socket, "--user", "u", "--no-password", "--format", "json"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errors, "orrery-mysql: note: " + socket + " does not exist yet\n");
  EXPECT_EQ(Json::parse(result.output)["socket"], socket);
}

TEST_F(BadInputTest, UnknownInstancesAreNamed) {
  addInstance("db", "h:1");
  const std::vector<std::vector<std::string>> commands{{"instance", "show"},
                                                       {"instance", "set", "--user", "u"},
                                                       {"instance", "remove", "--yes"},
                                                       {"ping"},
                                                       {"version"},
                                                       {"variable", "log_bin"},
                                                       {"binlog", "flush"}};
  for (std::vector<std::string> command : commands) {
    for (const char* instance : {"nobody", "77", "99999999999999999999999", "0"}) {
      command.emplace_back(instance);
      EXPECT_TRUE(failedWith(run(command), std::string("there is no instance ") + instance)) << command[0];
      EXPECT_TRUE(failedWith(run(command), "orrery-mysql instance list"));
      command.pop_back();
    }
  }
}

TEST_F(BadInputTest, WrongUsageIsExitStatusTwo) {
  const std::vector<std::vector<std::string>> lines{{},
                                                    {"no-such-command"},
                                                    {"instance"},
                                                    {"instance", "no-such-command"},
                                                    {"ping"},
                                                    {"ping", "db", "more"},
                                                    {"ping", "db", "--no-such-option"},
                                                    {"ping", "db", "--format", "xml"},
                                                    {"ping", "db", "--access", "telepathy"},
                                                    {"variable", "log_bin"},
                                                    {"setting", "set", "nLevel"},
                                                    {"instance", "add", "db", "--user", "u"},
                                                    {"instance", "set", "db", "--meb", "maybe"}};
  for (const std::vector<std::string>& line : lines) {
    EXPECT_TRUE(refusedUsage(run(line), "--help")) << testing::PrintToString(line);
  }
  addInstance("db", "h:1");
  EXPECT_TRUE(refusedUsage(run({"instance", "set", "db"}), "nothing to change"));
  EXPECT_TRUE(refusedUsage(run({"instance", "set", "db", "--no-password", "--password-stdin"}), "only one of"));
  for (const char* time : {"soon", "2026-01-01 10:00", "9223372036855", "9223372036854775807"})
    EXPECT_TRUE(refusedUsage(run({"restore", "db", "--to-time", time}), "is no time")) << time;
}

TEST_F(BadInputTest, AResultThatCannotBeWrittenIsAFailure) {
  const ProgramResult result = runProgram(
      {"sh", "-c", "exec \"$@\" >/dev/full", "sh", ORRERY_MYSQL_COMMAND, "--home", home(), "setting", "list"});
  EXPECT_TRUE(failedWith(result, "No space left"));
}

}  // namespace
}  // namespace orrery::test
