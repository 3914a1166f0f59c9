#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orrery::mysql::paths {

using Row = std::vector<std::string>;

/// A value as the server has it, of one in a client's batch output, which escapes line feed, tab, null and backslash.
std::string unescaped(std::string_view value);

/// The rows of a client's batch output.
std::vector<Row> rowsOf(std::string_view output);

}  // namespace orrery::mysql::paths
