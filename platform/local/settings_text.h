#pragma once

/// The text of settings.ini as a value: reading it, and changing one key of it. No file is touched here.

#include <map>
#include <string>
#include <string_view>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// What a settings text says, and on which lines (counted from 0).
struct ParsedSettings {
  struct Value {
    std::string text;
    std::size_t line = 0;
    bool operator==(const Value& other) const { return text == other.text; }
  };
  struct Section {
    std::map<std::string, Value> values;
    std::size_t lastLine = 0;  ///< its heading or its last key, whichever comes later
  };
  std::map<std::string, Section> sections;
};

/// Reads a whole text. A line that means nothing, is too long for the reader, gives a key a second time, or stands
/// before the first section makes the text invalid: statusFailed with "settings.ini line N: ...".
Status parseSettings(std::string_view text, ParsedSettings& parsed);

/// Whether a section, key and value can be named in a settings text at all; statusInvalid says what is wrong.
Status checkSetting(const std::string& section, const std::string& key, const std::string& value);

/// The text with one key set and every other line kept. statusInvalid when the result would not read back as meant;
/// statusFailed when `text` itself cannot be read.
Status changeSettings(const std::string& text, const std::string& section, const std::string& key,
                      const std::string& value, std::string& changed);

}  // namespace orrery::platform::local
