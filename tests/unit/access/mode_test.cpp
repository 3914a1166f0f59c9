#include "session/session_fixture.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::platform::Status;

/// Instances whose server is asked through a client that is a script.
class Mode : public orrery::test::SessionTest {
 protected:
  long serve(const std::string& script) {
    orrery::test::writeFile(bin_ / "mysql", "#!/bin/sh\n" + script + "\n", 0755);
    auto all = properties();
    all[property::binaryPath] = bin_.path();
    return static_cast<long>(backend_.addInstance("i" + std::to_string(++count_), all));
  }
  /// "command", "library" or "failed".
  std::string mode(long instance) {
    bool commandMode = true;
    backend_.log().clear();
    const int result = getGetMySqlInfoMode(instance, commandMode);
    EXPECT_FALSE(result != 0 && commandMode) << "a failure leaves library mode";
    return result != 0 ? "failed" : commandMode ? "command" : "library";
  }

  orrery::test::TemporaryDirectory bin_;
  int count_ = 0;
};

TEST_F(Mode, FollowsTheServersVersion) {
  const struct {
    const char *version, *mode;
  } table[] = {{"5.0.96", "command"},  {"5.1.73-log", "command"},      {"5.5.62", "library"}, {"5.7.44", "library"},
               {"8.0.36", "library"},  {"10.6.12-MariaDB", "library"}, {"11.8.6", "library"}, {"4.1.22", "command"},
               {"3.23.58", "library"},  // kept: no pair
               {"10.1.48", "library"}, {"6.0.11", "library"},          {"5", "command"},      {"text", "command"}};
  for (const auto& row : table) {
    EXPECT_EQ(mode(serve(std::string("echo ") + row.version)), row.mode) << row.version;
    EXPECT_TRUE(logged(std::string("Using ") + (*row.mode == 'c' ? "Command" : "Library") + " Mode............"));
  }
}

TEST_F(Mode, FailsInTheWordsOfTheStep) {
  EXPECT_EQ(mode(0), "failed");
  EXPECT_TRUE(logged("Instance id or binary path must be set."));
  EXPECT_EQ(mode(987654), "failed");
  EXPECT_TRUE(logged("MySqlInfo->Init failed"));
  EXPECT_EQ(mode(serve("exit 1")), "failed");
  EXPECT_TRUE(logged("Failed to MySql version."));
  EXPECT_EQ(mode(serve("exit 0")), "failed");
  EXPECT_TRUE(logged("Got improper MySql version []."));
}

TEST_F(Mode, SettingsDecideFirst) {
  backend_.setSetting("MySQL", "sLibPath", "/any/lib.so");
  EXPECT_EQ(mode(id()), "library");
  EXPECT_TRUE(logged("Using Library Mode as sLibPath is set to [/any/lib.so]............"));
  EXPECT_FALSE(backend_.log().contains("Command to run")) << "no server is asked";
  EXPECT_EQ(mode(0), "failed") << "the id is looked at before the library";
  backend_.setSetting("MySQL", "sCommandMode", "1");
  EXPECT_EQ(mode(0), "command") << "and this before the id";
  EXPECT_TRUE(logged("Using Command Mode............"));
  backend_.setSetting("MySQL", "sCommandMode", "0");
  EXPECT_EQ(mode(id()), "library");
}

}  // namespace
