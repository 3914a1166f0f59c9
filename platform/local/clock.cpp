#include "clock.h"

#include <time.h>

#include <cerrno>

namespace orrery::platform::local {

std::int64_t microsecondsNow() noexcept {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

void SystemClock::sleep(std::int64_t milliseconds) noexcept {
  if (milliseconds <= 0) return;
  // An absolute time on the monotonic clock: signals and changes of the wall clock do not alter how long it takes.
  timespec until{};
  ::clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += milliseconds / 1000;
  until.tv_nsec += milliseconds % 1000 * 1000000;
  if (until.tv_nsec >= 1000000000) {
    until.tv_nsec -= 1000000000;
    ++until.tv_sec;
  }
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

}  // namespace orrery::platform::local
