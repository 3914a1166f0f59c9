#pragma once

#include <string>
#include <vector>

namespace orrery::test {

/// A fresh folder, removed with all it holds at the end of the scope. Mode 0711: accounts of servers can pass through.
/// Throws std::system_error when the folder cannot be made.
class [[nodiscard]] TemporaryDirectory {
 public:
  /// The folder lies under `parent`; empty: under TMPDIR, else /tmp.
  explicit TemporaryDirectory(const std::string& parent = {});
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const noexcept { return path_; }
  /// Path of a name inside.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Names in a folder, without "." and "..", sorted.
std::vector<std::string> namesIn(const std::string& folder);

/// Whole content of a file; throws std::system_error when it cannot be read.
std::string readFile(const std::string& path);

/// Makes a file with this content and mode, or replaces what it holds. Throws std::system_error.
void writeFile(const std::string& path, const std::string& content, unsigned mode = 0644);

}  // namespace orrery::test
