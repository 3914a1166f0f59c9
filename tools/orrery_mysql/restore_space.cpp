#include "restore_space.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace orrery::tool {
namespace {

namespace fs = std::filesystem;

// File systems that can compress, or behind which others may, by the numbers that statfs(2) tells: ZFS, btrfs,
// bcachefs, F2FS, NTFS, a user's own, overlays, NFS, SMB.
constexpr std::uint32_t compressing[] = {0x2FC12FC1, 0x9123683E, 0xCA451A4E, 0xF2F52010, 0x5346544E,
                                         0x65735546, 0x794C7630, 0x00006969, 0xFF534D42, 0xFE534D42};

Space freeAt(fs::path place) {
  std::error_code error;
  while (!fs::exists(place, error) && place.has_relative_path()) place = place.parent_path();
  struct statfs system {};
  struct stat info {};
  if (::statfs(place.c_str(), &system) != 0 || ::stat(place.c_str(), &info) != 0) return {};
  Space space;
  space.device = info.st_dev;
  space.free = static_cast<std::uint64_t>(system.f_bavail) * static_cast<std::uint64_t>(system.f_frsize);
  space.isCompressed = std::any_of(std::begin(compressing), std::end(compressing), [&](std::uint32_t type) {
    return type == static_cast<std::uint32_t>(system.f_type);
  });
  return space;
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
  Space space = freeAt(directory);
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
