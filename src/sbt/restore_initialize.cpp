// Restore: the job or, without one, the parameters.

#include <filesystem>
#include <string>
#include <system_error>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/DZRestoreTask.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/services.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::initialize";

}  // namespace

MySqlSBTRestoreUtils::MySqlSBTRestoreUtils() = default;
MySqlSBTRestoreUtils::~MySqlSBTRestoreUtils() = default;

void MySqlSBTRestoreUtils::cleanUp() {
  MySqlSBTUtils::cleanUp();
  orrery::mysql::guarded(event_, tag, [&] {
    removeWorkingDirectory();
    return 0;
  });
}

/// A whole unpacked copy of the data may be in it. What a killed program left running may write one more file while
/// the folder goes; it is given a little time.
void MySqlSBTRestoreUtils::removeWorkingDirectory() {
  constexpr int attempts = 5;
  constexpr std::int64_t betweenAttempts = 1000;  // milliseconds
  if (jobResultsDir_.empty()) return;
  std::error_code error;
  std::filesystem::remove_all(jobResultsDir_, error);
  for (int attempt = 1; error && attempt < attempts; ++attempt) {
    orrery::platform::services().clock->sleep(betweenAttempts);
    std::filesystem::remove_all(jobResultsDir_, error);
  }
  if (error) event_.Error(tag, "[%s] was not removed: %s", jobResultsDir_.c_str(), error.message().c_str());
  orrery::mysql::sbt::removeTimedFolderOf(jobResultsDir_);
}

int MySqlSBTRestoreUtils::initialize(const SBTParams& params, long long jobId) {
  return orrery::mysql::guarded(event_, tag, [&] {
    params_ = params;
    jobId_ = jobId;
    params_.clientName = EvDebug::getClientName();
    extraOptions_ = params_.extraOptions;
    if ((jobId != 0 ? initializeForJob() : initializeByHand()) != 0) return -1;
    if (initializeCommonParams(params_.instanceId) != 0) {
      event_.Error(tag, "%s", sbt::noCommonParams);
      return -1;
    }
    isInitialized_ = true;
    return 0;
  });
}

int MySqlSBTRestoreUtils::initializeForJob() {
  const DZPI_CommClient platform;
  if (initializeJobControl(jobId_, DZJobType::restore, platform.getArbiterClientName(), nullptr) != 0) {
    event_.Error(tag, "%s", sbt::noJobControl);
    return -1;
  }
  // Kept: an error line that tells a success, as in a backup.
  event_.Error(tag, "Intialized MySQL SBT Restore Job Control");
  handler_->setSBTAgent(this);
  handler_->setJobId(jobId_);
  task_ = std::make_unique<DZRestoreTask>(jobId_);
  if (populateTaskOptions() != 0) {
    event_.Error(tag, "Failed to populate task options.");
    return -1;
  }
  // The server need not run: the session asks it with its first request. A restore is wanted most when it does not.
  if (session_.Init(static_cast<long>(params_.destinationInstanceId)) != 0) {
    event_.Error(tag, "GetMySqlInfoExt::Init failed.");
    return -1;
  }
  return 0;
}

int MySqlSBTRestoreUtils::initializeByHand() {
  if (autoPopulateInputs() != 0) {
    event_.Error(tag, "Failed to autopopulate SBT params.");
    return -1;
  }
  if (!isValidInput()) {
    event_.Error(tag, "Invalid inputs received.");
    return -1;
  }
  driverText1_ = FXPath::Append(params_.binaryDirectory, sbt::backupProgram);
  targetDirectory_ = params_.dataDirectory;
  ownerUser_ = params_.ownerUser;
  ownerGroup_ = params_.ownerGroup;
  return 0;
}
