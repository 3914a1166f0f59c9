#pragma once

#include <optional>
#include <string>

namespace orrery::mysql::discovery {

/// The word behind "Ver" in what a server's program says of itself; nothing without "Ver".
std::optional<std::string> versionIn(const std::string& output);

enum class VersionVerdict { supported, tooOld, improper };
VersionVerdict verdictOn(const std::string& version);

}  // namespace orrery::mysql::discovery
