#include "access/identifiers.h"

namespace orrery::mysql {
namespace {

/// An odd number of backslashes before a closing quote makes the quote part of the text.
bool escapesClosingQuote(std::string_view text) {
  const std::size_t last = text.find_last_not_of('\\');
  const std::size_t backslashes = last == std::string_view::npos ? text.size() : text.size() - last - 1;
  return backslashes % 2 != 0;
}

std::string between(char quote, std::string_view text) {
  std::string quoted(1, quote);
  quoted.reserve(text.size() + 4);
  for (const char character : text) {
    if (character == quote) quoted += character;
    quoted += character;
  }
  return quoted += quote;
}

/// A text that means the same under every sql_mode. The name of the character set is one that all servers know.
std::string inHexadecimal(std::string_view text) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string literal = "_utf8 X'";
  literal.reserve(literal.size() + 2 * text.size() + 1);
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    literal += digits[byte >> 4];
    literal += digits[byte & 0xFU];
  }
  return literal + "'";
}

bool isPlainBackslash(std::string_view pattern, std::size_t i) {
  const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
  return pattern[i] == '\\' && next != '_' && next != '%';
}

}  // namespace

std::optional<std::string> reasonToRefuse(const char* what, std::string_view name, Quoting quoting, Carrier carrier) {
  const bool onCommandLine = carrier == Carrier::commandLine;
  const auto refused = [what](const char* why) { return std::string("the ") + what + " " + why; };
  if (name.find('\0') != std::string_view::npos) return refused("holds a null character");
  if (onCommandLine && name.find('"') != std::string_view::npos) {
    return refused("holds a double quote, which a client's command line cannot carry");
  }
  if (quoting == Quoting::none) return std::nullopt;

  if (onCommandLine && name.find_first_of("\n\r") != std::string_view::npos) return refused("holds a line break");
  if (quoting == Quoting::backTicks && name.find('`') != std::string_view::npos) return refused("holds a back-tick");
  if (quoting == Quoting::singleQuotes) {
    if (name.find('\'') != std::string_view::npos) return refused("holds a single quote");
    if (escapesClosingQuote(name)) return refused("ends in a backslash, which would escape the closing quote");
  }
  return std::nullopt;
}

std::string escapeForLike(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char character : text) {
    if (character == '_' || character == '%') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string quoteIdentifier(std::string_view name) {
  return between('`', name);
}

std::string quoteText(std::string_view name) {
  if (name.find('\\') != std::string_view::npos) return inHexadecimal(name);
  return between('\'', name);
}

bool holdsPlainBackslash(std::string_view pattern) {
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (isPlainBackslash(pattern, i)) return true;
  }
  return false;
}

std::string quotePattern(std::string_view pattern) {
  if (!holdsPlainBackslash(pattern)) return between('\'', pattern);
  // With an escape character of its own, a backslash is a character like any other to LIKE.
  std::string escaped;
  escaped.reserve(pattern.size() + 4);
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const bool escapesNext = pattern[i] == '\\' && !isPlainBackslash(pattern, i);
    if (pattern[i] == '|') escaped += '|';
    escaped += escapesNext ? '|' : pattern[i];
  }
  return inHexadecimal(escaped) + " ESCAPE '|'";
}

std::string behind(std::string_view opening, const std::string& quoted) {
  opening.remove_suffix(1);
  return std::string(opening) + quoted;
}

}  // namespace orrery::mysql
