#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "output.h"

namespace orrery::tool {

/// Adds a text that may hold any bytes. Where it is no UTF-8 it has U+FFFD in place of what is not, and the key with
/// "_hex" behind it holds the bytes as they are.
void addText(Json& object, const std::string& key, const std::string& text);

/// The same for a list of texts; the list with "_hex" has null for those that are UTF-8.
void addTexts(Json& object, const std::string& key, const std::vector<std::string>& texts);

/// As `Json::dump`, with U+FFFD in place of what is no UTF-8.
std::string dumped(const Json& json, int indent = -1);

}  // namespace orrery::tool
