#pragma once

#include <string>
#include <string_view>

namespace orrery::tool {

/// A text that may be shown on a terminal, which must not be steered by what a server or a file holds: control
/// characters, those that turn the direction of writing, bytes that are no UTF-8, and the backslash are escaped.
std::string printable(std::string_view text);

bool isUtf8(std::string_view text);

}  // namespace orrery::tool
