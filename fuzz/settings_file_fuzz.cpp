// Reading a settings text never crashes, and a change that is accepted reads back with everything else kept.
// The first three lines of the input are section, key and value; the rest is the settings text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "local/settings_text.h"

namespace {

using namespace orrery::platform::local;

void require(bool condition) {
  if (!condition) std::abort();
}

std::string takeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? text.size() : end + 1);
  return line;
}

void checkChange(const ParsedSettings& before, const std::string& changed, const std::string& section,
                 const std::string& key, const std::string& value) {
  ParsedSettings after;
  require(parseSettings(changed, after).ok());
  require(after.sections.at(section).values.at(key).text == value);
  for (const auto& [name, values] : before.sections)
    for (const auto& [known, kept] : values.values)
      if (name != section || known != key) require(after.sections.at(name).values.at(known).text == kept.text);
  std::string again;
  require(changeSettings(changed, section, key, value, again).ok());
  require(again == changed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  const std::string section = takeLine(text);
  const std::string key = takeLine(text);
  const std::string value = takeLine(text);
  ParsedSettings before;
  const bool readable = parseSettings(text, before).ok();
  std::string changed = "untouched";
  if (changeSettings(text, section, key, value, changed).ok()) {
    require(readable);
    checkChange(before, changed, section, key, value);
  } else {
    require(changed == "untouched");
  }
  return 0;
}
