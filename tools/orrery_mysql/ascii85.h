#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orrery::tool {

/// The bytes that `CAscii85::Encode` made `text` of; nothing for a text that it does not make.
std::optional<std::string> decodeAscii85(std::string_view text);

}  // namespace orrery::tool
