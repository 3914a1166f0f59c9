#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orrery::tool {

/// One setting that the agent reads.
struct KnownSetting {
  const char* section;
  const char* key;
  bool isNumber;
  const char* defaultValue;
  long highest;  ///< of a number; the lowest is 0
  const char* meaning;
};

std::span<const KnownSetting> knownSettings();

/// The setting of a key, alone or as Section.Key; null when there is none.
const KnownSetting* findSetting(std::string_view key);

/// The known key that is most like a mistyped one.
std::string nearestSetting(std::string_view key);

/// Why a setting cannot have a value; nothing when it can.
std::optional<std::string> refuseValue(const KnownSetting& setting, std::string_view value);

}  // namespace orrery::tool
