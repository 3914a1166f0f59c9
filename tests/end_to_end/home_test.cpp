// The home: made, completed, refused.

#include <filesystem>

#include "command_fixture.h"

namespace orrery::test {
namespace {

namespace fs = std::filesystem;

using HomeTest = CommandTest;

TEST_F(HomeTest, InitTwiceKeepsWhatIsThere) {
  addInstance("kept", "127.0.0.1:3306");
  const Json again = runJson({"init", "--client", "another"});
  EXPECT_TRUE(has(again, {{"created", false}, {"client", "tested"}}));
  EXPECT_THAT(instanceNames(), testing::ElementsAre("kept"));
}

TEST_F(HomeTest, InitLinksTheClientLibrary) {
  const std::string link = home() + "/libmysqlclient.so";
  ASSERT_TRUE(fs::is_symlink(link));
  const std::string library = fs::read_symlink(link);
  EXPECT_TRUE(fs::exists(library));

  fs::remove(link);
  fs::create_symlink("/nowhere/libmysqlclient.so.9", link);
  EXPECT_EQ(runJson({"init"})["client_library_link_state"], "replaced");
  EXPECT_EQ(fs::read_symlink(link).string(), library);

  EXPECT_EQ(runJson({"init"})["client_library_link_state"], "kept");
}

TEST_F(HomeTest, InitLinksTheMediaLibrary) {
  const std::string link = home() + "/libobk.so";
  ASSERT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::read_symlink(link).filename(), "libobk.so");
  EXPECT_TRUE(fs::exists(link));
  const Json again = runJson({"init"});
  EXPECT_TRUE(has(again, {{"media_library", fs::read_symlink(link).string()},
                          {"media_library_link", link},
                          {"media_library_link_state", "kept"}}));
}

TEST_F(HomeTest, InitNeverReplacesAFile) {
  const std::string link = home() + "/libmysqlclient.so";
  fs::remove(link);
  writeFile(link, "somebody's own");
  EXPECT_EQ(runJson({"init"})["client_library_link_state"], "file");
  EXPECT_TRUE(failedWith(run({"init", "--client-library", "/proc/self/exe"}), "is a file of its own"));
  EXPECT_EQ(readFile(link), "somebody's own");
}

TEST_F(HomeTest, InitRefusesALibraryThatCannotBeLoaded) {
  const std::string text = directory_ / "text.so";
  writeFile(text, "no library");
  EXPECT_TRUE(failedWith(run({"init", "--client-library", text}), "no library that this program can load"));
}

TEST_F(HomeTest, TheEnvironmentNamesTheHome) {
  const ProgramResult result =
      runProgram({ORRERY_MYSQL_COMMAND, "instance", "list"}, {.environment = {"ORRERY_HOME=" + home()}});
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
}

TEST_F(HomeTest, AMissingHomeIsNamedWithTheNextStep) {
  const std::string missing = directory_ / "missing";
  for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
           {"instance", "list"}, {"setting", "list"}, {"ping", "db"}, {"binlog", "flush", "db"}}) {
    const ProgramResult result = runProgram(commandLine(missing, command));
    EXPECT_TRUE(failedWith(result, missing));
    EXPECT_TRUE(failedWith(result, "orrery-mysql init"));
  }
  EXPECT_FALSE(fs::exists(missing));
  writeFile(missing, "a file");
  EXPECT_TRUE(failedWith(runProgram(commandLine(missing, {"init"})), missing));
}

TEST_F(HomeTest, SettingsWithNonsenseAreNamedByLine) {
  const std::string settings = home() + "/settings.ini";
  const std::string nonsense = readFile(settings) + "[MySQL\nnRetryDropDB\n";
  writeFile(settings, nonsense, 0600);
  EXPECT_TRUE(failedWith(run({"setting", "list"}), "settings.ini line "));
  EXPECT_TRUE(failedWith(run({"instance", "list"}), "settings.ini line ")) << "whatever the command is about";
  EXPECT_TRUE(failedWith(run({"setting", "get", "nRetryDropDB"}), "settings.ini line "));
  EXPECT_TRUE(failedWith(run({"setting", "set", "nRetryDropDB", "3"}), "settings.ini line "));
  EXPECT_EQ(readFile(settings), nonsense);
}

}  // namespace
}  // namespace orrery::test
