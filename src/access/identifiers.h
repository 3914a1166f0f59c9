#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orrery::mysql {

/// Where a name stands in a statement.
enum class Quoting {
  backTicks,     ///< an identifier
  singleQuotes,  ///< a text
  none,          ///< a whole statement that a caller gives
};

/// Why a name must not be put into a statement that travels on a client's command line; nothing when it may. `what`
/// names it for people. Refused is what could end the name's quoting or the statement's: names are data, never SQL.
std::optional<std::string> reasonToRefuse(const char* what, std::string_view name, Quoting quoting);

}  // namespace orrery::mysql
