// Life of the utilities, and what a run leaves behind.

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/FXFile.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace {
constexpr int removeFolderFlags = 113;
}

MySqlSBTUtils::MySqlSBTUtils()
    : handler_(std::make_shared<MySqlSBTHandler>()),
      sessionServer_(std::make_unique<DBAgentUtils::DbSessionServer>(handler_)) {}

MySqlSBTUtils::~MySqlSBTUtils() {
  // Whatever still calls back ends first; it uses the other two.
  endSessionServer();
  sessionServer_.reset();
  jobControl_.reset();
  jobObject_.reset();
}

void MySqlSBTUtils::endSessionServer() {
  if (sessionServer_ != nullptr) sessionServer_->CleanupSessionServer();
  sessionThread_.join();
  isSessionServerReady_ = false;  // connections that the server itself ends are told to nobody
}

void MySqlSBTUtils::cleanUp() {
  constexpr const char* tag = "MySqlSBTUtils::cleanUp";
  orrery::mysql::guarded(event_, tag, [&] {
    event_.DebugLvl(tag, 1, "Cleaning temp backup directory [%s]", jobResultsDir_.c_str());
    if (!jobResultsDir_.empty()) {
      const CKyError error = FXFile::RemoveFolder(jobResultsDir_, removeFolderFlags);
      if (error.isError()) {
        event_.Error(tag, "failed to remove temporary backup dir [%s], error[%s]", jobResultsDir_.c_str(),
                     error.text().c_str());
      }
      orrery::mysql::sbt::removeTimedFolderOf(jobResultsDir_);
    }
    endSessionServer();
    return 0;
  });
}
