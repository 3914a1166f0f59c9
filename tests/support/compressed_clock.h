#pragma once

#include <chrono>
#include <memory>
#include <thread>

#include "orrery/platform/services.h"

namespace orrery::test {

/// A clock on which a second of sleep takes a tenth: children of the test run while its threads wait, and long waits
/// are short.
class CompressedClock final : public platform::Clock {
 public:
  explicit CompressedClock(std::shared_ptr<platform::Clock> shown) : shown_(std::move(shown)) {}
  std::int64_t now() noexcept override { return shown_->now(); }
  void sleep(std::int64_t milliseconds) noexcept override {
    shown_->sleep(milliseconds);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds) / 10);
  }

 private:
  const std::shared_ptr<platform::Clock> shown_;
};

/// The same services on such a clock.
inline std::shared_ptr<const platform::Services> withCompressedClock(
    const std::shared_ptr<const platform::Services>& services) {
  auto changed = std::make_shared<platform::Services>(*services);
  changed->clock = std::make_shared<CompressedClock>(services->clock);
  return changed;
}

}  // namespace orrery::test
