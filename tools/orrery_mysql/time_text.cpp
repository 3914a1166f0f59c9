#include "time_text.h"

#include <time.h>

#include <array>
#include <charconv>
#include <chrono>
#include <limits>

namespace orrery::tool {

std::string timeText(std::int64_t microseconds) {
  const time_t seconds = microseconds / 1000000;
  tm parts{};
  std::array<char, 32> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr) return "?";
  return {text.data(), ::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

namespace {

/// Times are kept in microseconds.
constexpr std::int64_t latestSeconds = std::numeric_limits<std::int64_t>::max() / 1000000;

/// Two digits.
std::optional<int> number(std::string_view text) {
  int value = 0;
  if (text.size() != 2 || text[0] < '0' || text[0] > '9') return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// "Z", "+HH:MM" or "-HH:MM", in seconds.
std::optional<std::int64_t> offsetOf(std::string_view text) {
  if (text == "Z") return 0;
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return std::nullopt;
  const std::optional<int> hours = number(text.substr(1, 2));
  const std::optional<int> minutes = number(text.substr(4, 2));
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  const std::int64_t seconds = *hours * 3600 + *minutes * 60;
  return text[0] == '-' ? -seconds : seconds;
}

}  // namespace

std::optional<std::int64_t> secondsOf(const std::string& text) {
  std::int64_t seconds = 0;
  if (const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
      error == std::errc() && end == text.data() + text.size())
    return seconds >= 0 && seconds <= latestSeconds ? std::optional(seconds) : std::nullopt;
  constexpr std::size_t local = std::char_traits<char>::length("2026-03-01T22:15:04");
  tm parts{};
  const char* const rest = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  if (rest == nullptr || rest != text.c_str() + local) return std::nullopt;
  const std::chrono::year_month_day day(std::chrono::year(parts.tm_year + 1900),
                                        std::chrono::month(static_cast<unsigned>(parts.tm_mon) + 1),
                                        std::chrono::day(static_cast<unsigned>(parts.tm_mday)));
  const std::optional<std::int64_t> offset = offsetOf(std::string_view(text).substr(local));
  if (!day.ok() || parts.tm_sec > 59 || !offset) return std::nullopt;
  return std::int64_t{std::chrono::sys_days(day).time_since_epoch().count()} * 86400 + parts.tm_hour * 3600 +
         parts.tm_min * 60 + parts.tm_sec - *offset;
}

}  // namespace orrery::tool
