// Restore to a point in time: the road from the images to a server that answers.

#include <cmath>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreToTime";
constexpr double wholeProgress = 100.0;
/// What sums of parts miss: three thirds are a whole.
constexpr double rounding = 1e-6;

/// Kept: the words of a success, whatever the notice was to tell.
constexpr const char* notNotified = "Failed to notify JOB:JMSUCCESS to Job Manager.";

}  // namespace

int MySqlSBTRestoreUtils::sbtRestoreToTime() {
  return orrery::mysql::guarded(event_, tag, [&] {
    if (!isInitialized_) {
      event_.Error(tag, "%s", sbt::initializationNotDone);
      return -1;
    }
    return restoreToTime();
  });
}

int MySqlSBTRestoreUtils::restoreToTime() {
  std::vector<ArchFileListByTimeElement_t> images;
  if (findImages(images) != 0 || checkBeforehand(images) != 0) return -1;
  if (restoreToServer_ && stopForRestore() != 0) return -1;
  if (prepareTarget(images) != 0) return -1;
  int result = applyImages(images);
  // Kept: also after an image that failed. What was restored until then is the account's to look at, and whatever the
  // backups of before stood on is gone.
  if (giveToOwner() != 0) result = -1;
  forceFull();
  removeWorkingDirectory();
  if (restoreToServer_ && result == 0) result = bringServerUp();
  if (result == 0 && jobObject_ != nullptr) result = endSuccessfully();
  return result;
}

int MySqlSBTRestoreUtils::findImages(std::vector<ArchFileListByTimeElement_t>& images) {
  if (getBackupImages(images) == 0) return 0;
  event_.Error(tag, "Failed to get enterprise backup images for time [%lu]",
               static_cast<unsigned long>(params_.restoreTime));
  if (isToStop()) return stopOnRequest("before anything was changed");
  return failJob(sbt::causeNoImages, {imagesProblem_});
}

int MySqlSBTRestoreUtils::applyImages(const std::vector<ArchFileListByTimeElement_t>& images) {
  auto* const job = dynamic_cast<DZRstJobClient*>(jobObject_.get());
  const double step = wholeProgress / static_cast<double>(images.size());
  double progress = 0;
  if (endWhenCameUp() != 0) return -1;
  for (const ArchFileListByTimeElement_t& image : images) {
    if (const int result = sbtRestoreFromImage(image.fileName, image.isIncremental()); result != 0)
      return endAfterImage(image, result);
    progress += step;
    if (job != nullptr) job->updateJobProgress(static_cast<int>(std::floor(progress + rounding)));
    // Also after the last one: a program that was asked to end may do so without a failure of its own.
    if (isToStop())
      return stopOnRequest("after the image " + image.fileName + "; the data directory is not complete" +
                           (restoreToServer_ ? " and the server is down" : ""));
    if (endWhenCameUp() != 0) return -1;
  }
  return 0;
}

int MySqlSBTRestoreUtils::endAfterImage(const ArchFileListByTimeElement_t& image, int result) {
  event_.Error(tag, "Failed to restore from image [%s], with backupLevel[%d]. Retval = [%d]", image.fileName.c_str(),
               static_cast<int>(image.backupLevel), result);
  if (jobObject_ == nullptr) return -1;
  const bool isUnset = getJobStatus() == DZJobStatus{};
  if (isUnset) tellCause(sbt::causeImageFailed);
  if (const std::string server = whoCameUp(); !server.empty()) {
    tellCause(sbt::causeServerNotStopped, {server});
  } else if (restoreToServer_) {
    tellCause(sbt::causeServerDirectoryIncomplete);
  }
  NotifyArbiterJobComplete(isUnset ? DZJobStatus::failed : getJobStatus(), DZJobStatusFor::job, 0);
  return -1;
}

int MySqlSBTRestoreUtils::giveToOwner() {
  if (setPermissionsToDataDir() == 0) return 0;
  if (jobObject_ == nullptr) return -1;
  tellCause(sbt::causeNoOwner);
  // Kept: not the plain failure. The data are restored, only not in the hands of the server yet. A job that an image
  // has failed stays failed: its manager takes no second end.
  if (NotifyArbiterJobComplete(DZJobStatus::completedWithErrors, DZJobStatusFor::job, 0) != 0)
    event_.Error(tag, "%s", notNotified);
  return -1;
}

void MySqlSBTRestoreUtils::forceFull() {
  if (setForceFullFlags() != 0) event_.Error(tag, "Failed to force FULL flags.");
}

/// An agent that is killed later on sets no flags any more, and the next incremental backup would stand on a server
/// that was replaced.
void MySqlSBTRestoreUtils::forceFullFromHere() {
  if (restoreToServer_) forceFull();
}

int MySqlSBTRestoreUtils::endSuccessfully() {
  if (NotifyArbiterJobComplete(DZJobStatus::success, DZJobStatusFor::job, 0) == 0) return 0;
  event_.Error(tag, "%s", notNotified);
  return -1;
}

bool MySqlSBTRestoreUtils::isToStop() const {
  return jobControl_ != nullptr && jobControl_->checkQuitFlag();
}

int MySqlSBTRestoreUtils::stopOnRequest(const std::string& when) {
  event_.Error(tag, "the job is to end: stopped %s", when.c_str());
  return failJob(sbt::causeRestoreStopped, {when});
}

int MySqlSBTRestoreUtils::failJob(std::uint32_t cause, const std::vector<std::string>& arguments) {
  if (jobObject_ == nullptr) return -1;
  tellCause(cause, arguments);
  NotifyArbiterJobComplete(DZJobStatus::failed, DZJobStatusFor::job, 0);
  return -1;
}

void MySqlSBTRestoreUtils::tellCause(std::uint32_t cause, const std::vector<std::string>& arguments) {
  if (jobObject_ == nullptr) return;
  for (const std::string& argument : arguments) jobObject_->event() << argument;
  jobObject_->setPendingCause(cause, sbt::causeMessageType);
}
