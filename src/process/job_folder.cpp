#include "process/job_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "orrery/platform/services.h"

namespace orrery::mysql {
namespace {

constexpr mode_t folderMode = S_ISVTX | S_IRWXU | S_IWGRP | S_IXGRP;
constexpr int lockTries = 3000;
constexpr int lockPauseMilliseconds = 10;

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

/// Held while the folder's lock is being taken, so that those who come later queue up behind whoever waits for a
/// change: shared locks that follow one another without a gap would otherwise keep the other account out for ever. The
/// lock is on the folder above: nothing has to be made for it, and it is held for moments.
class Turnstile {
 public:
  explicit Turnstile(const std::string& folder)
      : above_(open((folder + "/..").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  Turnstile(const Turnstile&) = delete;
  Turnstile& operator=(const Turnstile&) = delete;
  /// Unlocked, not only closed: a child that starts elsewhere at this moment holds a copy of the descriptor.
  ~Turnstile() {
    const int error = errno;
    if (above_.valid()) flock(above_.get(), LOCK_UN);
    errno = error;
  }
  bool pass() { return above_.valid() && lockWithLimit(above_.get(), LOCK_EX); }

 private:
  platform::OwnFd above_;
};

/// Ends with a shared lock on a folder that is granted to the group.
bool obtain(const std::string& path, int folder, gid_t group) {
  Turnstile turnstile(path);
  if (!turnstile.pass() || !lockWithLimit(folder, LOCK_SH)) return false;
  while (!isGranted(folder, group)) {
    if (!lockWithLimit(folder, LOCK_EX) || !grant(folder, group)) return false;
    // Turning the lock into a shared one lets go of it first, hence the loop.
    if (!lockWithLimit(folder, LOCK_SH)) return false;
  }
  return true;
}

}  // namespace

JobFolderGrant::JobFolderGrant(const std::string& folder, gid_t group)
    : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
  if (!folder_.valid() || obtain(folder, folder_.get(), group)) return;
  const int error = errno;
  folder_ = platform::OwnFd();
  errno = error;
}

}  // namespace orrery::mysql
