// Backup: the command line of `mysqlbackup` and its run.

#include <string>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/FXString.h"

#include "sbt/command_values.h"
#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTBackupUtils::doMEBBackup";
constexpr std::uint32_t incrementalLevel = 2;

}  // namespace

int MySqlSBTBackupUtils::doMEBBackup() {
  return orrery::mysql::guarded(event_, tag, [&] {
    if (!isInitialized_) {
      event_.Error(tag, "%s", sbt::initializationNotDone);
      return -1;
    }
    std::string command;
    if (backupCommand(command) != 0) return -1;
    std::string out;
    std::string err;
    int rc = 0;
    const int result = runCommand(command, out, err, rc, false);
    if (result < 0 || rc > 0) {
      event_.Error(tag, sbt::commandFailed, command.c_str(), rc);
      return -1;
    }
    cleanUp();
    event_.DebugLvl(tag, 1, "Successfully backed up image [%s]", imageName_.c_str());
    // Kept: once more. What a driver of one's own does in its clean-up happens before and after that line.
    cleanUp();
    return result;
  });
}

int MySqlSBTBackupUtils::backupCommand(std::string& command) {
  const std::string directory = sbt::timedFolder(jobResultsDir_);
  AppIdInfo application;
  if (const int rc = session_.appId.getAppIdInfo(application); rc != 0) {
    event_.Error(tag, "the inventory does not tell the ids of the application, error %d", rc);
    return -1;
  }
  const std::string threadCommandLine =
      sbt::formatted("ThreadCommandLine=-j %lld -a %ld:%ld -at %d -t %d", static_cast<long long>(jobId_),
                     static_cast<long>(application.instanceId), static_cast<long>(application.subclientId),
                     kMySqlApplicationType, static_cast<int>(backupLevel_));
  std::string options;
  if (backupLevel_ == incrementalLevel) options += "--incremental --incremental-base=history:last_backup";
  bool withoutLocks = false;
  if (session_.pMySqlInstance->getMySqlNoLockingEnabled(withoutLocks) != 0) {
    event_.Debug(tag, "getMySqlNoLockingEnabled failed.");
    return -1;
  }
  if (withoutLocks) options += " --no-locking --skip-binlog ";
  if (refuseUnfit(directory) != 0) return -1;
  command = sbt::formatted(
      "%s --defaults-file=\"%s\" -u %s --socket=\"%s\" --sbt-lib-path=\"%s\" --backup-dir=\"%s\" --backup-image=\"%s\" "
      "%s --sbt-environment=\"DzSrcClientName=%s,DzKycmdTokenFile=%s,DzMySQLSBTInstance=%s,%s\" --verbose --debug=all "
      "backup-to-image",
      program_.c_str(), session_.strConfigPwdFile.c_str(), saUser_.c_str(), socket_.c_str(), sbtLibraryPath_.c_str(),
      directory.c_str(), imageName_.c_str(), options.c_str(), params_.clientNameText.c_str(), params_.tokenFile.c_str(),
      params_.instanceName.c_str(), threadCommandLine.c_str());
  // `mysqlbackup` makes its own folder, not those above it.
  if (const CKyError error = CKyDirectory::Create(jobResultsDir_); error.isError())
    event_.Error(tag, "the working directory cannot be made: %s", error.text().c_str());
  return 0;
}

int MySqlSBTBackupUtils::refuseUnfit(const std::string& directory) {
  using sbt::Place;
  const std::string why = sbt::whyNotHandedOver({{"the path of mysqlbackup", program_, Place::word},
                                                 {"the defaults file", session_.strConfigPwdFile, Place::quoted},
                                                 {"the account", saUser_, Place::word},
                                                 {"the socket", socket_, Place::quoted},
                                                 {"the media library", sbtLibraryPath_, Place::quoted},
                                                 {"the working directory", directory, Place::quoted},
                                                 {"the client", params_.clientNameText, Place::environment},
                                                 {"the token file", params_.tokenFile, Place::environment},
                                                 {"the instance", params_.instanceName, Place::environment}},
                                                false);
  if (why.empty()) return 0;
  event_.Error(tag, "not handed over to mysqlbackup: %s", why.c_str());
  jobObject_->event() << why;
  jobObject_->setPendingCause(sbt::causeNotHandedOver, sbt::causeMessageType);
  return -1;
}
