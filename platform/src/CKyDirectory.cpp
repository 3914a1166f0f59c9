#include "orrery/platform/CKyDirectory.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "orrery/platform/posix.h"

namespace {

constexpr mode_t parentMode = 0711;

bool isDirectory(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

CKyError failed(const std::string& path, int error) {
  return {error, path + ": " + orrery::platform::errorText(error)};
}

/// Makes one directory with this mode. Another process may make it at the same moment; its mode then stands.
///
/// The mode is set only where the umask took something from it: whoever finds the directory there goes on at once, and
/// may have given it another mode before a call that came too late. Under such a umask that can still happen.
CKyError makeOne(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) {
    struct stat made {};
    if (stat(path.c_str(), &made) != 0) return failed(path, errno);
    const bool isWhole = (made.st_mode & mode) == mode;
    return isWhole || chmod(path.c_str(), (made.st_mode | mode) & 07777) == 0 ? CKyError() : failed(path, errno);
  }
  const int error = errno;
  if (error != EEXIST) return failed(path, error);
  return isDirectory(path) ? CKyError() : failed(path, ENOTDIR);
}

}  // namespace

CKyError CKyDirectory::Create(const std::string& path, unsigned mode) {
  if (isDirectory(path)) return {};
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    if (isDirectory(parent)) continue;
    if (CKyError error = makeOne(parent, parentMode); error.isError()) return error;
  }
  return makeOne(path, static_cast<mode_t>(mode));
}
