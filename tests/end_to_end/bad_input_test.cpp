// Everything that cannot be right is refused with one line, and nothing is stored.

#include <sys/socket.h>
#include <sys/un.h>

#include "command_fixture.h"

namespace orrery::test {
namespace {

struct RefusedInstance {
  const char* name;
  std::vector<std::string> change;  ///< option and value in place of the good ones; "NAME" for the name
  const char* reason;
};

void PrintTo(const RefusedInstance& row, std::ostream* out) {
  *out << row.name;
}

class RefusedInstanceTest : public CommandTest, public testing::WithParamInterface<RefusedInstance> {
 protected:
  std::vector<std::string> addWith(const std::vector<std::string>& change) const {
    std::vector<std::string> line{"instance", "add",   "--no-password", "--socket", "h:1",
                                  "--user",   "agent", "--bin",         "/usr/bin"};
    std::string instance = "db";
    for (std::size_t i = 0; i + 1 < change.size(); i += 2) {
      const auto present = std::find(line.begin(), line.end(), change[i]);
      if (change[i] == "NAME") {
        instance = change[i + 1];
      } else if (present != line.end()) {
        *(present + 1) = change[i + 1];
      } else {
        line.insert(line.end(), {change[i], change[i + 1]});
      }
    }
    line.insert(line.end(), {"--", instance});
    return line;
  }
};

TEST_P(RefusedInstanceTest, OneLineAndNothingStored) {
  writeFile(directory_ / "plain", "no socket");
  std::vector<std::string> change = GetParam().change;
  for (std::string& text : change) {
    if (const auto at = text.find("@DIR@"); at != std::string::npos) text.replace(at, 5, directory_.path());
  }
  EXPECT_TRUE(failedWith(run(addWith(change)), GetParam().reason));
  EXPECT_THAT(instanceNames(), testing::IsEmpty());

  // The same value is refused for an instance that is there, which stays as it was.
  if (change[0] == "NAME") return;
  addInstance("db", "h:1");
  const Json before = runJson({"instance", "show", "db"});
  EXPECT_TRUE(failedWith(run({"instance", "set", "db", change[0], change[1]}), GetParam().reason));
  EXPECT_EQ(runJson({"instance", "show", "db"}), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusedInstanceTest,
    testing::Values(RefusedInstance{"empty_name", {"NAME", ""}, "it is empty"},
                    RefusedInstance{"name_of_digits", {"NAME", "42"}, "taken for an id"},
                    RefusedInstance{"name_like_an_option", {"NAME", "-x"}, "taken for an option"},
                    RefusedInstance{"name_with_line_break", {"NAME", "a\nb"}, "control character"},
                    RefusedInstance{"name_too_long", {"NAME", std::string(256, 'n')}, "more than 255"},
                    RefusedInstance{"empty_socket", {"--socket", ""}, "neither an absolute path nor HOST:PORT"},
                    RefusedInstance{
                        "relative_socket", {"--socket", "run/s.sock"}, "neither an absolute path nor HOST:PORT"},
                    RefusedInstance{"two_colons", {"--socket", "::1"}, "neither an absolute path nor HOST:PORT"},
                    RefusedInstance{"no_host", {"--socket", ":3306"}, "neither an absolute path nor HOST:PORT"},
                    RefusedInstance{"no_port", {"--socket", "h:"}, "no number from 1 to 65535"},
                    RefusedInstance{"port_zero", {"--socket", "h:0"}, "no number from 1 to 65535"},
                    RefusedInstance{"port_too_large", {"--socket", "h:65536"}, "no number from 1 to 65535"},
                    RefusedInstance{"port_with_a_tail", {"--socket", "h:3306x"}, "no number from 1 to 65535"},
                    RefusedInstance{"socket_with_blank", {"--socket", "/tmp/a b.sock"}, "holds a blank"},
                    RefusedInstance{"socket_too_long", {"--socket", "/" + std::string(108, 's')}, "at most 107 bytes"},
                    RefusedInstance{"socket_with_colon", {"--socket", "/tmp/a:b.sock"}, "cannot hold a colon"},
                    RefusedInstance{"a_file_is_no_socket", {"--socket", "@DIR@/plain"}, "something else than a socket"},
                    RefusedInstance{"a_folder_is_no_socket", {"--socket", "@DIR@"}, "something else than a socket"},
                    RefusedInstance{"empty_account", {"--user", ""}, "it is empty"},
                    RefusedInstance{"account_with_quote", {"--user", "a\"b"}, "holds a blank"},
                    RefusedInstance{"account_with_blank", {"--user", "a b"}, "holds a blank"},
                    RefusedInstance{"unknown_unix_user", {"--unix-user", "no-such-account-here"}, "no such account"},
                    RefusedInstance{"no_folder_of_clients", {"--bin", "@DIR@/none"}, "no such folder"},
                    RefusedInstance{"folder_without_clients", {"--bin", "@DIR@"}, "no mysql or mariadb"},
                    RefusedInstance{"missing_authority", {"--ssl-ca", "@DIR@/none.pem"}, "no such file"},
                    RefusedInstance{"a_folder_is_no_key", {"--ssl-key", "@DIR@"}, "no such file"},
                    RefusedInstance{"missing_certificate", {"--ssl-cert", "none.pem"}, "no such file"},
                    RefusedInstance{"data_path_with_quote", {"--data", "/var/'x'"}, "holds a blank"},
                    RefusedInstance{"version_with_line_break", {"--version-hint", "10\n11"}, "control character"}),
    [](const auto& row) { return row.param.name; });

class BadInputTest : public CommandTest {};

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
}

TEST_F(BadInputTest, AResultThatCannotBeWrittenIsAFailure) {
  const ProgramResult result = runProgram(
      {"sh", "-c", "exec \"$@\" >/dev/full", "sh", ORRERY_MYSQL_COMMAND, "--home", home(), "setting", "list"});
  EXPECT_TRUE(failedWith(result, "No space left"));
}

}  // namespace
}  // namespace orrery::test
