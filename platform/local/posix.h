#pragma once

/// The operating-system services that the embedded default shares: descriptors, locks, whole files.

#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

#include "orrery/platform/posix.h"

#include "failure.h"

namespace orrery::platform::local {

/// Holds an advisory lock on an open folder for one scope. The lock belongs to the open description, so it excludes
/// other threads of the process as well as other processes.
class [[nodiscard]] FolderLock {
 public:
  /// Waits for the lock. Throws Failure.
  FolderLock(int directoryFd, const std::string& path);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

/// Removes a file of a folder at the end of the scope, unless it was kept.
class [[nodiscard]] TemporaryName {
 public:
  TemporaryName(int directoryFd, std::string name) : directoryFd_(directoryFd), name_(std::move(name)) {}
  ~TemporaryName() {
    if (!name_.empty()) ::unlinkat(directoryFd_, name_.c_str(), 0);
  }
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  void keep() noexcept { name_.clear(); }

 private:
  int directoryFd_;
  std::string name_;
};

/// "cannot STEP: the system's reason" as an exception.
Failure systemFailure(const std::string& step, int error, int code = statusFailed);

OwnFd openFolder(const std::string& path);

/// Reads to the end of the file; a file of more than `limit` bytes is refused. `path` is for the message.
std::string readWhole(int fd, const std::string& path, std::size_t limit);
void writeWhole(int fd, std::string_view bytes, const std::string& path);
void syncToDisk(int fd, const std::string& path);

}  // namespace orrery::platform::local
