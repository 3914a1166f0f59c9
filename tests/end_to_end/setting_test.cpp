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
  EXPECT_TRUE(has(find(settings, "nStartServerWaitTime"),
                  {{"section", "MySQL"}, {"value", 20}, {"default", 180}, {"is_set", true}}));
  EXPECT_TRUE(has(find(settings, "sLibPath"), {{"value", ""}, {"is_set", false}}));
  for (const Json& setting : settings["settings"]) EXPECT_FALSE(setting["meaning"].get<std::string>().empty());
}

TEST_F(SettingTest, AKeyIsFoundAloneAndWithItsSectionAndItsPlainNameInEverySection) {
  runJson({"setting", "set", "MySQL.sServerStartCmd", "systemctl start mariadb"});
  for (const char* key : {"sServerStartCmd", "MySQL.sServerStartCmd"}) {
    EXPECT_TRUE(has(runJson({"setting", "get", key}), {{"value", "systemctl start mariadb"}, {"is_set", true}}));
  }
  EXPECT_EQ(run({"setting", "get", "nRetryDropDB"}).output, "nRetryDropDB  1\n");
  runJson({"setting", "set", "Log.nLevel", "7"});
  EXPECT_EQ(runJson({"setting", "get", "nLevel"})["value"], 7);
}

TEST_F(SettingTest, RefusedValuesChangeNothing) {
  const struct {
    const char* key;
    const char* value;
    const char* reason;
  } table[] = {{"nRetryDropDb", "1", "did you mean nRetryDropDB?"},
               {"Log.nRetryDropDB", "1", "did you mean nRetryDropDB?"},
               {"nRetryDropDB", "three", "wants a number"},
               {"nRetryDropDB", "3x", "wants a number"},
               {"nRetryDropDB", "-1", "wants a number"},
               {"nRetryDropDB", "", "wants a number"},
               {"nRetryDropDB", "99999999999999999999", "wants a number"},
               {"nLevel", "11", "from 0 to 10"},
               {"sLibPath", "/a\n/b", "not changed"}};
  const std::string before = readFile(home() + "/settings.ini");
  for (const auto& row : table) {
    EXPECT_TRUE(failedWith(run({"setting", "set", row.key, row.value}), row.reason)) << row.key << " " << row.value;
    EXPECT_EQ(readFile(home() + "/settings.ini"), before);
  }
}

}  // namespace
}  // namespace orrery::test
