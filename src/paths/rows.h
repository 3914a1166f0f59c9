#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orrery::mysql::paths {

using Row = std::vector<std::string>;

/// The rows of a client's batch output, their values as the server has them.
std::vector<Row> rowsOf(std::string_view output);

}  // namespace orrery::mysql::paths
