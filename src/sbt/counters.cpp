// What the media library has moved, on its way to the job. Called on the session server's thread.

#include "orrery/mysql/MySqlSBTCommon.h"

/// Kept: a job that is no backup is a restore from here on, whatever it was made as.
bool MySqlSBTUtils::isBackup() {
  if (jobType_ == DZJobType::backup) return true;
  jobType_ = DZJobType::restore;
  return false;
}

DZBkpJobClient* MySqlSBTUtils::backupJob() const {
  return dynamic_cast<DZBkpJobClient*>(jobObject_.get());
}

DZRstJobClient* MySqlSBTUtils::restoreJob() const {
  return dynamic_cast<DZRstJobClient*>(jobObject_.get());
}

int MySqlSBTUtils::addFilesXferred(std::int64_t count) {
  filesToAdd_ = count;
  if (isBackup()) return backupJob() != nullptr && backupJob()->addFilesXferred(count) ? 0 : -1;
  return restoreJob() != nullptr && restoreJob()->setNumSuccessful2Add(count) ? 0 : -1;
}

int MySqlSBTUtils::setUncompBytesToAdd(std::int64_t bytes) {
  uncompBytesToAdd_ = bytes;
  if (isBackup()) return backupJob() != nullptr && backupJob()->setUnCompBytesToAdd(bytes) ? 0 : -1;
  return restoreJob() != nullptr && restoreJob()->setUncompBytes2Add(bytes) ? 0 : -1;
}

int MySqlSBTUtils::resetCountersFromCache() {
  // What the last update did not add: the first difference of the run that begins now would replace it.
  if (jobObject_ != nullptr) updateInfo(false);
  cachedBytes_ = 0;
  cachedFiles_ = 0;
  return 0;
}

bool MySqlSBTUtils::updateInfo(bool force) {
  if (isBackup()) return backupJob() != nullptr && backupJob()->updateInfo(force, nullptr);
  return restoreJob() != nullptr && restoreJob()->updateInfo(force, nullptr);
}
