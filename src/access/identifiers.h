#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orrery::mysql {

/// Where a name stands in a statement.
enum class Quoting {
  backTicks,     ///< an identifier
  singleQuotes,  ///< a text, as it is
  escaped,       ///< a text, written by `quoteText` or `quotePattern`
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

// A name in a statement, quotes included, so that the server reads this name and nothing else under every
// sql_mode. Backslashes mean different things between quotes (NO_BACKSLASH_ESCAPES), so a text with one is written in
// hexadecimal digits; one without makes the statement that it always made.

/// `name` between back-ticks, one in it doubled.
std::string quoteIdentifier(std::string_view name);
/// `name` as a text to compare with.
std::string quoteText(std::string_view name);
/// `pattern` as a text behind LIKE. A backslash before "_" or "%" takes their meaning from them, as `escapeForLike`
/// writes it; any other backslash stands for itself. What `escapeForLike` makes of a name matches that name alone.
std::string quotePattern(std::string_view pattern);
/// A statement up to the quote that a text begins with, and that text as one of the two wrote it.
std::string behind(std::string_view opening, const std::string& quoted);
/// Whether a backslash in `pattern` stands for itself: then `quotePattern` writes more than a text between quotes.
bool holdsPlainBackslash(std::string_view pattern);

}  // namespace orrery::mysql
