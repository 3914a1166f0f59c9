// The agent's settings on the command line.

#include "command_fixture.h"

namespace orrery::test {
namespace {

using SettingTest = CommandTest;

Json find(const Json& settings, const std::string& key) {
  for (const Json& setting : settings["settings"]) {
    if (setting["key"] == key) return setting;
  }
  return nullptr;
}

TEST_F(SettingTest, ListTellsValueDefaultAndMeaning) {
  runJson({"setting", "set", "nStartServerWaitTime", "20"});
  const Json settings = runJson({"setting", "list"});
  const Json changed = find(settings, "nStartServerWaitTime");
  EXPECT_EQ(changed["section"], "MySQL");
  EXPECT_EQ(changed["value"], 20);
  EXPECT_EQ(changed["default"], 180);
  EXPECT_EQ(changed["is_set"], true);
  const Json unchanged = find(settings, "sLibPath");
  EXPECT_EQ(unchanged["value"], "");
  EXPECT_EQ(unchanged["is_set"], false);
  for (const Json& setting : settings["settings"]) EXPECT_FALSE(setting["meaning"].get<std::string>().empty());
}

TEST_F(SettingTest, AKeyIsFoundAloneAndWithItsSection) {
  runJson({"setting", "set", "MySQL.sServerStartCmd", "systemctl start mariadb"});
  for (const char* key : {"sServerStartCmd", "MySQL.sServerStartCmd"}) {
    const Json setting = runJson({"setting", "get", key});
    EXPECT_EQ(setting["value"], "systemctl start mariadb");
    EXPECT_EQ(setting["is_set"], true);
  }
  EXPECT_EQ(run({"setting", "get", "nRetryDropDB"}).output, "nRetryDropDB  1\n");
}

TEST_F(SettingTest, ThePlainNameOfAKeyFindsItInEverySection) {
  runJson({"setting", "set", "Log.nLevel", "7"});
  EXPECT_EQ(runJson({"setting", "get", "nLevel"})["value"], 7);
}

struct RefusedSetting {
  const char* name;
  const char* key;
  const char* value;
  const char* reason;
};

void PrintTo(const RefusedSetting& row, std::ostream* out) {
  *out << row.name;
}

class RefusedSettingTest : public CommandTest, public testing::WithParamInterface<RefusedSetting> {};

TEST_P(RefusedSettingTest, ChangesNothing) {
  const std::string before = readFile(home() + "/settings.ini");
  EXPECT_TRUE(failedWith(run({"setting", "set", GetParam().key, GetParam().value}), GetParam().reason));
  EXPECT_EQ(readFile(home() + "/settings.ini"), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusedSettingTest,
    testing::Values(RefusedSetting{"mistyped_key", "nRetryDropDb", "1", "did you mean nRetryDropDB?"},
                    RefusedSetting{"wrong_section", "Log.nRetryDropDB", "1", "did you mean nRetryDropDB?"},
                    RefusedSetting{"no_number", "nRetryDropDB", "three", "wants a number"},
                    RefusedSetting{"number_with_a_tail", "nRetryDropDB", "3x", "wants a number"},
                    RefusedSetting{"negative", "nRetryDropDB", "-1", "wants a number"},
                    RefusedSetting{"empty_number", "nRetryDropDB", "", "wants a number"},
                    RefusedSetting{"too_large", "nRetryDropDB", "99999999999999999999", "wants a number"},
                    RefusedSetting{"level_above_ten", "nLevel", "11", "from 0 to 10"},
                    RefusedSetting{"line_break", "sLibPath", "/a\n/b", "not changed"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace orrery::test
