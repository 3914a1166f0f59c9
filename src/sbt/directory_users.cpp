#include "sbt/directory_users.h"

#include <sys/stat.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace orrery::mysql::sbt {
namespace {

/// The directory as processes can be compared with it.
struct Directory {
  std::string path;  // without links
  struct stat info {};

  bool holds(std::string_view other) const {
    constexpr std::string_view deleted = " (deleted)";
    if (other == path) return true;
    if (other.size() > deleted.size() && other.substr(other.size() - deleted.size()) == deleted)
      other.remove_suffix(deleted.size());
    return other == path || (other.size() > path.size() && other.substr(0, path.size()) == path &&
                             (path.back() == '/' || other[path.size()] == '/'));
  }
  /// What another path to the same directory leads to, as in a container.
  bool isAt(const fs::path& link) const {
    struct stat other {};
    return stat(link.c_str(), &other) == 0 && other.st_dev == info.st_dev && other.st_ino == info.st_ino;
  }
};

bool leadsInto(const fs::path& link, const Directory& directory) {
  std::error_code error;
  const fs::path target = fs::read_symlink(link, error);
  return !error && directory.holds(target.native());
}

bool isOpenIn(const fs::path& process, const Directory& directory) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end; entry.increment(error))
    if (leadsInto(entry->path(), directory)) return true;
  return false;
}

/// A mapping stays when its descriptor is closed. The path is the last field of a line, after five without a slash but
/// for the device's number.
bool isMappedIn(const fs::path& process, const Directory& directory) {
  std::ifstream maps(process / "maps");
  for (std::string line; std::getline(maps, line);) {
    const std::size_t slash = line.find('/');
    if (slash != std::string::npos && directory.holds(std::string_view(line).substr(slash))) return true;
  }
  return false;
}

bool uses(const fs::path& process, const Directory& directory) {
  for (const char* const place : {"cwd", "root"}) {
    if (directory.isAt(process / place) || leadsInto(process / place, directory)) return true;
  }
  return isOpenIn(process, directory) || isMappedIn(process, directory);
}

std::string nameOf(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return "process " + process.filename().string() + (name.empty() ? "" : " (" + name + ")");
}

bool isProcess(const std::string& name, pid_t self) {
  pid_t id = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
  return error == std::errc() && end == name.data() + name.size() && id != self;
}

}  // namespace

std::string directoryUser(const std::string& path, pid_t self, const std::string& proc) {
  Directory directory;
  std::error_code error;
  directory.path = fs::weakly_canonical(path, error).native();
  if (error) return "who uses " + path + " cannot be told: " + error.message();
  if (directory.path.size() > 1 && directory.path.back() == '/') directory.path.pop_back();
  // One that was removed may still be somebody's: its path tells it then, and no inode.
  if (stat(directory.path.c_str(), &directory.info) != 0) directory.info = {};
  fs::directory_iterator entry(proc, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const fs::path& process = entry->path();
    if (isProcess(process.filename().native(), self) && uses(process, directory))
      return nameOf(process) + " works in " + path;
  }
  return error ? "the processes of this machine cannot be listed: " + error.message() : std::string();
}

}  // namespace orrery::mysql::sbt
