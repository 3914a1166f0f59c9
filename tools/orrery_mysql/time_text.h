#pragma once

#include <cstdint>
#include <string>

namespace orrery::tool {

/// A moment in UTC for people and programs, "2026-03-01T22:15:04Z"; "?" for one that no calendar has.
std::string timeText(std::int64_t microseconds);

}  // namespace orrery::tool
