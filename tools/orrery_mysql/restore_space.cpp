#include "restore_space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <system_error>

namespace orrery::tool {
namespace {

namespace fs = std::filesystem;

std::uint64_t freeAt(fs::path place) {
  std::error_code error;
  while (!fs::exists(place, error) && place.has_relative_path()) place = place.parent_path();
  struct statvfs system {};
  if (::statvfs(place.c_str(), &system) != 0) return 0;
  return static_cast<std::uint64_t>(system.f_bavail) * system.f_frsize;
}

/// As the file system counts it, holes left out.
std::uint64_t occupiedBy(const fs::path& file) {
  constexpr std::uint64_t statBlock = 512;  // stat(2), whatever the file system's own blocks are
  struct stat info {};
  if (::lstat(file.c_str(), &info) != 0 || info.st_nlink > 1) return 0;
  return static_cast<std::uint64_t>(info.st_blocks) * statBlock;
}

}  // namespace

Space spaceAt(const std::string& directory, bool isEmptied) {
  Space space;
  space.free = freeAt(directory);
  if (!isEmptied) return space;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(directory, fs::directory_options::skip_permission_denied, error), end;
       !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    if (!entry->is_directory(unknown)) space.freed += occupiedBy(entry->path());
  }
  return space;
}

}  // namespace orrery::tool
