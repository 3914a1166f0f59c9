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

}  // namespace orrery::mysql
