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

bool DZJobClient::addCounters(const char* tag, std::int64_t bytes, std::int64_t files, std::int64_t failedFiles) {
  return taken(event_, tag, jobId_, services().jobs->addCounters(jobId_, {bytes, files, failedFiles}));
}

bool DZJobClient::finish(const char* tag, DZJobStatus status, DZJobStatusFor what, int code) {
  return taken(event_, tag, jobId_,
               services().jobs->complete(jobId_, static_cast<JobState>(status), what == DZJobStatusFor::job, code));
}

bool DZBkpJobClient::init(const std::string&, long long jobId, int, int, int, const char*) {
  return attach("DZBkpJobClient::init", jobId);
}

bool DZBkpJobClient::addBackupFileFailures(std::int64_t count) {
  return addCounters("DZBkpJobClient::addBackupFileFailures", 0, 0, count);
}

bool DZBkpJobClient::addFilesXferred(std::int64_t count) {
  return addCounters("DZBkpJobClient::addFilesXferred", 0, count, 0);
}

bool DZBkpJobClient::setUnCompBytesToAdd(std::int64_t bytes) {
  return addCounters("DZBkpJobClient::setUnCompBytesToAdd", bytes, 0, 0);
}

bool DZBkpJobClient::complete(DZJobStatus status, DZJobStatusFor what, int code, int) {
  return finish("DZBkpJobClient::complete", status, what, code);
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
