// Where a run works, and the media library that it needs.

#include <cstdio>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/FXString.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace {

constexpr const char* tag = "MySqlSBTUtils::initializeCommonParams";

const char* folderOf(DZJobType type) {
  switch (type) {
    case DZJobType::backup:
      return "DZ_JobResults/2/0/BKP";
    case DZJobType::restore:
      return kRestoreResultsFolder;
    default:
      return nullptr;
  }
}

}  // namespace

int MySqlSBTUtils::initializeCommonParams(std::uint64_t instanceId) {
  return orrery::mysql::guarded(event_, tag, [&] {
    DZPI_CommClient platform;
    platform.setFocusClientName(platform.getFocusClientName(true));
    jobResultsDir_.clear();
    std::string folder;
    std::string home;
    if (platform.getJobResultsDirectory(platform.getFocusClientName(true), folder) != 0 || folder.empty() ||
        platform.getBaseHomeDirectory(home) != 0 || home.empty()) {
      event_.Error(tag, "the agent has no folder for job results or no home");
      return -1;
    }
    if (const char* const ofType = folderOf(jobType_); ofType != nullptr) folder = FXPath::Append(folder, ofType);
    jobResultsDir_ = FXPath::Append(orrery::mysql::sbt::timedFolder(folder), std::to_string(instanceId));

    sbtLibraryPath_ = FXPath::Append(home, "libobk.so");
    bool isFile = false;
    if (FXPath::DoesPathExist(sbtLibraryPath_, isFile)) return 0;
    tellMissingLibrary();
    return -1;
  });
}

void MySqlSBTUtils::tellMissingLibrary() {
  event_.Error(tag, "Library libobk.so is not found in [%s].", sbtLibraryPath_.c_str());
  if (DZJobClient* const job = jobObject_.get(); jobId_ != 0 && job != nullptr) {
    const bool isBackup = jobType_ == DZJobType::backup;
    job->event() << sbtLibraryPath_ << (isBackup ? params_.clientNameText : params_.clientName);
    job->setPendingCause(orrery::mysql::sbt::causeLibraryMissing, orrery::mysql::sbt::causeMessageType);
  }
  std::printf("Library libobk.so is not found in [%s]\n", sbtLibraryPath_.c_str());
}
