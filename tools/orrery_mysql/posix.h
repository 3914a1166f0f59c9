#pragma once

/// Small questions to the operating system that several commands ask.

#include <string>
#include <utility>

namespace orrery::tool {

/// Sole owner of one descriptor; -1 means none.
class OwnFd {
 public:
  explicit OwnFd(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  OwnFd(OwnFd&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnFd& operator=(OwnFd&& other) noexcept {
    // What this one owned goes with `earlier`.
    const OwnFd earlier(std::exchange(descriptor_, std::exchange(other.descriptor_, -1)));
    return *this;
  }
  OwnFd(const OwnFd&) = delete;
  OwnFd& operator=(const OwnFd&) = delete;
  ~OwnFd();
  int get() const noexcept { return descriptor_; }
  bool valid() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

/// The system's text for an errno value.
std::string errorText(int error);

enum class FileKind { missing, regular, directory, socket, other };
/// What a path leads to, links followed.
FileKind kindOf(const std::string& path);

bool isExecutable(const std::string& path);
bool accountExists(const std::string& name);
/// The path made absolute from the current folder; an empty one stays empty.
std::string absolutePath(const std::string& path);
std::string environmentVariable(const char* name);

}  // namespace orrery::tool
