#pragma once

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// Microseconds since the epoch. Async-signal-safe.
std::int64_t microsecondsNow() noexcept;

class SystemClock final : public Clock {
 public:
  std::int64_t now() noexcept override { return microsecondsNow(); }
  void sleep(std::int64_t milliseconds) noexcept override;
};

}  // namespace orrery::platform::local
