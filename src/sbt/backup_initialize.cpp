// Backup: the job, the instance and its properties.

#include <string>
#include <utility>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/services.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTBackupUtils::initialize";
constexpr const char* propertiesTag = "MySqlSBTBackupUtils::fetchProperties";

}  // namespace

MySqlSBTBackupUtils::MySqlSBTBackupUtils() = default;
MySqlSBTBackupUtils::~MySqlSBTBackupUtils() = default;

void MySqlSBTBackupUtils::cleanUp() {
  MySqlSBTUtils::cleanUp();
}

int MySqlSBTBackupUtils::initialize(mysqlBackupArgs_t& args) {
  return orrery::mysql::guarded(event_, tag, [&] { return initializeWith(args); });
}

int MySqlSBTBackupUtils::initializeWith(const mysqlBackupArgs_t& args) {
  jobId_ = args.jobId;
  backupLevel_ = args.backupLevel;
  args_ = args;
  application_ = ApplicationId(args.applicationInstance, args.applicationSubclient);
  DZPI_CommClient platform;
  platform.setFocusClientName(platform.getFocusClientName(true));
  if (initializeJobControl(jobId_, DZJobType::backup, platform.getArbiterClientName(), nullptr) != 0) {
    event_.Error(tag, "%s", sbt::noJobControl);
    return -1;
  }
  // Kept: an error line that tells a success. It is in the log whatever level people have chosen.
  event_.Error(tag, "Intialized MySQL SBT Backup Job Control");
  if (session_.Init(application_) != 0) {
    event_.Error(tag, "Failed to intialize GetMySqlInfoEx object");
    jobObject_->setPendingCause(sbt::causeNoInstance, sbt::causeMessageType);
    return -1;
  }
  handler_->setSBTAgent(this);
  handler_->setJobId(jobId_);
  // Kept: the instance's id as the caller left it, which is the last part of the working directory's name. What the
  // inventory knows of the instance is read after this.
  if (initializeCommonParams(params_.instanceId) != 0) {
    event_.Error(tag, "%s", sbt::noCommonParams);
    return -1;
  }
  if (fetchProperties() != 0) {
    event_.Error(tag, "Failed to fetch required properties.");
    jobObject_->setPendingCause(sbt::causeNoInstance, sbt::causeMessageType);
    return -1;
  }
  isInitialized_ = true;
  return 0;
}

int MySqlSBTBackupUtils::fetchProperties() {
  return orrery::mysql::guarded(event_, propertiesTag, [&] {
    const auto fail = [&](const char* text) {
      event_.Error(propertiesTag, "%s", text);
      return -1;
    };
    // An empty property is as good as none: the command line that is made of it would mean something else.
    const MySqlInstance* const instance = session_.pMySqlInstance;
    std::string folder;
    if (instance == nullptr || instance->getMySqlMEBBinPath(folder) != 0 || folder.empty())
      return fail("Failed to get MEB path from MySQL instance");
    program_ = FXPath::Append(folder, sbt::backupProgram);
    if (instance->getSaUser(saUser_) != 0 || saUser_.empty()) return fail("Failed to get SA User from MySQL instance");
    if (instance->getMySqlSocketFile(socket_) != 0 || socket_.empty())
      return fail("Failed to get Socket from MySQL instance");
    if (session_.appId.getClientName(params_.clientNameText) != 0) return fail("Failed to get MySql Client Name");
    if (instance->getInstanceName(params_.instanceName) != 0) return fail("Failed to get MySql Instance Name");
    params_.instanceId = instance->getInstanceId();
    if (params_.instanceId == 0) return fail("Failed to get valid MySql Instance Id");
    imageName_ = sbt::formatted("sbt:%ld_%lld_%ld", static_cast<long>(params_.instanceId),
                                static_cast<long long>(jobId_), static_cast<long>(sbt::secondsNow()));
    return 0;
  });
}
