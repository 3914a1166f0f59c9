#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace orrery::mysql::paths {

/// The entries of a directory but "." and "..", in the directory's order. Closed with this object.
class [[nodiscard]] Directory {
 public:
  explicit Directory(const std::string& path) noexcept : Directory(AT_FDCWD, path.c_str()) {}
  /// Of a name in another directory, which stays open; a link there is followed.
  Directory(int parent, const char* name) noexcept {
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) stream_ = ::fdopendir(fd);
    if (stream_ != nullptr) return;
    error_ = errno;
    if (fd >= 0) ::close(fd);
  }
  ~Directory() {
    if (stream_ != nullptr) ::closedir(stream_);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  bool isOpen() const noexcept { return stream_ != nullptr; }
  int descriptor() const noexcept { return ::dirfd(stream_); }
  /// Why it is not open, or why `next` ended before the last entry; 0 when it did not.
  int error() const noexcept { return error_; }
  /// The next entry, valid until the call after; null after the last one and on failure.
  const dirent* next() noexcept {
    for (;;) {
      errno = 0;
      // One stream belongs to one object on one thread, which is all that readdir asks for.
      const dirent* entry = ::readdir(stream_);  // NOLINT(concurrency-mt-unsafe)
      if (entry == nullptr) {
        error_ = errno;
        return nullptr;
      }
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") return entry;
    }
  }

 private:
  DIR* stream_ = nullptr;
  int error_ = 0;
};

}  // namespace orrery::mysql::paths
