// The inventory on the command line, without a server.

#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "command_fixture.h"
#include "terminal.h"

namespace orrery::test {
namespace {

class InstanceTest : public CommandTest {
 protected:
  std::vector<std::string> addAtPrompt() const {
    return commandLine(home(), {"instance", "add", "db", "--socket", "h:1", "--user", "u"});
  }
};

TEST_F(InstanceTest, AddShowSetRemove) {
  const std::string ca = directory_ / "ca.pem";
  writeFile(ca, "certificate");
  const Json added = runJson({"instance", "add", "Größe 1", "--socket", "127.0.0.1:3306", "--user", "agent",
                              "--no-password", "--ssl-ca", ca, "--auto-discovery", "on", "--bin", "/usr/bin"});
  EXPECT_TRUE(has(added, {{"name", "Größe 1"},
                          {"client", "tested"},
                          {"socket", "127.0.0.1:3306"},
                          {"ssl_ca", ca},
                          {"auto_discovery", true},
                          {"unix_user", nullptr},
                          {"password_stored", false}}));
  const std::string id = std::to_string(added["id"].get<int>());
  EXPECT_EQ(runJson({"instance", "show", id}), added);

  Json expected = added;
  expected.update(Json({{"user", "other"}, {"ssl_ca", nullptr}, {"version", "10.11"}}));
  runJson({"instance", "set", "Größe 1", "--user=other", "--ssl-ca=", "--version-hint", "10.11"});
  EXPECT_EQ(runJson({"instance", "show", "Größe 1"}), expected);

  EXPECT_EQ(runJson({"instance", "remove", id, "--yes"})["removed"]["name"], "Größe 1");
  EXPECT_THAT(instanceNames(), testing::IsEmpty());
  EXPECT_TRUE(failedWith(run({"instance", "show", id}), "there is no instance " + id));
}

TEST_F(InstanceTest, ListIsATableForPeople) {
  addInstance("one", "127.0.0.1:3306");
  addInstance("twenty-two", "127.0.0.1:3307");
  EXPECT_EQ(run({"instance", "list"}).output,
            "ID  NAME        SOCKET          ACCOUNT  UNIX ACCOUNT\n"
            "1   one         127.0.0.1:3306  agent    -\n"
            "2   twenty-two  127.0.0.1:3307  agent    -\n");
}

TEST_F(InstanceTest, RelativePathsAreStoredInFull) {
  const ProgramResult result = runProgram({"sh", "-c", "cd \"$0\" && touch ca.pem && exec \"$@\"", directory_.path(),
                                           ORRERY_MYSQL_COMMAND, "--home", home(), "instance", "add", "db", "--socket",
                                           "h:1", "--user", "u", "--no-password", "--ssl-ca", "ca.pem"});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_EQ(runJson({"instance", "show", "db"})["ssl_ca"], directory_ / "ca.pem");
}

TEST_F(InstanceTest, NamesLikeCommandsAreNames) {
  addInstance("version", "127.0.0.1:1");
  EXPECT_EQ(runJson({"instance", "show", "version"})["name"], "version");
  EXPECT_TRUE(failedWith(run({"ping", "version"}), "version"));
}

TEST_F(InstanceTest, PasswordsAreReadFromFileAndStandardInputAlike) {
  const struct {
    const char* name;
    std::string content;
    const char* refusal;  // null: taken
  } table[] = {{"newline_is_not_part", "secret\n", nullptr},
               {"no_newline", "secret", nullptr},
               {"longest", std::string(1024, 'p') + "\n", nullptr},
               {"too_long", std::string(1025, 'p'), "longer than 1024"},
               {"much_too_long", std::string(100000, 'p'), "longer than 1024"},
               {"empty", "", "it is empty"},
               {"newline_alone", "\n", "it is empty"},
               {"two_lines", "one\ntwo\n", "line break"},
               {"carriage_return", "secret\r\n", "line break"},
               {"null", std::string("a\0b", 3), "null"}};
  const std::string file = directory_ / "password";
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    writeFile(file, row.content, 0600);
    const std::vector<std::string> line{"instance", "add", "db", "--socket", "h:1", "--user", "u"};
    for (const auto& source : std::vector<std::vector<std::string>>{{"--password-file", file}, {"--password-stdin"}}) {
      std::vector<std::string> arguments = line;
      arguments.insert(arguments.end(), source.begin(), source.end());
      const ProgramResult result = run(arguments, {.input = row.content});
      if (row.refusal != nullptr) {
        EXPECT_TRUE(failedWith(result, row.refusal));
        EXPECT_THAT(instanceNames(), testing::IsEmpty());
      } else {
        EXPECT_EQ(runJson({"instance", "show", "db"})["password_stored"], true) << result.errors;
        run({"instance", "remove", "db", "--yes"});
      }
    }
  }
}

TEST_F(InstanceTest, ThePromptDoesNotShowThePassword) {
  const Terminal terminal;
  RunningProgram program(addAtPrompt(), terminal.asInput());
  ASSERT_TRUE(waitUntil([&] { return !terminal.echoes(); }));
  terminal.type("typed-secret\n");
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_TRUE(terminal.echoes());
  EXPECT_THAT(terminal.shown(), testing::Not(testing::HasSubstr("secret")));
  EXPECT_EQ(runJson({"instance", "show", "db"})["password_stored"], true);
}

TEST_F(InstanceTest, CtrlCAtThePromptGivesTheTerminalBack) {
  const Terminal terminal;
  RunningProgram program(addAtPrompt(), terminal.asInput());
  ASSERT_TRUE(waitUntil([&] { return !terminal.echoes(); }));
  program.signalGroup(SIGINT);
  EXPECT_EQ(program.wait().signal, SIGINT);
  EXPECT_TRUE(terminal.echoes());
  EXPECT_THAT(instanceNames(), testing::IsEmpty());
}

TEST_F(InstanceTest, CtrlCEndsTheWaitForAPasswordOnAPipe) {
  int silent[2];
  ASSERT_EQ(::pipe2(silent, O_CLOEXEC), 0);
  const platform::OwnFd input(silent[0]);
  const platform::OwnFd writer(silent[1]);
  RunningProgram program(
      commandLine(home(), {"instance", "add", "db", "--socket", "h:1", "--user", "u", "--password-stdin"}),
      {.standardInput = input.get()});
  // Once it has the store open it reads its standard input, to which nobody writes.
  const std::string descriptors = "/proc/" + std::to_string(program.pid()) + "/fd";
  ASSERT_TRUE(waitUntil([&] {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(descriptors, error)) {
      if (std::filesystem::read_symlink(entry.path(), error).filename() == "store.db") return true;
    }
    return false;
  }));
  program.signalGroup(SIGINT);
  const ProgramResult result = program.wait();
  EXPECT_EQ(result.signal, SIGINT);
  EXPECT_EQ(result.output + result.errors, "");
}

TEST_F(InstanceTest, RemoveAsksOnATerminal) {
  addInstance("db", "h:1");
  for (const auto& [answer, exitStatus] : {std::pair("no\n", 1), std::pair("y\n", 0)}) {
    const Terminal terminal;
    RunningProgram program(commandLine(home(), {"instance", "remove", "db"}), terminal.asInput());
    terminal.type(answer);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exitStatus, exitStatus) << answer << result.errors;
  }
  EXPECT_THAT(instanceNames(), testing::IsEmpty());
}

TEST_F(InstanceTest, WithoutATerminalNothingIsAsked) {
  addInstance("db", "h:1");
  EXPECT_TRUE(refusedUsage(run({"instance", "remove", "db"}), "--yes"));
  EXPECT_TRUE(refusedUsage(run({"instance", "add", "db2", "--socket", "h:1", "--user", "u"}), "--password-file"));
  EXPECT_THAT(instanceNames(), testing::ElementsAre("db"));
}

}  // namespace
}  // namespace orrery::test
