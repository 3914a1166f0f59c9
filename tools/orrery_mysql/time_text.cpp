#include "time_text.h"

#include <time.h>

#include <array>

namespace orrery::tool {

std::string timeText(std::int64_t microseconds) {
  const time_t seconds = microseconds / 1000000;
  tm parts{};
  std::array<char, 32> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr) return "?";
  return {text.data(), ::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace orrery::tool
