// A run of `mysqlbackup` from its driver's side.

#include <memory>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/LibMySqlProcess.h"
#include "orrery/platform/services.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;
using LibMySqlProcess::MySqlChildProcess;

namespace {

constexpr const char* waitTag = "MySqlSBTUtils::WaitForMEB";
constexpr const char* passTag = "MySqlSBTUtils::shouldContinue";
constexpr std::int64_t betweenPasses = 1000;   // milliseconds
constexpr std::int64_t longestOpening = 2000;  // milliseconds
constexpr int outputLevel = 8;

/// Kept: the words name the restore in a backup as well. Both the whole run and each of its passes refuse with them.
constexpr const char* notInitialized = "MySQL SBT Restore Utils was not initialized.";

}  // namespace

int MySqlSBTUtils::WaitForMEB(MySqlChildProcess& child) {
  return orrery::mysql::guarded(event_, waitTag, [&] {
    if (!isInitialized_) {
      event_.Error(waitTag, "%s", notInitialized);
      return -1;
    }
    if (sessionServer_ == nullptr) {
      event_.Debug(waitTag, "MySQL SBT session server was not initialized.");
      return -1;
    }
    try {
      return supervise(child);
    } catch (const DzException& error) {
      event_.Error(waitTag, "Exception encountered %d:%s", error.getErrno(), error.what());
      return -1;
    }
  });
}

int MySqlSBTUtils::supervise(MySqlChildProcess& child) {
  // However the run ends, the session server ends with it: the silence until the next run is nobody's failure.
  const auto end = [](MySqlSBTUtils* self) { self->endSessionServer(); };
  const std::unique_ptr<MySqlSBTUtils, decltype(end)> serving(this, end);
  if (serveMediaLibrary() != 0) return -1;
  if (child.BeginWait() != 0) {
    event_.Debug(waitTag, "Failed to start BeginWait thread.");
    return -1;
  }
  event_.Debug(waitTag, "Successfully start BeginWait thread.");
  do {
    orrery::platform::services().clock->sleep(betweenPasses);
  } while (shouldContinue(child));
  return child.isFailed() ? -1 : 0;
}

int MySqlSBTUtils::serveMediaLibrary() {
  event_.Debug(waitTag, "Creating thread to moniter SBT thread");
  isSessionServerReady_ = false;
  sessionServer_->prepare();
  if (sessionThread_.createThread(startThreadForMEBSessionServer, sessionServer_.get()) != 0) {
    event_.Debug(waitTag, "Failed to start session server thread");
    return -1;
  }
  // The program runs already, and its media library connects with its first image. A server that does not come up is
  // told by its thread.
  sessionServer_->waitUntilListening(longestOpening);
  return 0;
}

bool MySqlSBTUtils::shouldContinue(MySqlChildProcess& child) {
  if (!isInitialized_) {
    event_.Debug(passTag, "%s", notInitialized);
    return false;
  }
  // Asked for before anything else: how a child ended is known no later than that it ended.
  const bool complete = child.isComplete();
  if (handler_->isThreadFailed()) {
    event_.Debug(passTag, "MySqlSBT Server thread failed.");
    child.Terminate();
    child.markFailed();
  }
  if (child.isFailed()) {
    tellFailure(child);
    return false;
  }
  if (!complete) {
    if (jobControl_ == nullptr || !jobControl_->checkQuitFlag()) return true;
    // Kept: with the blank before it, as people search for it.
    event_.Debug(passTag, " Quit flag set in the JobManager.");
    // Kept: what the run comes to is the child's own mark, not the request.
    child.Terminate();
    return false;
  }
  child.setPreserveError(true);
  event_.DebugLvl(passTag, outputLevel, "Output of mysqlbackup command");
  child.logBufferContent();
  return false;
}

void MySqlSBTUtils::tellFailure(MySqlChildProcess& child) {
  event_.Debug(passTag, "Wait For Child Process failed");
  std::string reason;
  if (child.ReadLastErr(reason, "ERROR:") != 0) {
    event_.Debug(passTag, "Reading last error from STDERR of commmand failed");
    reason = "mysqlbackup failed.";
  }
  event_.Debug(passTag, "Error while executing mysqlbackup");
  child.logBufferContent();
  if (jobObject_ == nullptr) return;
  jobObject_->event() << reason;
  jobObject_->setPendingCause(sbt::causeBackupProgramFailed, sbt::causeMessageType);
}
