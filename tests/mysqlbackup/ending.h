#pragma once

#include <chrono>

#include "orrery/platform/posix.h"

#include "failure.h"

namespace orrery::standin {

/// A request to end: SIGTERM, SIGINT or SIGHUP. From its construction on these signals interrupt nothing; they are
/// looked for where the program waits, and become a Failure there, so that every owner cleans up on its way out. Made
/// before there are threads: they inherit what is blocked.
class Ending {
 public:
  Ending();

  /// Readable when a signal is there.
  int fd() const noexcept { return fd_.get(); }
  /// Throws Failure when a signal is there.
  void check() const { waitFor(std::chrono::milliseconds(0)); }
  /// Returns when the time has passed; throws Failure when a signal comes first.
  void waitFor(std::chrono::milliseconds time) const;
  /// Ends with the Failure of a signal.
  [[noreturn]] void waitForever() const;

 private:
  platform::OwnFd fd_;
};

}  // namespace orrery::standin
