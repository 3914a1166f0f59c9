#include "thread_command_line.h"

#include <charconv>
#include <limits>
#include <utility>

#include "image_name.h"

namespace orrery::libobk {

using namespace media;
namespace {

constexpr std::uint64_t applicationTypeMySql = 104;

/// The next word; empty at the end.
std::string_view takeWord(std::string_view& text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return text = {};
  text.remove_prefix(start);
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  return word;
}

bool isNumber(std::string_view word, std::uint64_t limit, std::uint64_t& number) {
  const char* const end = word.data() + word.size();
  const auto [next, error] = std::from_chars(word.data(), end, number);
  return error == std::errc() && next == end && number <= limit;
}

bool isPair(std::string_view word, std::uint64_t& first, std::uint64_t& second) {
  constexpr auto limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const std::size_t colon = word.find(':');
  return colon != std::string_view::npos && isNumber(word.substr(0, colon), limit, first) &&
         isNumber(word.substr(colon + 1), limit, second);
}

/// Which options were there already.
struct Seen {
  bool job = false, application = false, type = false, level = false;
};

bool first(bool& seen) {
  return !std::exchange(seen, true);
}

bool takeOption(std::string_view option, std::string_view value, Seen& seen, ThreadCommandLine& line) {
  std::uint64_t number = 0;
  if (option == "-j") {
    if (!isNumber(value, std::numeric_limits<std::int64_t>::max(), number)) return false;
    line.jobId = static_cast<long long>(number);
    return first(seen.job);
  }
  if (option == "-a")
    return isPair(value, line.instanceId, line.subclientId) && (line.instanceId != 0 || line.subclientId == 0) &&
           first(seen.application);
  if (option == "-at")
    return isNumber(value, applicationTypeMySql, number) && number == applicationTypeMySql && first(seen.type);
  if (option == "-t") {
    if (!isNumber(value, std::numeric_limits<std::uint32_t>::max(), number)) return false;
    line.level = number == 2 ? 2 : 1;
    return first(seen.level);
  }
  return false;
}

std::string shortened(std::string text) {
  constexpr std::size_t longest = 60;
  if (text.size() <= longest) return text;
  text.resize(longest - 3);
  return text + "...";
}

}  // namespace

bool parseThreadCommandLine(std::string_view text, ThreadCommandLine& line, std::string& problem) {
  ThreadCommandLine read;
  Seen seen;
  for (std::string_view option = takeWord(text); !option.empty(); option = takeWord(text)) {
    const std::string_view value = takeWord(text);
    if (!takeOption(option, value, seen, read)) {
      problem =
          "\"" + shortened(printable(option) + (value.empty() ? "" : " " + printable(value))) + "\" cannot stand in it";
      return false;
    }
  }
  line = read;
  return true;
}

}  // namespace orrery::libobk
