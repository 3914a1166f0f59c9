// Restore: the options of the job's task.

#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZRestoreTask.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/MySqlInstance.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::populateTaskOptions";

enum RestoreType : long { intoServer = 0, intoDirectory = 1 };

}  // namespace

int MySqlSBTRestoreUtils::populateTaskOptions() {
  return orrery::mysql::guarded(event_, tag, [&] {
    std::uint32_t cause = sbt::causeNoTaskOptions;
    if (readTask(cause) == 0) return 0;
    if (jobObject_ != nullptr) jobObject_->setPendingCause(cause, sbt::causeMessageType);
    NotifyArbiterJobComplete(DZJobStatus::failed, DZJobStatusFor::job, 0);
    return -1;
  });
}

int MySqlSBTRestoreUtils::readTask(std::uint32_t& cause) {
  if (jobId_ == 0 || task_ == nullptr) {
    event_.Error(tag, "jobId [%lld] or task variables not intialized.", static_cast<long long>(jobId_));
    return -1;
  }
  if (readSource() != 0 || readDestination(cause) != 0 || readTarget() != 0) return -1;
  if (targetDirectory_.empty()) {
    event_.Error(tag, "Empty datadir found for job [%lld] and instance [%lu]", static_cast<long long>(jobId_),
                 params_.destinationInstanceId);
    return -1;
  }
  return readRestoreTime();
}

int MySqlSBTRestoreUtils::readSource() {
  const long long job = jobId_;
  unsigned long clientId = 0;
  unsigned long instanceId = 0;
  if (task_->getSourceClientId(clientId) != 0) {
    event_.Error(tag, "Failed to get source client id for job [%lld]", job);
  } else if (task_->getSourceInstanceId(instanceId) != 0) {
    event_.Error(tag, "Failed to get source instance id for job [%lld]", job);
  } else if (getClientNameFromId(params_.clientNameText, clientId) != 0) {
    event_.Error(tag, "Failed to get client name from client id [%lu]", clientId);
  } else if (getInstanceNameFromId(params_.instanceName, instanceId) != 0) {
    event_.Error(tag, "Failed to get instance name from instance id [%lu]", instanceId);
  } else {
    params_.clientId = clientId;
    params_.instanceId = instanceId;
    return 0;
  }
  return -1;
}

int MySqlSBTRestoreUtils::readDestination(std::uint32_t& cause) {
  const long long job = jobId_;
  unsigned long clientId = 0;
  unsigned long instanceId = 0;
  if (task_->getDestinationClientId(clientId) != 0) {
    event_.Error(tag, "Failed to get destination client id for job [%lld]", job);
    return -1;
  }
  if (task_->getDestinationInstanceId(instanceId) != 0) {
    event_.Error(tag, "Failed to get destination instance id for job [%lld]", job);
    return -1;
  }
  params_.destinationClientId = clientId;
  params_.destinationInstanceId = instanceId;
  const MySqlInstance instance(instanceId);
  bool isEnabled = false;
  if (instance.getMySqlMEBEnabled(isEnabled) != 0) {
    event_.Error(tag, "Failed to check if MEB is Enabled for instance [%lu]", instanceId);
    return -1;
  }
  if (!isEnabled) {
    event_.Error(tag, "MEB backup is not enabled in instance [%lu]", instanceId);
    std::string name;
    if (instance.getInstanceName(name) != 0) name = std::to_string(instanceId);
    jobObject_->event() << "Restore" << name;
    cause = sbt::causeBackupNotEnabled;
    return -1;
  }
  if (instance.getMySqlMEBBinPath(params_.binaryDirectory) != 0 || params_.binaryDirectory.empty()) {
    event_.Error(tag, "Failed to get MEB binary path for instance [%lu]", instanceId);
    return -1;
  }
  driverText1_ = FXPath::Append(params_.binaryDirectory, sbt::backupProgram);
  return 0;
}

int MySqlSBTRestoreUtils::readTarget() {
  const long long job = jobId_;
  long type = 0;
  if (task_->getNumber(DZRestoreTask::optionRestoreType, type) != 0) {
    event_.Error(tag, "Failed to get restore type for job [%lld]", job);
    return -1;
  }
  if (type == intoServer) return readServerTarget();
  if (type != intoDirectory) {
    event_.Error(tag, "Got unknown restore type for job [%lld]", job);
    return -1;
  }
  event_.Debug(tag, "Restoring data to custom directory.");
  if (task_->getText(DZRestoreTask::optionDestinationFolder, targetDirectory_) == 0) return 0;
  event_.Error(tag, "Failed to get destination direcory for job [%lld]", job);
  return -1;
}

int MySqlSBTRestoreUtils::readServerTarget() {
  event_.Debug(tag, "Recover of data to database server selected.");
  restoreToServer_ = true;
  // Kept: an absent staging directory is an error line and no failure. It is what most restores look like.
  if (task_->getText(DZRestoreTask::optionStagingFolder, targetDirectory_) != 0)
    event_.Error(tag, "Failed to get staging direcory for job [%lld]", static_cast<long long>(jobId_));
  // Kept: a staging directory takes the place of the server's own, which stays as it is although the server is stopped.
  if (!targetDirectory_.empty()) return 0;
  const unsigned long instanceId = params_.destinationInstanceId;
  std::string property;
  if (MySqlInstance(instanceId).getMySqlDataDir(property) != 0) {
    event_.Error(tag, "Failed to get datadir from destination instance [%lu]", instanceId);
    return -1;
  }
  GetMySqlInfo::extractDataDir(property, targetDirectory_, ownerUser_, ownerGroup_);
  event_.Debug(tag, "Captured dataDir[%s], user[%s], group[%s] instance [%lu]", targetDirectory_.c_str(),
               ownerUser_.c_str(), ownerGroup_.c_str(), instanceId);
  return 0;
}

int MySqlSBTRestoreUtils::readRestoreTime() {
  std::int64_t seconds = 0;
  if (task_->getRestoreToTime(seconds) != 0) {
    event_.Error(tag, "Failed to get Restore to time for job [%lld]", static_cast<long long>(jobId_));
    return -1;
  }
  if (seconds != 0) params_.restoreTime = seconds;
  return 0;
}
