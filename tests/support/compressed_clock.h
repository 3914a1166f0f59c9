#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "orrery/platform/services.h"

namespace orrery::test {

/// A clock that shows another one's time, and sleeps in its own way besides.
class SleepingClock final : public platform::Clock {
 public:
  using Sleep = std::function<void(std::int64_t)>;  ///< gets the milliseconds
  SleepingClock(std::shared_ptr<platform::Clock> shown, Sleep sleep)
      : shown_(std::move(shown)), sleep_(std::move(sleep)) {}
  std::int64_t now() noexcept override { return shown_->now(); }
  void sleep(std::int64_t milliseconds) noexcept override {
    shown_->sleep(milliseconds);
    sleep_(milliseconds);
  }

 private:
  const std::shared_ptr<platform::Clock> shown_;
  const Sleep sleep_;
};

/// The same services on such a clock.
inline std::shared_ptr<const platform::Services> withSleep(const std::shared_ptr<const platform::Services>& services,
                                                           SleepingClock::Sleep sleep) {
  auto changed = std::make_shared<platform::Services>(*services);
  changed->clock = std::make_shared<SleepingClock>(services->clock, std::move(sleep));
  return changed;
}

/// A second of sleep takes a tenth: children of the test run while its threads wait, and long waits are short.
inline std::shared_ptr<const platform::Services> withCompressedClock(
    const std::shared_ptr<const platform::Services>& services) {
  return withSleep(services, [](std::int64_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds) / 10);
  });
}

}  // namespace orrery::test
