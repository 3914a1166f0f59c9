#pragma once

/// What every layer needs of the operating system itself.

#include <unistd.h>

#include <string>
#include <utility>

#include "orrery/platform/export.h"

namespace orrery::platform {

/// Sole owner of one descriptor; -1 means none.
class OwnFd {
 public:
  explicit OwnFd(int fd = -1) noexcept : fd_(fd) {}
  OwnFd(OwnFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnFd& operator=(OwnFd&& other) noexcept {
    const OwnFd earlier(std::exchange(fd_, std::exchange(other.fd_, -1)));
    return *this;
  }
  OwnFd(const OwnFd&) = delete;
  OwnFd& operator=(const OwnFd&) = delete;
  ~OwnFd() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  explicit operator bool() const noexcept { return valid(); }
  int release() noexcept { return std::exchange(fd_, -1); }
  /// For files that were written: what close() says counts. 0, or -1 with errno.
  int closeNow() noexcept { return ::close(release()); }

 private:
  int fd_;
};

/// `fd`; or, when it has the number of a standard stream, a close-on-exec copy with a higher one in its place. In a
/// process that was started without its streams a new descriptor may get such a number, and a child's redirections
/// would overwrite it. -1, with errno, for -1 and when there is no higher number; `fd` is closed then.
ORRERY_PLATFORM_EXPORT int aboveStandardStreams(int fd) noexcept;

/// Marks every descriptor but the standard streams close-on-exec, for those that were not born so. System calls only: a
/// child may call it between fork and exec.
ORRERY_PLATFORM_EXPORT void closeOthersOnExec() noexcept;

/// The system's text for an errno value, safe from several threads.
ORRERY_PLATFORM_EXPORT std::string errorText(int error);

}  // namespace orrery::platform
