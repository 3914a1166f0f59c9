#include "access/client_output.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <string>

namespace orrery::mysql {
namespace {

constexpr std::string_view errorWord = "ERROR ";

/// The number behind "ERROR " at the start of a line; -1 when the line is no such line.
int numberOfErrorLine(std::string_view line) {
  if (line.substr(0, errorWord.size()) != errorWord) return -1;
  line.remove_prefix(errorWord.size());
  int number = -1;
  const auto result = std::from_chars(line.data(), line.data() + line.size(), number);
  return result.ec == std::errc() ? number : -1;
}

/// Some clients print the failed statement first, between two rules; a line of it is not the server's.
std::string_view behindEcho(std::string_view text) {
  constexpr std::string_view rule = "--------------\n";
  if (text.substr(0, rule.size()) != rule) return text;
  const std::size_t last = text.rfind("\n" + std::string(rule));
  return last == std::string_view::npos ? text : text.substr(last + 1 + rule.size());
}

}  // namespace

std::string unescapeValue(std::string_view value) {
  constexpr std::string_view letters = "nt0\\";
  constexpr std::string_view meanings("\n\t\0\\", 4);
  std::string plain;
  plain.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    const std::size_t letter =
        value[i] == '\\' && i + 1 < value.size() ? letters.find(value[i + 1]) : std::string_view::npos;
    if (letter == std::string_view::npos) {
      plain += value[i];
    } else {
      plain += meanings[letter];
      ++i;
    }
  }
  return plain;
}

int errorNumberIn(std::string_view text) {
  for (std::string_view rest = behindEcho(text); !rest.empty();) {
    const std::size_t end = rest.find('\n');
    if (const int number = numberOfErrorLine(rest.substr(0, end)); number >= 0) return number;
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  const std::size_t first = text.find_first_not_of(' ');
  const std::size_t blank = first == std::string_view::npos ? first : text.find(' ', first);
  const std::size_t second = blank == std::string_view::npos ? blank : text.find_first_not_of(' ', blank);
  if (second == std::string_view::npos) return -1;
  return static_cast<int>(std::strtol(std::string(text.substr(second)).c_str(), nullptr, 10));
}

}  // namespace orrery::mysql
