#include "orrery/platform/DZJobClient.h"

#include "orrery/platform/services.h"

using orrery::platform::JobRecord;
using orrery::platform::JobState;
using orrery::platform::services;
using orrery::platform::Status;

namespace {

bool taken(const EvDebug& log, const char* tag, long long jobId, const Status& status) {
  if (!status.ok()) log.Error(tag, "job %lld: %s", jobId, status.text.c_str());
  return status.ok();
}

bool isKnown(const EvDebug& log, const char* tag, long long jobId) {
  JobRecord record;
  return taken(log, tag, jobId, services().jobs->find(jobId, record));
}

}  // namespace

DZJobClient::~DZJobClient() = default;
DZBkpJobClient::~DZBkpJobClient() = default;
DZRstJobClient::~DZRstJobClient() = default;

bool DZJobClient::attach(const char* tag, long long jobId) {
  if (!isKnown(event_, tag, jobId)) return false;
  jobId_ = jobId;
  return true;
}

bool DZJobClient::setPendingCause(std::uint32_t code, int messageType, int severity) {
  orrery::platform::PendingCause cause;
  cause.code = code;
  cause.severity = severity;
  cause.messageType = messageType;
  cause.arguments = event_.takeArguments();
  return taken(event_, "DZJobClient::setPendingCause", jobId_, services().jobs->addCause(jobId_, cause));
}

bool DZJobClient::setBytesToAdd(std::int64_t bytes) {
  const std::lock_guard held(mutex_);
  bytesToAdd_ = bytes;
  return jobId_ != 0;
}

bool DZJobClient::setFilesToAdd(std::int64_t files) {
  const std::lock_guard held(mutex_);
  filesToAdd_ = files;
  return jobId_ != 0;
}

bool DZJobClient::addWhatWasSet(const char* tag) {
  const std::lock_guard held(mutex_);
  if (bytesToAdd_ == 0 && filesToAdd_ == 0 && jobId_ != 0) return true;
  if (!taken(event_, tag, jobId_, services().jobs->addCounters(jobId_, {bytesToAdd_, filesToAdd_, 0}))) return false;
  bytesToAdd_ = filesToAdd_ = 0;
  return true;
}

bool DZJobClient::finish(const char* tag, DZJobStatus status, DZJobStatusFor what, int code) {
  // What a failed update left. The end of a job is told whether it can be added or not.
  if (what == DZJobStatusFor::job && jobId_ != 0) addWhatWasSet(tag);
  return taken(event_, tag, jobId_,
               services().jobs->complete(jobId_, static_cast<JobState>(status), what == DZJobStatusFor::job, code));
}

bool DZBkpJobClient::init(const std::string&, long long jobId, int, int, int, const char*) {
  return attach("DZBkpJobClient::init", jobId);
}

bool DZBkpJobClient::addBackupFileFailures(std::int64_t count) {
  return taken(event(), "DZBkpJobClient::addBackupFileFailures", getJobId(),
               services().jobs->addCounters(getJobId(), {0, 0, count}));
}

bool DZBkpJobClient::addFilesXferred(std::int64_t count) {
  return setFilesToAdd(count);
}

bool DZBkpJobClient::setUnCompBytesToAdd(std::int64_t bytes) {
  return setBytesToAdd(bytes);
}

bool DZBkpJobClient::updateInfo(bool, const char*) {
  return addWhatWasSet("DZBkpJobClient::updateInfo");
}

bool DZBkpJobClient::complete(DZJobStatus status, DZJobStatusFor what, int code, int) {
  return finish("DZBkpJobClient::complete", status, what, code);
}

bool DZRstJobClient::init(const std::string&, long long jobId, int, int, const char*) {
  return attach("DZRstJobClient::init", jobId);
}

bool DZRstJobClient::setNumSuccessful2Add(std::int64_t count) {
  return setFilesToAdd(count);
}

bool DZRstJobClient::setUncompBytes2Add(std::int64_t bytes) {
  return setBytesToAdd(bytes);
}

bool DZRstJobClient::updateInfo(bool, const char*) {
  return addWhatWasSet("DZRstJobClient::updateInfo");
}

bool DZRstJobClient::updateJobProgress(int percent) {
  return taken(event(), "DZRstJobClient::updateJobProgress", getJobId(),
               services().jobs->setProgress(getJobId(), percent));
}

bool DZRstJobClient::complete(DZJobStatus status, int, int, DZJobStatusFor what, int, int code) {
  return finish("DZRstJobClient::complete", status, what, code);
}

DZJobCtrlClient::DZJobCtrlClient(int) noexcept {}
DZJobCtrlClient::~DZJobCtrlClient() = default;

int DZJobCtrlClient::Init2(long long jobId, const std::string&, int, int, const std::string&, int) {
  if (!isKnown(event_, "DZJobCtrlClient::Init2", jobId)) return 0;
  jobId_ = jobId;
  return 1;
}

bool DZJobCtrlClient::checkQuitFlag() const {
  if (jobId_ == 0) return false;
  bool requested = false;
  return taken(event_, "DZJobCtrlClient::checkQuitFlag", jobId_, services().jobs->quitRequested(jobId_, requested)) &&
         requested;
}

bool DZJobCtrlClient::finishedWorkWithoutExit(int) {
  return jobId_ != 0;
}
