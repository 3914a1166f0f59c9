#include "posix.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace orrery::platform::local {

Failure systemFailure(const std::string& step, int error, int code) {
  return Failure({code, "cannot " + step + ": " + errorText(error)});
}

FolderLock::FolderLock(int directoryFd, const std::string& path) : fd_(directoryFd) {
  while (::flock(fd_, LOCK_EX) != 0)
    if (errno != EINTR) throw systemFailure("lock the folder " + path, errno);
}

FolderLock::~FolderLock() {
  // Said explicitly: a child that was forked meanwhile may still hold a copy of the descriptor.
  ::flock(fd_, LOCK_UN);
}

OwnFd openFolder(const std::string& path) {
  OwnFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) throw systemFailure("open the folder " + path, errno);
  return folder;
}

std::string readWhole(int fd, const std::string& path, std::size_t limit) {
  std::string bytes;
  char buffer[8192];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw systemFailure("read " + path, errno);
    if (got == 0) return bytes;
    bytes.append(buffer, static_cast<std::size_t>(got));
    if (bytes.size() > limit)
      throw Failure(Status::failure(path + " is larger than the " + std::to_string(limit) + " bytes it may have"));
  }
}

void writeWhole(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t put = ::write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) throw systemFailure("write " + path, errno);
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
}

void syncToDisk(int fd, const std::string& path) {
  if (::fsync(fd) != 0) throw systemFailure("write " + path + " to the disk", errno);
}

}  // namespace orrery::platform::local
