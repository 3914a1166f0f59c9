#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orrery::tool {

/// A moment in UTC for people and programs, "2026-03-01T22:15:04Z"; "?" for one that no calendar has.
std::string timeText(std::int64_t microseconds);

/// Seconds since the epoch of what timeText writes, of the same with an offset ("2026-03-01T23:15:04+01:00") in place
/// of the Z, or of a plain number of seconds. Nothing for another text, one without a zone among them, and for a time
/// whose microseconds are more than a number holds.
std::optional<std::int64_t> secondsOf(const std::string& text);

}  // namespace orrery::tool
