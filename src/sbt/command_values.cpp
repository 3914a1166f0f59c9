#include "sbt/command_values.h"

#include <string_view>

using namespace std::string_view_literals;

namespace orrery::mysql::sbt {
namespace {

std::string_view refusedIn(Place place, bool throughShell) {
  if (place == Place::environment) return ",\"\n\r\0"sv;
  if (throughShell) return "\0"sv;
  return place == Place::word ? " \"'\n\r\0"sv : "\"\n\r\0"sv;
}

}  // namespace

std::string shellWord(const std::string& text) {
  constexpr const char* plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./,:=@%+-";
  if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) return text;
  std::string word = "'";
  for (const char character : text) word += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return word + "'";
}

std::string insideDoubleQuotes(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    if ("\\\"$`"sv.find(character) != std::string_view::npos) escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string whyNotHandedOver(const std::vector<CommandValue>& values, bool throughShell) {
  std::string why;
  for (const CommandValue& value : values) {
    const bool isMissing = value.place == Place::word && value.text.empty();
    if (!isMissing && value.text.find_first_of(refusedIn(value.place, throughShell)) == std::string::npos) continue;
    why +=
        (why.empty() ? "" : ", ") + std::string(value.name) + " [" + value.text.substr(0, value.text.find('\0')) + "]";
  }
  return why;
}

}  // namespace orrery::mysql::sbt
