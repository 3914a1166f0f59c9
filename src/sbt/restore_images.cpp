// Restore: the images that lead up to the chosen time.

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/MySqlInstance.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::getBackupImages";
constexpr int forRestoreToTime = 1;

/// The last full image and what follows it: what stands before it has no part in the chain.
auto chainOf(const std::vector<ArchFileListByTimeElement_t>& found) {
  const auto full = std::find_if(found.rbegin(), found.rend(), [](const auto& file) { return !file.isIncremental(); });
  return full == found.rend() ? found.end() : std::prev(full.base());
}

}  // namespace

bool MySqlSBTRestoreUtils::findImageQuery(GetArchFileListByTimeArgs_t& query) const {
  const ApplicationId application(params_.realmId, params_.clientId, kMySqlApplicationType, params_.instanceId,
                                  ApplicationId::defaultBackupSetName(), "(command line)");
  query.applicationType = kMySqlApplicationType;
  query.flag = forRestoreToTime;
  query.toTime = params_.restoreTime;
  // A folder that is filled replaces nothing, and each image is checked while it is applied: reading it twice would
  // only take its time.
  query.reads = restoreToServer_;
  query.isStopped = [this] { return isToStop(); };
  return application.getBackupSetId(query.backupSetId) == 0;
}

std::string MySqlSBTRestoreUtils::whyNotInPlace(const std::vector<ArchFileListByTimeElement_t>& images) {
  GetArchFileListByTimeArgs_t query;
  std::vector<ArchFileListByTimeElement_t> found;
  std::string reason;
  if (!findImageQuery(query)) return "the instance has no backup set any more";
  query.reads = false;
  // What was made since is no part of this restore. The newest image need not be the last one: their order is that of
  // their entry, and a clock may have been set back.
  query.toTime = std::max_element(images.begin(), images.end(), [](const auto& one, const auto& other) {
                   return one.creationTime < other.creationTime;
                 })->creationTime;
  if (ArMgrClientAPI::getArchFileListByTime(query, found, reason) != 0) return reason;
  const bool isSame = std::equal(chainOf(found), found.cend(), images.begin(), images.end(),
                                 [](const auto& now, const auto& then) { return now.fileName == then.fileName; });
  return isSame ? std::string() : "the images are other ones than those that were read";
}

int MySqlSBTRestoreUtils::getBackupImages(std::vector<ArchFileListByTimeElement_t>& images) {
  return orrery::mysql::guarded(event_, tag, [&] {
    const auto fail = [&](std::string reason) {
      imagesProblem_ = std::move(reason);
      event_.Error(tag, "%s", imagesProblem_.c_str());
      return -1;
    };
    GetArchFileListByTimeArgs_t query;
    if (!findImageQuery(query))
      return fail(orrery::mysql::sbt::formatted("Failed to get backupset id for [%s]", params_.instanceName.c_str()));
    event_.Debug(tag, "Querying Images for Instance [%ld]!", static_cast<long>(params_.instanceId));
    std::vector<ArchFileListByTimeElement_t> found;
    std::string reason;
    if (ArMgrClientAPI::getArchFileListByTime(query, found, reason) != 0) return fail(reason);
    if (found.empty()) return fail("No backup images found.");
    const auto first = chainOf(found);
    if (first == found.end()) {
      constexpr const char* nothingKept = "Enterprise backup image(s) not found for the chosen time range.";
      std::puts(nothingKept);
      return fail(nothingKept);
    }
    for (auto image = first; image != found.end(); ++image) {
      event_.Debug(tag, "Adding afile:%s, ctime:%d, scId:%d", image->fileName.c_str(),
                   static_cast<int>(image->creationTime), static_cast<int>(image->subclientId));
      images.push_back(*image);
    }
    return 0;
  });
}
