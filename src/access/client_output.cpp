#include "access/client_output.h"

#include <cctype>
#include <charconv>
#include <cstdlib>

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

}  // namespace

int errorNumberIn(std::string_view text) {
  for (std::string_view rest = text; !rest.empty();) {
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
