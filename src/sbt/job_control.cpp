// The job's clients.

#include <new>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTUtils::initializeJobControl";
// What the suite's job manager expects of an agent of this kind.
constexpr int streamNumber = 0;
constexpr int phase = 4;
constexpr int controlKind = 2;
constexpr int controlFlags = 1;

}  // namespace

int MySqlSBTUtils::initializeJobControl(long long jobId, DZJobType type, std::string arbiterClientName,
                                        const char* extra) {
  return orrery::mysql::guarded(event_, tag, [&] {
    jobType_ = type;
    jobId_ = jobId;
    jobObject_.reset();
    if (type == DZJobType::backup && initializeBackupJob(arbiterClientName, extra) != 0) return -1;
    if (type == DZJobType::restore && initializeRestoreJob(arbiterClientName, extra) != 0) return -1;

    event_.Debug(tag, "getting the new m_jobControl for job [%lld]", jobId);
    jobControl_.reset(new (std::nothrow) DZJobCtrlClient(controlKind));
    if (jobControl_ == nullptr) {
      event_.Debug(tag, "Memory allocation for m_jobControl failed");
      return -1;
    }
    event_.Debug(tag, "m_jobControl.init(%s) %s", "CONTROL", streamText_.c_str());
    const bool initiated = jobControl_->Init2(jobId, arbiterClientName, controlFlags, phase, streamText_, 0) == 1;
    if (!initiated && jobObject_ != nullptr) {
      jobObject_->setPendingCause(sbt::causeJobControlFailed, sbt::causeMessageType, sbt::causeJobControlSeverity);
      jobObject_->event().MajorEvent(sbt::causeJobControlFailed);
    }
    // Kept: the line of a success stands in the log of a failure as well; the cause at the job tells them apart.
    event_.DebugLvl(tag, 2, "new m_jobControl has initiated.");
    if (initiated) return 0;
    jobControl_.reset();
    return -1;
  });
}

int MySqlSBTUtils::initializeBackupJob(const std::string& managerName, const char* extra) {
  auto job = std::make_unique<DZBkpJobClient>();
  DZBkpJobClient& client = *job;
  jobObject_ = std::move(job);
  event_.Debug(tag, "Intialized DZBkpJobClient");
  if (client.init(managerName, jobId_, streamNumber, phase, 0, extra)) return 0;
  event_.Debug(tag, "bkpObj->init failed");
  return -1;
}

int MySqlSBTUtils::initializeRestoreJob(const std::string& managerName, const char* extra) {
  auto job = std::make_unique<DZRstJobClient>();
  DZRstJobClient& client = *job;
  jobObject_ = std::move(job);
  event_.Debug(tag, "Intialized DZRstJobClient");
  if (client.init(managerName, jobId_, phase, 0, extra)) return 0;
  event_.Debug(tag, "m_jobObjectB->init failed");
  return -1;
}
