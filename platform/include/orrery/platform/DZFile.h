#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "orrery/platform/export.h"
#include "orrery/platform/posix.h"

/// A file that is read and written with plain system calls. Closed when the object ends; never through a link in the
/// last part of its path, and not inherited by programs that the process starts.
///
/// A failed operation leaves the system's error number in `lastError()`. One object is used by one thread.
class ORRERY_PLATFORM_EXPORT DZFile {
 public:
  enum Mode {
    modeRead = 1,
    modeWrite = 2,      ///< an existing file, from its start, without cutting it
    modeReadWrite = 3,  ///< made when it does not exist, readable by its owner alone
  };

  /// Opens a file; an earlier one of this object is closed first. Whether it worked.
  bool open(const std::string& path, int mode) noexcept;
  bool isOpen() const noexcept { return file_.valid(); }
  /// Moves to the end, where the next write begins. Whether it worked.
  bool seekToEnd() noexcept;
  /// Bytes read, at most `size`; 0 at the end of the file, -1 on failure.
  ssize_t read(void* buffer, std::size_t size) noexcept;
  /// 0 on success, -1 on failure, -2 when only a part could be written.
  int write(const void* bytes, std::size_t size) noexcept;
  /// Takes an exclusive lock (mode 0) on the open file, waiting at most that long. Advisory; other objects of this
  /// process are kept out like other processes. Above 0: obtained; 0: not within the wait; below 0: failed.
  int lock(int mode, int seconds) noexcept;
  /// Gives the lock back; so does the end of the object. 0, or -1 on failure.
  int unlock() noexcept;
  /// 0 on success; -1 when the system reports only now that something was not written. Also 0 when nothing is open.
  int close() noexcept;

  int lastError() const noexcept { return lastError_; }

 private:
  orrery::platform::OwnFd file_;
  int lastError_ = 0;
};

/// Paths that the file system is asked about.
class ORRERY_PLATFORM_EXPORT CKyPath {
 public:
  /// Whether `path` leads to a plain file; links are followed.
  static bool IsFile(const std::string& path) noexcept;
};
