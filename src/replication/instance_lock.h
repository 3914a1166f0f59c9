#pragma once

#include <string>

#include "orrery/platform/DZFile.h"
#include "orrery/platform/EvEvent.h"

namespace orrery::mysql {

/// The two files in which the backups of one instance meet.
struct InstanceFiles {
  InstanceFiles() = default;
  InstanceFiles(const std::string& directory, unsigned long instanceId);

  std::string lock;     ///< without content; only its lock counts
  std::string counter;  ///< how many backups hold the replica stopped, in decimal
};

/// The lock that orders all who read or write an instance's counter. It ends with this object.
///
/// The first backup that stops the replica deletes the lock file, so one who waits may be given the lock of a file that
/// no longer bears the name while another locks its successor. `acquire` therefore looks whether the name still leads
/// to the locked file, and goes after the new one when it does not; and the deletion happens last of all, when
/// everything that the lock protects is written.
class [[nodiscard]] InstanceLock {
 public:
  InstanceLock(const EvEvent& log, const char* tag, std::string path);
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  /// Opens the file, which is made when it does not exist.
  bool open() noexcept { return file_.open(path_, DZFile::modeReadWrite); }
  int lastError() const noexcept { return file_.lastError(); }
  /// Opens it and logs why it cannot be opened.
  bool openOrTell() noexcept;

  /// What operations say around the wait; people search their logs for both forms.
  struct Words {
    const char* trying = "Trying lock...";
    const char* obtained = "Obtained lock.";
  };
  /// Waits for the lock of the open file, five times two minutes. A failure is logged.
  bool acquire(Words words) noexcept;
  bool acquire() noexcept { return acquire(Words{}); }

  /// The file goes by name, just before the lock does, however that ends.
  void deleteFileAtEnd() noexcept { isDeletedAtEnd_ = true; }
  /// Unlocks and closes. A failure is only logged: the lock ends with the file.
  void release() noexcept;

 private:
  int lockTheNamedFile() noexcept;
  void deleteFile() noexcept;

  const EvEvent& log_;
  const char* tag_;
  const std::string path_;
  DZFile file_;
  bool isHeld_ = false;
  bool isDeletedAtEnd_ = false;
};

}  // namespace orrery::mysql
