#include "replication/instance_lock.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "orrery/platform/services.h"

namespace orrery::mysql {
namespace {

constexpr int waitSeconds = 120;
constexpr int mostTries = 5;

}  // namespace

InstanceFiles::InstanceFiles(const std::string& directory, unsigned long instanceId)
    : lock(directory + "/" + "MySQLInstance_" + std::to_string(instanceId) + "_LOCK"),
      counter(directory + "/" + "Instance_" + std::to_string(instanceId) + "_RunningBkpUps") {}

InstanceLock::InstanceLock(const EvEvent& log, const char* tag, std::string path)
    : log_(log), tag_(tag), path_(std::move(path)) {}

InstanceLock::~InstanceLock() {
  deleteFile();
}

bool InstanceLock::openOrTell() noexcept {
  if (open()) return true;
  log_.Debug(tag_, "DZFile::open() returned error for opening [%s]file ;error %d", path_.c_str(), lastError());
  return false;
}

/// One try: the result of DZFile::lock, for a file that the path names.
int InstanceLock::lockTheNamedFile() noexcept {
  auto& clock = *orrery::platform::services().clock;
  const std::int64_t start = clock.now();
  for (int left = waitSeconds;;) {
    const int rc = file_.lock(DZFile::lockExclusive, left);
    if (rc <= 0 || file_.isNamedBy(path_)) return rc;
    // The one who had it deleted the name, and others lock another file by now. Opening it lets go of this one.
    if (!open()) return -1;
    const std::int64_t spent = (clock.now() - start) / 1000000;
    left = static_cast<int>(std::clamp<std::int64_t>(waitSeconds - spent, 0, waitSeconds));
  }
}

bool InstanceLock::acquire(Words words) noexcept {
  for (int tries = 0; tries < mostTries; ++tries) {
    log_.DebugLvl(tag_, 3, "%s", words.trying);
    const int rc = lockTheNamedFile();
    if (rc < 0) {
      log_.Debug(tag_, "DZFile::lock() returned error %d", lastError());
      return false;
    }
    if (rc > 0) {
      log_.DebugLvl(tag_, 3, "%s", words.obtained);
      isHeld_ = true;
      return true;
    }
    log_.Debug(tag_, "Some other process holds the lock, trying again...");
  }
  log_.Debug(tag_, "Another process holding the lock is not releasing it.. waited for 10 minutes and exiting..");
  return false;
}

void InstanceLock::deleteFile() noexcept {
  if (!isHeld_ || !isDeletedAtEnd_) return;
  isDeletedAtEnd_ = false;
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
    log_.Debug(tag_, "the lock file [%s] could not be deleted, error %d", path_.c_str(), errno);
  }
}

void InstanceLock::release() noexcept {
  deleteFile();
  if (file_.unlock() != 0) log_.Debug(tag_, "DZFile::unlock() returned error %d", file_.lastError());
  isHeld_ = false;
  file_.close();
}

}  // namespace orrery::mysql
