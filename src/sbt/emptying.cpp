#include "sbt/emptying.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "orrery/platform/posix.h"

using orrery::platform::errorText;
using orrery::platform::OwnFd;

namespace orrery::mysql::sbt {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

std::string failed(const std::string& path, int error) {
  return path + ": " + errorText(error);
}

/// The names in an open directory. They are read to the end before one of them goes: file systems need not list a
/// directory well that changes meanwhile.
std::string listNames(int directory, const std::string& path, std::vector<std::string>& names) {
  OwnFd copy(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseDirectory> stream(copy ? fdopendir(copy.get()) : nullptr);
  if (stream == nullptr) return failed(path, errno);
  copy.release();
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {  // NOLINT(concurrency-mt-unsafe): the stream is ours alone
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  return errno == 0 ? std::string() : failed(path, errno);
}

/// What becomes of folders that cannot be entered: whether they are empty is known when they are removed.
enum class Closed { stay, go };

/// Flags that hold a file in its place, against root too. What a file system does not tell is not set.
bool isHeldByFlag(int directory, const char* name) {
  struct statx info {};
  return statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, 0, &info) == 0 &&
         (info.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

std::string heldByFlag(const std::string& path) {
  return path + ": it is marked as immutable or append-only";
}

/// What in a folder, or below it, this account cannot remove: it is told before anything is lost.
std::string whatStays(int directory, const std::string& path, dev_t device, Closed closed) {
  std::vector<std::string> names;
  if (std::string problem = listNames(directory, path, names); !problem.empty() || names.empty()) return problem;
  struct stat folder {};
  if (isHeldByFlag(directory, ".")) return heldByFlag(path);
  if (fstat(directory, &folder) != 0 || faccessat(directory, ".", W_OK | X_OK, AT_EACCESS) != 0)
    return failed(path, errno);
  const uid_t account = geteuid();
  const bool isSticky = (folder.st_mode & S_ISVTX) != 0 && account != 0 && folder.st_uid != account;
  for (const std::string& name : names) {
    std::string below = path;
    below.append("/").append(name);
    struct stat info {};
    if (fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;
      return failed(below, errno);
    }
    if (isHeldByFlag(directory, name.c_str())) return heldByFlag(below);
    if (isSticky && info.st_uid != account) return failed(below, EPERM);
    if (!S_ISDIR(info.st_mode)) continue;
    if (info.st_dev != device) return below + ": another file system is mounted there";
    const OwnFd inner(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!inner && errno == ENOENT) continue;
    if (!inner && errno != EACCES) return failed(below, errno);
    if (inner) {
      if (std::string problem = whatStays(inner.get(), below, device, closed); !problem.empty()) return problem;
    } else if (closed == Closed::go && name != folderOfFileSystem &&
               unlinkat(directory, name.c_str(), AT_REMOVEDIR) != 0) {
      return failed(below, EACCES);
    }
  }
  return {};
}

/// By descriptors: a name that is exchanged for a link meanwhile leads nowhere else.
std::string removeContents(int directory, const std::string& path, dev_t device, bool& any) {
  std::vector<std::string> names;
  if (std::string problem = listNames(directory, path, names); !problem.empty()) return problem;
  for (const std::string& name : names) {
    std::string below = path;
    below.append("/").append(name);
    struct stat info {};
    if (fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;
      return failed(below, errno);
    }
    if (S_ISDIR(info.st_mode)) {
      if (info.st_dev != device) return below + ": another file system is mounted there";
      const OwnFd inner(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (!inner && errno == EACCES && name == folderOfFileSystem) continue;
      if (!inner) return failed(below, errno);
      if (std::string problem = removeContents(inner.get(), below, device, any); !problem.empty()) return problem;
    }
    if (unlinkat(directory, name.c_str(), S_ISDIR(info.st_mode) ? AT_REMOVEDIR : 0) == 0) {
      any = true;
    } else if (errno != ENOENT) {
      return failed(below, errno);
    }
  }
  return {};
}

/// The table writes blanks and the like as a backslash and three octal digits.
std::string unescaped(const std::string& field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\' || i + 3 >= field.size()) {
      text += field[i];
      continue;
    }
    text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
    i += 3;
  }
  return text;
}

}  // namespace

Emptied emptyDirectory(const std::string& path) {
  const OwnFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat info {};
  if (!directory || fstat(directory.get(), &info) != 0) return {failed(path, errno)};
  if (std::string mount = mountBelow(path); !mount.empty()) return {mount};
  Emptied emptied;
  emptied.problem = whatStays(directory.get(), path, info.st_dev, Closed::go);
  if (emptied.problem.empty()) emptied.problem = removeContents(directory.get(), path, info.st_dev, emptied.any);
  return emptied;
}

std::string whyNotEmptied(const std::string& path) {
  const OwnFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat info {};
  if (!directory && errno == ENOENT) return {};
  if (!directory || fstat(directory.get(), &info) != 0) return failed(path, errno);
  std::string mount = mountBelow(path);
  return mount.empty() ? whatStays(directory.get(), path, info.st_dev, Closed::stay) : mount;
}

std::string mountBelow(const std::string& path, const std::string& mounts) {
  std::error_code error;
  std::string above = std::filesystem::canonical(path, error).native();
  if (error) return error == std::errc::no_such_file_or_directory ? std::string() : path + ": " + error.message();
  if (above.back() != '/') above += '/';
  std::ifstream table(mounts);
  if (!table) return "what is mounted cannot be told: " + mounts + " cannot be read";
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string field;
    for (int i = 0; i < 5; ++i) fields >> field;
    const std::string place = unescaped(field);
    if (place.compare(0, above.size(), above) == 0) return place + ": something is mounted there";
  }
  return {};
}

}  // namespace orrery::mysql::sbt
