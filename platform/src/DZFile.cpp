#include "orrery/platform/DZFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "orrery/platform/services.h"

using orrery::platform::OwnFd;

namespace {

constexpr std::int64_t longestStep = 50;  // milliseconds

/// A lock of the open file description: record locks of the process would not exclude its own other objects, and would
/// end when any of them closes the file. Programs that take ordinary record locks exclude it and are excluded.
int setLock(int fd, short type) noexcept {
  struct flock range {};  // from 0, without an end: the whole file
  range.l_type = type;
  range.l_whence = SEEK_SET;
  return fcntl(fd, F_OFD_SETLK, &range);
}

}  // namespace

bool DZFile::open(const std::string& path, int mode) noexcept {
  int flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
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
  if (mode != lockExclusive) {
    lastError_ = EINVAL;
    return -1;
  }
  std::int64_t left = std::int64_t{seconds} * 1000;
  for (std::int64_t step = 1;; step = std::min(step * 2, longestStep)) {
    if (setLock(file_.get(), F_WRLCK) == 0) return 1;
    if (errno != EAGAIN && errno != EACCES) {
      lastError_ = errno;
      return -1;
    }
    if (left <= 0) return 0;
    step = std::min(step, left);
    left -= step;
    orrery::platform::services().clock->sleep(step);
  }
}

int DZFile::unlock() noexcept {
  if (setLock(file_.get(), F_UNLCK) == 0) return 0;
  lastError_ = errno;
  return -1;
}

bool DZFile::isNamedBy(const std::string& path) const noexcept {
  struct stat named {};
  struct stat open {};
  return lstat(path.c_str(), &named) == 0 && fstat(file_.get(), &open) == 0 && named.st_dev == open.st_dev &&
         named.st_ino == open.st_ino;
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

CKyError CKyPath::IsLink(const std::string& path, bool& isLink) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return {errno, path + ": " + orrery::platform::errorText(errno)};
  isLink = S_ISLNK(info.st_mode);
  return {};
}

CKyError UnixSymbolicLink::getPhysicalPath(const std::string& link, std::string& physical) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::path resolved = fs::canonical(link, error);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
      error == std::errc::too_many_symbolic_link_levels) {
    // ".." in a link is counted from the folder that really holds it, which may itself have been reached by a link.
    const fs::path target = fs::read_symlink(link, error);
    if (!error) resolved = (fs::canonical(fs::absolute(link).parent_path(), error) / target).lexically_normal();
  }
  if (error) return {error.value(), link + ": " + orrery::platform::errorText(error.value())};
  physical = resolved.string();
  return {};
}
