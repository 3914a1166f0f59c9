#pragma once

/// The form of a line of the log. Safe in a child process between fork and exec: stack only, no lock, no libc time
/// zone.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// When and by whom a line is written.
struct LogOrigin {
  std::int64_t microseconds = 0;
  pid_t process = 0;
  pid_t thread = 0;
};

/// Bytes that are enough for any line of this tag and text.
std::size_t roomForLogLine(const LogLine& line) noexcept;

/// Writes the line with its line break to `out` and returns its length. A line that does not fit is cut, never within
/// an escape, and ends in "...". `capacity` is at least 256.
std::size_t formatLogLine(const LogLine& line, const LogOrigin& origin, char* out, std::size_t capacity) noexcept;

}  // namespace orrery::platform::local
