#include "discovery/version.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "orrery/platform/FXString.h"

namespace orrery::mysql::discovery {
namespace {

constexpr long oldestMajor = 5;
constexpr long oldestMinor = 2;

/// The leading digits; 0 without any.
long numberOf(const std::string& text) {
  return std::strtol(text.c_str(), nullptr, 10);
}

}  // namespace

std::optional<std::string> versionIn(const std::string& output) {
  const std::vector<std::string> words = FXString::Split(output, ' ');
  const auto ver = std::find(words.begin(), words.end(), "Ver");
  if (ver == words.end()) return std::nullopt;
  return ver + 1 == words.end() ? std::string() : *(ver + 1);
}

VersionVerdict verdictOn(const std::string& version) {
  const std::vector<std::string> parts = FXString::Split(version, '.');
  if (parts.size() < 2) return VersionVerdict::improper;
  const long major = numberOf(parts[0]);
  const bool supported = major > oldestMajor || (major == oldestMajor && numberOf(parts[1]) >= oldestMinor);
  return supported ? VersionVerdict::supported : VersionVerdict::tooOld;
}

}  // namespace orrery::mysql::discovery
