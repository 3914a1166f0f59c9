// The end of a job or of its phase.

#include "orrery/mysql/MySqlSBTCommon.h"

#include "session/guarded.h"

namespace {

constexpr const char* tag = "MySqlSBTUtils::NotifyArbiterJobComplete";
constexpr int mostForNotice = 120'000;  // milliseconds
constexpr int wholeProgress = 100;

}  // namespace

int MySqlSBTUtils::NotifyArbiterJobComplete(DZJobStatus status, DZJobStatusFor statusFor, int code) {
  return orrery::mysql::guarded(event_, tag, [&] {
    jobStatus_ = status;
    const char* const statusText = status == DZJobStatus::success ? "JMSUCCESS" : "FAIL";
    const bool wholeJob = statusFor == DZJobStatusFor::job;
    int result = 0;
    if (!tellCompletion(status, statusFor, code)) {
      event_.DebugLvl(tag, 2, "jobObject.complete(%s%s) failed", statusText, wholeJob ? ",JOB" : ",PHASE");
      result = -1;
    }
    if (jobControl_ != nullptr) jobControl_->finishedWorkWithoutExit(mostForNotice);
    event_.DebugLvl(tag, 2, "Marked the %s as %s", wholeJob ? "JOB" : "PHASE", statusText);
    return result;
  });
}

bool MySqlSBTUtils::tellCompletion(DZJobStatus status, DZJobStatusFor statusFor, int code) {
  if (isBackup()) return backupJob() != nullptr && backupJob()->complete(status, statusFor, code, 0);
  if (restoreJob() == nullptr) return false;
  const bool taken = restoreJob()->complete(status, 0, 0, statusFor, 0, code);
  if (status == DZJobStatus::success) restoreJob()->updateJobProgress(wholeProgress);
  return taken;
}
