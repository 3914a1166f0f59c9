#include "process/job_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "orrery/platform/services.h"

namespace orrery::mysql {
namespace {

constexpr mode_t folderMode = S_ISVTX | S_IRWXU | S_IWGRP | S_IXGRP;
constexpr int lockTries = 600;
constexpr int lockPauseMilliseconds = 50;

bool isGranted(int folder, gid_t group) {
  struct stat info {};
  return fstat(folder, &info) == 0 && info.st_gid == group && (info.st_mode & 07777) == folderMode;
}

bool lockWithLimit(int folder, int operation) {
  for (int attempt = 0; attempt < lockTries; ++attempt) {
    if (flock(folder, operation | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    platform::services().clock->sleep(lockPauseMilliseconds);
  }
  errno = EWOULDBLOCK;
  return false;
}

bool grant(int folder, gid_t group) {
  return fchown(folder, static_cast<uid_t>(-1), group) == 0 && fchmod(folder, folderMode) == 0;
}

/// Ends with a shared lock on a folder that is granted to the group.
bool obtain(int folder, gid_t group) {
  if (!lockWithLimit(folder, LOCK_SH)) return false;
  while (!isGranted(folder, group)) {
    if (!lockWithLimit(folder, LOCK_EX) || !grant(folder, group)) return false;
    // Turning the lock into a shared one may let another change in between, hence the loop.
    if (!lockWithLimit(folder, LOCK_SH)) return false;
  }
  return true;
}

}  // namespace

JobFolderGrant::JobFolderGrant(const std::string& folder, gid_t group)
    : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
  if (!folder_.valid() || obtain(folder_.get(), group)) return;
  const int error = errno;
  folder_ = platform::OwnFd();
  errno = error;
}

}  // namespace orrery::mysql
