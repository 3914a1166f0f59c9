#pragma once

#include <unistd.h>

#include <utility>

namespace orrery::mysql {

/// Sole owner of one descriptor; -1 means none.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) noexcept : fd_(fd) {}
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;
  ~OwnedFd() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }
  /// For files that were written: what close() says counts. 0, or -1 with errno.
  int closeNow() noexcept { return ::close(release()); }

 private:
  int fd_;
};

}  // namespace orrery::mysql
