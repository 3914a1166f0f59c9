// The choice between the two ways to a server.

#include <filesystem>

#include "command_fixture.h"

namespace orrery::test {
namespace {

class AccessTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
  }
  /// The same command in a mode.
  ProgramResult runIn(const std::string& mode, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--access", mode});
    return run(arguments);
  }
};

TEST_F(AccessTest, BothModesAnswerAlike) {
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"variable", "datadir", "db"},
                                             {"variable", "innodb_data_home_dir", "db"},
                                             {"variable", "no_such_variable", "db"},
                                             {"variable", "log%bin", "db"},
                                             {"binlog", "flush", "db"},
                                             {"--format", "json", "variable", "port", "db"}}) {
    const ProgramResult byCommand = runIn("command", command);
    const ProgramResult byLibrary = runIn("library", command);
    EXPECT_EQ(byLibrary.exitStatus, byCommand.exitStatus) << byLibrary.errors;
    EXPECT_EQ(byLibrary.output, byCommand.output);
    EXPECT_EQ(byLibrary.errors, byCommand.errors);
  }
  EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
}

TEST_F(AccessTest, ModeTellsTheChoiceAndTheReason) {
  const Json byVersion = runJson({"mode", "db"});
  EXPECT_EQ(byVersion["mode"], "library");
  EXPECT_THAT(byVersion["reason"].get<std::string>(), testing::StartsWith("the server is of version 1"));
  EXPECT_EQ(byVersion["library"], home() + "/libmysqlclient.so");
  EXPECT_TRUE(byVersion["library_error"].is_null());

  runJson({"setting", "set", "sLibPath", "/nowhere/lib.so"});
  const Json byLibrary = runJson({"mode", "db"});
  EXPECT_EQ(byLibrary["library"], "/nowhere/lib.so");
  EXPECT_THAT(byLibrary["library_error"].get<std::string>(), testing::HasSubstr("No such file"));
  EXPECT_THAT(run({"mode", "db"}).output, testing::HasSubstr("/nowhere/lib.so (cannot be used: "));

  runJson({"setting", "set", "sCommandMode", "1"});
  EXPECT_EQ(runJson({"mode", "db"})["mode"], "command") << "goes before the library";
}

TEST_F(AccessTest, AutoDoesAsAnAgentWould) {
  EXPECT_THAT(runIn("auto", {"-vv", "ping", "db"}).errors, testing::HasSubstr("Using Library : "));
  runJson({"setting", "set", "sCommandMode", "1"});
  const ProgramResult byCommand = runIn("auto", {"-vv", "ping", "db"});
  EXPECT_EQ(byCommand.exitStatus, 0);
  EXPECT_THAT(byCommand.errors, testing::Not(testing::HasSubstr("Using Library : ")));
}

TEST_F(AccessTest, WhatKeepsLibraryModeFromWorkingIsOneLine) {
  const std::string link = home() + "/libmysqlclient.so";
  std::filesystem::remove(link);
  EXPECT_TRUE(failedWith(runIn("library", {"ping", "db"}), "init --client-library FILE links a client library"));
  writeFile(link, "no library", 0644);
  EXPECT_TRUE(failedWith(runIn("library", {"ping", "db"}), "file too short"));
  std::filesystem::remove(link);
  EXPECT_EQ(run({"init"}).exitStatus, 0);
  EXPECT_EQ(runIn("library", {"ping", "db"}).exitStatus, 0);

  EXPECT_TRUE(failedWith(runIn("auto", {"ping", "nowhere"}), "there is no instance nowhere"));
  run({"setting", "set", "bSSLEnabled", "1"});
  run({"setting", "set", "sSslCa", "/nowhere/ca.pem"});
  EXPECT_TRUE(failedWith(runIn("library", {"ping", "db"}), "The file of the certificate authority for TLS is missing"));
}

TEST_F(AccessTest, AServerThatDiedIsToldInEveryModeAndComesBack) {
  server().crash();
  for (const char* mode : {"auto", "command", "library"}) {
    EXPECT_TRUE(failedWith(runIn(mode, {"ping", "db"}), "Can't connect to local server through socket")) << mode;
  }
  EXPECT_TRUE(failedWith(run({"mode", "db"}), "no access mode for db: [2002] Can't connect to local server"));
  EXPECT_TRUE(failedWith(run({"version", "db"}), "[2002] Can't connect"));
  server().start();
  EXPECT_EQ(runJson({"ping", "db"})["alive"], true);
}

}  // namespace
}  // namespace orrery::test
