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

/// How the statement travels.
enum class Carrier {
  commandLine,  ///< in double quotes, as an argument of a client
  connection,   ///< as it is
};

/// Why a name must not be put into a statement; nothing when it may. `what` names it for people. Refused is what could
/// end the name's quoting, the statement's, or the line's: names are data, never SQL.
std::optional<std::string> reasonToRefuse(const char* what, std::string_view name, Quoting quoting,
                                          Carrier carrier = Carrier::commandLine);

/// `text` with a backslash before every "_" and "%", so that a LIKE pattern matches it literally.
std::string escapeForLike(std::string_view text);

}  // namespace orrery::mysql
