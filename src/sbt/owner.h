#pragma once

#include <string>

namespace orrery::mysql::sbt {

/// Whether a text can be the name or the number of a user or a group, so that it can stand in front of or behind the
/// ":" of chown and is no option.
bool isOwnerName(const std::string& name);

}  // namespace orrery::mysql::sbt
