#include "orrery/platform/DZFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "orrery/platform/services.h"

using orrery::platform::OwnFd;

bool DZFile::open(const std::string& path, int mode) noexcept {
  int flags = O_CLOEXEC | O_NOFOLLOW;
  switch (mode) {
    case modeRead:
      flags |= O_RDONLY;
      break;
    case modeWrite:
      flags |= O_WRONLY;
      break;
    case modeReadWrite:
      flags |= O_RDWR | O_CREAT;
      break;
    default:
      lastError_ = EINVAL;
      return false;
  }
  file_ = OwnFd(::open(path.c_str(), flags, 0600));
  if (!file_.valid()) lastError_ = errno;
  return file_.valid();
}

bool DZFile::seekToEnd() noexcept {
  if (lseek(file_.get(), 0, SEEK_END) >= 0) return true;
  lastError_ = errno;
  return false;
}

ssize_t DZFile::read(void* buffer, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = ::read(file_.get(), buffer, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) lastError_ = errno;
  return count;
}

int DZFile::write(const void* bytes, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = ::write(file_.get(), bytes, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    lastError_ = errno;
    return -1;
  }
  if (static_cast<std::size_t>(count) == size) return 0;
  lastError_ = ENOSPC;
  return -2;
}

int DZFile::lock(int mode, int seconds) noexcept {
  constexpr int stepsPerSecond = 10;
  if (mode != 0) {
    lastError_ = EINVAL;
    return -1;
  }
  for (int step = 0;; ++step) {
    if (::flock(file_.get(), LOCK_EX | LOCK_NB) == 0) return 1;
    if (errno != EWOULDBLOCK && errno != EINTR) {
      lastError_ = errno;
      return -1;
    }
    if (step >= seconds * stepsPerSecond) return 0;
    orrery::platform::services().clock->sleep(1000 / stepsPerSecond);
  }
}

int DZFile::unlock() noexcept {
  if (::flock(file_.get(), LOCK_UN) == 0) return 0;
  lastError_ = errno;
  return -1;
}

int DZFile::close() noexcept {
  if (!file_.valid() || file_.closeNow() == 0) return 0;
  lastError_ = errno;
  return -1;
}

bool CKyPath::IsFile(const std::string& path) noexcept {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}
