#include "access/identifiers.h"

namespace orrery::mysql {
namespace {

/// An odd number of backslashes before a closing quote makes the quote part of the text.
bool escapesClosingQuote(std::string_view text) {
  const std::size_t last = text.find_last_not_of('\\');
  const std::size_t backslashes = last == std::string_view::npos ? text.size() : text.size() - last - 1;
  return backslashes % 2 != 0;
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

std::string escapeText(std::string_view name) {
  std::string escaped;
  escaped.reserve(name.size());
  for (const char character : name) {
    if (character == '\'' || character == '\\') escaped += character;
    escaped += character;
  }
  return escaped;
}

std::string escapePattern(std::string_view pattern) {
  std::string escaped;
  escaped.reserve(pattern.size());
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
    if (pattern[i] == '\'') {
      escaped += "''";
    } else if (pattern[i] == '\\' && next != '_' && next != '%') {
      escaped += R"(\\\\)";  // the text's reader halves them, and so does LIKE
    } else {
      escaped += pattern[i];
    }
  }
  return escaped;
}

}  // namespace orrery::mysql
