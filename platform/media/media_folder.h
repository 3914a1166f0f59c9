#pragma once

#include <string>

#include "failure.h"

namespace orrery::media {

using platform::OwnFd;

/// An unfinished file of the media folder. Its name begins with ".new-", as no image's does; the file is locked for as
/// long as somebody has it open, which tells the files of the living from those of the dead. Removed with the object,
/// unless it was published.
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
  /// Opens an image for reading; a descriptor of -1 when there is none.
  OwnFd open(const std::string& fileName) const;
  /// An empty file of mode 0600. The folder must live longer than it.
  TemporaryFile create() const;
  /// Puts the file, which must be complete, on the disk under this name. Fails with sbtExists, and leaves the file as
  /// it is, when the name is taken: nothing is ever replaced.
  void publish(TemporaryFile& file, const std::string& fileName) const;
  /// False when there is none.
  bool remove(const std::string& fileName) const;
  /// Removes temporary files whose writers are gone.
  void removeLeftovers() const;

 private:
  void sync() const;

  std::string path_;
  OwnFd folder_;
};

}  // namespace orrery::media
