// orrery-mysql setting list|get|set: the agent's settings.

#include <map>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "context.h"
#include "failure.h"
#include "known_settings.h"

namespace orrery::tool {
namespace {

constexpr const char* kCannotRead = "the settings cannot be read";

const KnownSetting& requireKnown(const std::string& key) {
  if (const KnownSetting* setting = findSetting(key)) return *setting;
  throw Failure("there is no setting " + key, "did you mean " + nearestSetting(key) + "?",
                "orrery-mysql setting list shows all");
}

/// The value as the program that reads it wants it: a number as a number.
Json valueInJson(const KnownSetting& setting, const std::string& value) {
  if (setting.isNumber && !refuseValue(setting, value)) return Json(std::stol(value));
  return Json(value);
}

void listSettings(Context& context) {
  platform::Settings& settings = *context.services().settings;
  std::map<std::string, std::map<std::string, std::string>> sections;
  for (const KnownSetting& setting : knownSettings()) {
    if (sections.contains(setting.section)) continue;
    require(settings.list(setting.section, sections[setting.section]), kCannotRead);
  }
  Json list = Json::array();
  Table table({"SECTION", "KEY", "VALUE", "DEFAULT", "SET", "MEANING"});
  for (const KnownSetting& setting : knownSettings()) {
    const auto& section = sections[setting.section];
    const auto found = section.find(setting.key);
    const bool isSet = found != section.end();
    const std::string value = isSet ? found->second : setting.defaultValue;
    Json entry;
    entry["section"] = setting.section;
    entry["key"] = setting.key;
    entry["type"] = setting.isNumber ? "number" : "string";
    entry["value"] = valueInJson(setting, value);
    entry["default"] = valueInJson(setting, setting.defaultValue);
    entry["is_set"] = isSet;
    entry["meaning"] = setting.meaning;
    list.push_back(std::move(entry));
    const auto shown = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
    table.add({setting.section, setting.key, shown(value), shown(setting.defaultValue), isSet ? "yes" : "no",
               setting.meaning});
  }
  Json document;
  document["settings"] = std::move(list);
  context.print(document, table);
}

void printSetting(const Context& context, const KnownSetting& setting, const std::string& value, bool isSet) {
  Json document;
  document["section"] = setting.section;
  document["key"] = setting.key;
  document["value"] = valueInJson(setting, value);
  document["is_set"] = isSet;
  Table table;
  table.add({setting.key, value});
  context.print(document, table);
}

void getSetting(Context& context, const std::string& key) {
  const KnownSetting& setting = requireKnown(key);
  std::optional<std::string> value;
  require(context.services().settings->read(setting.section, setting.key, value), kCannotRead);
  printSetting(context, setting, value.value_or(setting.defaultValue), value.has_value());
}

void setSetting(Context& context, const std::string& key, const std::string& value) {
  const KnownSetting& setting = requireKnown(key);
  if (const auto reason = refuseValue(setting, value)) {
    throw Failure("the value " + value + " of " + setting.key + " is refused", *reason);
  }
  require(context.services().settings->write(setting.section, setting.key, value),
          std::string("the setting ") + setting.key + " is not changed");
  printSetting(context, setting, value, true);
}

}  // namespace

void addSettingCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("setting", "The agent's settings");
  group->require_subcommand(1);
  group->add_subcommand("list", "List all settings with what they mean")->callback([&chosen] {
    chosen = listSettings;
  });

  auto key = std::make_shared<std::string>();
  CLI::App* get = group->add_subcommand("get", "Show one setting");
  get->add_option("KEY", *key, "Key, alone or as Section.Key")->required();
  get->callback([key, &chosen] { chosen = [key](Context& context) { getSetting(context, *key); }; });

  auto value = std::make_shared<std::string>();
  CLI::App* set = group->add_subcommand("set", "Change one setting");
  set->add_option("KEY", *key, "Key, alone or as Section.Key")->required();
  set->add_option("VALUE", *value, "The new value")->required();
  set->callback(
      [key, value, &chosen] { chosen = [key, value](Context& context) { setSetting(context, *key, *value); }; });
}

}  // namespace orrery::tool
