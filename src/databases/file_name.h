#pragma once

#include <string>
#include <string_view>

namespace orrery::mysql {

/// The encoding of `GetMySqlInfo::getMySqlHexName`.
std::string encodeFileName(std::string_view name);

}  // namespace orrery::mysql
