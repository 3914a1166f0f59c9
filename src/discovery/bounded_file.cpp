#include "discovery/bounded_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "orrery/platform/posix.h"

namespace orrery::mysql::discovery {
namespace {

using platform::errorText;
using platform::OwnFd;

constexpr std::size_t bufferSize = std::size_t{16} * 1024;

/// Reads to the end or until `most` bytes are there. False, with errno, on failure.
bool readAll(int fd, std::size_t most, std::string& bytes) {
  std::array<char, bufferSize> buffer;
  bytes.clear();
  while (bytes.size() < most) {
    const ssize_t size = read(fd, buffer.data(), std::min(buffer.size(), most - bytes.size()));
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return false;
    if (size == 0) break;
    bytes.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return true;
}

bool isMadeUp(const struct statfs& system) {
  constexpr std::array<unsigned long, 9> kinds{PROC_SUPER_MAGIC, SYSFS_MAGIC,        DEBUGFS_MAGIC,
                                               TRACEFS_MAGIC,    CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,
                                               SECURITYFS_MAGIC, PSTOREFS_MAGIC,     BPF_FS_MAGIC};
  const auto kind = static_cast<unsigned long>(system.f_type) & 0xffffffffUL;
  return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

}  // namespace

bool readPlainFile(const std::string& path, std::size_t most, std::string& text, std::string& reason) {
  if (path.find('\0') != std::string::npos) {
    reason = "its name holds a null";
    return false;
  }
  // Looked at before it is opened: opening a device may do something already.
  const OwnFd place(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  struct statfs system {};
  if (!place || fstat(place.get(), &status) != 0 || fstatfs(place.get(), &system) != 0) {
    reason = errorText(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode) || isMadeUp(system)) {
    reason = "it is no plain file";
    return false;
  }
  if (status.st_size > static_cast<off_t>(most)) {
    reason = "it is larger than " + std::to_string(most) + " bytes";
    return false;
  }
  // Without waiting: whoever owns a file can hold a lease on it.
  const std::string same = "/proc/self/fd/" + std::to_string(place.get());
  const OwnFd file(open(same.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file && readAll(file.get(), most, text)) return true;
  reason = errorText(errno);
  return false;
}

bool readProcFile(int folder, const char* name, std::size_t most, std::string& bytes) {
  const OwnFd file(openat(folder, name, O_RDONLY | O_CLOEXEC));
  return file && readAll(file.get(), most, bytes);
}

}  // namespace orrery::mysql::discovery
