// Restore: the directory that it goes to. Nothing is stopped or removed before the checks here are through.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "sbt/emptying.h"
#include "sbt/owner.h"
#include "sbt/texts.h"

namespace fs = std::filesystem;
namespace sbt = orrery::mysql::sbt;
using orrery::platform::errorText;
using orrery::platform::services;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreToTime";

bool isBelowOrAt(const fs::path& path, const fs::path& above) {
  const auto [end, rest] = std::mismatch(above.begin(), above.end(), path.begin(), path.end());
  static_cast<void>(rest);
  return end == above.end();
}

/// Without links and without a slash at the end, whether it exists or not.
fs::path resolved(const std::string& path) {
  std::error_code error;
  fs::path whole = fs::weakly_canonical(path, error);
  if (error) whole = fs::path(path).lexically_normal();
  return whole.has_filename() ? whole : whole.parent_path();
}

/// The agent's own folder that a restore would remove, or whose files, the images among them, it would mix with data.
std::string agentFolderAt(const fs::path& target) {
  orrery::platform::Directories& directories = *services().directories;
  std::string home;
  std::string base;
  std::string temporary;
  std::string results;
  // A folder that is not told is none that could be lost.
  static_cast<void>(directories.home(home));
  static_cast<void>(directories.baseHome(base));
  static_cast<void>(directories.temporary(temporary));
  static_cast<void>(directories.jobResults({}, results));
  for (const std::string& folder : {home, base, temporary, results})
    if (!folder.empty() && isBelowOrAt(resolved(folder), target)) return folder;
  for (const std::string& folder : {home, base})
    if (!folder.empty() && isBelowOrAt(target, resolved(folder))) return folder;
  return {};
}

std::string whyNotWritable(const fs::path& target) {
  std::error_code error;
  fs::path place = target;
  while (!fs::exists(place, error) && !error && place.has_relative_path()) place = place.parent_path();
  if (error) return place.native() + ": " + error.message();
  if (!fs::is_directory(place, error)) return place.native() + " is no folder";
  if (faccessat(AT_FDCWD, place.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) == 0) return {};
  return place.native() + ": " + errorText(errno);
}

}  // namespace

int MySqlSBTRestoreUtils::checkBeforehand(const std::vector<ArchFileListByTimeElement_t>& images) {
  if (isToStop()) return stopOnRequest("before anything was changed");
  for (const ArchFileListByTimeElement_t& image : images)
    if (const std::string why = unfitValues(image.fileName, {}, jobResultsDir_); !why.empty())
      return refuse(sbt::causeNotHandedOver, why);
  const std::string why = whyNotPossible();
  return why.empty() ? 0 : refuse(sbt::causeRestoreRefused, why);
}

int MySqlSBTRestoreUtils::refuse(std::uint32_t cause, const std::string& why) {
  event_.Error(tag, "refused before anything was changed: %s", why.c_str());
  if (jobObject_ == nullptr) std::printf("The restore is refused: %s\n", why.c_str());
  return failJob(cause, {why});
}

std::string MySqlSBTRestoreUtils::whyNotPossible() const {
  if (access(driverText1_.c_str(), X_OK) != 0) return driverText1_ + ": " + errorText(errno);
  if (!(ownerUser_.empty() && ownerGroup_.empty()) && !(sbt::isOwnerName(ownerUser_) && sbt::isOwnerName(ownerGroup_)))
    return "[" + ownerUser_ + ":" + ownerGroup_ + "] is no user and group";
  if (targetDirectory_.empty()) return {};  // the configuration file tells `mysqlbackup`
  if (targetDirectory_.front() != '/') return targetDirectory_ + " is no whole path";
  const fs::path target = resolved(targetDirectory_);
  if (!target.has_relative_path()) return targetDirectory_ + " is the root of this machine";
  if (const std::string folder = agentFolderAt(target); !folder.empty())
    return targetDirectory_ + " is, holds or lies in the agent's folder " + folder;
  if (std::string why = whyNotWritable(target); !why.empty()) return why;
  return restoreToServer_ ? sbt::whyNotEmptied(target.native()) : std::string();
}

std::string MySqlSBTRestoreUtils::whyNotEmptied(const std::string& directory) {
  try {
    return sbt::whyNotEmptied(directory);
  } catch (const std::exception& error) {
    return directory + ": " + error.what();
  }
}

int MySqlSBTRestoreUtils::prepareTarget(const std::vector<ArchFileListByTimeElement_t>& images) {
  if (targetDirectory_.empty()) return 0;
  if (isToStop()) return stopBeforeRemoval();
  std::error_code error;
  if (!fs::exists(targetDirectory_, error) && !error) return createTarget();
  const bool isEmpty = fs::is_empty(targetDirectory_, error);
  if (!error && isEmpty) {
    forceFullFromHere();
    return 0;
  }
  if (restoreToServer_) return emptyTarget(images);
  event_.Error(tag, "Destination directory is not empty, cannot proceed with restore.");
  return failJob(sbt::causeDirectoryNotEmpty);
}

int MySqlSBTRestoreUtils::emptyTarget(const std::vector<ArchFileListByTimeElement_t>& images) {
  // The server had its time to go, and so had the images.
  if (const std::string why = whyNotInPlace(images); !why.empty()) {
    event_.Error(tag, "the directory is not emptied: %s", why.c_str());
    return failJob(sbt::causeNoImages, {why + "; " + untouched()});
  }
  forceFullFromHere();
  event_.Debug(tag, "Cleaning MySQL data directory");
  const sbt::Emptied emptied = sbt::emptyDirectory(targetDirectory_);
  if (emptied.problem.empty()) return 0;
  event_.Error(tag, "Failed to cleanup MySQL data directory, Error [%s]", emptied.problem.c_str());
  const std::string state = emptied.any ? "the data directory is not complete and the server is down" : untouched();
  return failJob(sbt::causeDirectoryNotReady, {emptied.problem + "; " + state});
}

int MySqlSBTRestoreUtils::createTarget() {
  forceFullFromHere();
  const CKyError error = CKyDirectory::Create(targetDirectory_);
  if (!error.isError()) return 0;
  event_.Error(tag, "Failed to create destination directory, Error [%s]", error.text().c_str());
  return failJob(sbt::causeDirectoryNotReady, {error.text() + "; " + untouched()});
}
