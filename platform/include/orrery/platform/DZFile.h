#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/export.h"
#include "orrery/platform/posix.h"

/// A file that is read and written with plain system calls. Closed when the object ends; never through a link in the
/// last part of its path, and not inherited by programs that the process starts. What is no plain file (a pipe under
/// the file's name, say) fails instead of waiting.
///
/// A failed operation leaves the system's error number in `lastError()`. One object is used by one thread.
class ORRERY_PLATFORM_EXPORT DZFile {
 public:
  enum Mode {
    modeRead = 1,
    modeWrite = 2,      ///< an existing file, from its start, without cutting it
    modeReadWrite = 3,  ///< made when it does not exist, readable by its owner alone
  };
  enum LockMode {
    lockExclusive = 0,  ///< this object alone; the file must be open for writing
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
  /// Locks the whole file, waiting at most `seconds` while another holder has it; 0: one try. Positive when the lock
  /// was obtained, 0 when it was not within the wait, negative on failure. The lock belongs to this object: it excludes
  /// other objects of this process as well as other processes, closing another object of the same file leaves it alone,
  /// and it ends with `unlock`, `close`, the object, or the process, however that ends. Waiting goes through the clock,
  /// in steps that grow to 50 ms; those who wait are not served in their order.
  int lock(int mode, int seconds) noexcept;
  /// 0 on success, also without a lock; -1 on failure.
  int unlock() noexcept;
  /// Whether `path` names the very file that is open; false when it names another or none since.
  bool isNamedBy(const std::string& path) const noexcept;
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
  /// Whether `path` itself is a symbolic link; `isLink` is written on success only. What is not there is an error.
  static CKyError IsLink(const std::string& path, bool& isLink);
};

class ORRERY_PLATFORM_EXPORT UnixSymbolicLink {
 public:
  /// Where a link leads in the end, without links, "." and "..". A link that leads nowhere, or in a circle: what it
  /// names itself, made absolute by the folder it lies in. `physical` is written on success only.
  static CKyError getPhysicalPath(const std::string& link, std::string& physical);
};
