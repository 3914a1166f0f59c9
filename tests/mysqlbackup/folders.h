#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace orrery::standin {

/// Makes the folder with its parents, mode 0700; throws Failure when there is one that is not empty.
void makeBackupDirectory(const std::string& path);
/// Whether there is nothing at the path, or an empty folder.
bool isMissingOrEmpty(const std::string& path);

/// "name = value" lines, blanks around the sign or not.
using Facts = std::map<std::string, std::string>;
/// Throws Failure when the file cannot be read.
Facts readFacts(const std::string& path);
/// A number of them; throws Failure when it is not there.
std::uint64_t numberIn(const Facts& facts, const std::string& name, const std::string& path);

/// Throws Failure.
void writeFile(const std::string& path, const std::string& content);
/// What this program leaves in a backup directory: the data folder, as a server's option file tells it.
void leaveServerOptions(const std::string& backupDirectory, const std::string& dataDirectory);

/// A folder that vanishes with all it holds.
class [[nodiscard]] WorkFolder {
 public:
  explicit WorkFolder(std::string path);
  ~WorkFolder() { remove(); }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const std::string& path() const noexcept { return path_; }
  /// From now on it stays.
  void keep() noexcept { kept_ = true; }
  void remove() noexcept;

 private:
  const std::string path_;
  bool kept_ = false;
};

}  // namespace orrery::standin
