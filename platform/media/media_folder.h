#pragma once

#include <functional>
#include <string>

#include "failure.h"

namespace orrery::media {

using platform::OwnFd;

/// A file of the media folder that its writer has not done with. Its name begins with ".new-", as no image's does; the
/// file is locked for as long as somebody has it open, which tells the files of the living from those of the dead. The
/// name goes with the object. A published image has its own name beside it: when its writer is killed before the object
/// goes, the second name shows that something is left to do.
class TemporaryFile {
 public:
  TemporaryFile(TemporaryFile&& other) noexcept
      : folder_(other.folder_), name_(std::exchange(other.name_, {})), file_(std::move(other.file_)) {}
  TemporaryFile& operator=(TemporaryFile&&) = delete;
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();
  int fd() const noexcept { return file_.get(); }

 private:
  friend class MediaFolder;
  TemporaryFile(int folder, std::string name, OwnFd file)
      : folder_(folder), name_(std::move(name)), file_(std::move(file)) {}

  int folder_;
  std::string name_;
  OwnFd file_;
};

/// The folder of images. Everything throws MediaFailure.
class MediaFolder {
 public:
  explicit MediaFolder(std::string path);

  const std::string& path() const noexcept { return path_; }
  bool holds(const std::string& fileName) const;
  /// Whether the image of this name is the open file.
  bool isNamed(const std::string& fileName, int fd) const noexcept;
  /// Opens an image for reading; a descriptor of -1 when there is none.
  OwnFd open(const std::string& fileName) const;
  /// An empty file of mode 0600. The folder must live longer than it.
  TemporaryFile create() const;
  /// Puts the file, which must be complete, on the disk under this name. Fails with sbtExists, and leaves the file as
  /// it is, when the name is taken: nothing is ever replaced. The image stays locked until the object goes.
  void publish(TemporaryFile& file, const std::string& fileName) const;
  /// Takes the name from a published file, unless it is another one's by now.
  void withdraw(const TemporaryFile& file, const std::string& fileName) const noexcept;
  /// Locks an image against others that would complete or remove it, until the descriptor is closed; -1 when there is
  /// none. Fails when somebody has it locked.
  OwnFd claim(const std::string& fileName) const;
  /// False when there is none.
  bool remove(const std::string& fileName) const;
  /// Removes temporary files whose writers are gone. Those that may have been published go when `isSettled`, which is
  /// called with the open, locked file, says so.
  void removeLeftovers(const std::function<bool(int)>& isSettled) const;

 private:
  void sync() const;

  std::string path_;
  OwnFd folder_;
};

}  // namespace orrery::media
