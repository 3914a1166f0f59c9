#include "enterprise_backup.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/instance_properties.h"

#include "backup_history.h"
#include "data_paths.h"
#include "enterprise_job.h"
#include "failure.h"
#include "images.h"
#include "interrupt.h"
#include "job_text.h"
#include "outside_paths.h"
#include "server_session.h"
#include "subclient_lookup.h"
#include "time_text.h"
#include "work_lock.h"

namespace orrery::tool {
namespace {

// Causes of the command's own, in the message catalogue.
constexpr std::uint32_t imageNotArchived = 0x57000102;
constexpr std::uint32_t databasesNotInIndex = 0x57000103;
constexpr std::uint32_t ownerNotKnown = 0x57000104;
constexpr std::uint32_t baseNotKnown = 0x57000105;
constexpr int full = 1;
constexpr int incremental = 2;

/// After a run that broke off nobody knows whether the server has noted the backup: the next incremental one may stand
/// on that image or on the one before it.
bool hasEndedWell(Context& context, long long job) {
  platform::JobRecord record;
  const platform::Status status = context.services().jobs->find(job, record);
  if (status.code == platform::statusNotFound) return false;
  require(status, "the job of the newest image cannot be looked up");
  return record.state == platform::JobState::succeeded || record.state == platform::JobState::completedWithErrors;
}

/// Since the last one that ended well. The image of a backup that was killed may still be entered in the archive, by
/// the next one that writes there.
bool wasKilled(Context& context, platform::Id instance) {
  bool killed = false;
  eachJobOf(context, instance, platform::JobType::backup, [&](const platform::JobRecord& job) {
    killed = stateOf(context, job) == "died";
    return !killed && job.state != platform::JobState::succeeded &&
           job.state != platform::JobState::completedWithErrors;
  });
  return killed;
}

/// A backup's place among those of its server.
struct Place {
  int level = full;
  std::optional<BackupHistory> before;  ///< as far as the server was asked
};

/// Why the server's next incremental backup would not stand on the newest image; empty when it would.
std::string whyNotOnImage(Context& context, const platform::InstanceRecord& instance, long long newestImageJob,
                          Place& place) {
  const std::optional<std::string> noted = notedNewestBackup(context, newestImageJob);
  if (!noted) return "it is not noted which of the server's backups the newest image is";
  try {
    place.before = readBackupHistory(context, instance);
  } catch (const Failure& failure) {
    return failure.what();
  }
  return place.before->newest == *noted ? std::string()
                                        : "the newest image is not what the server has as its last backup";
}

/// Why an incremental backup would have nothing to stand on; empty when it has.
std::string whyNotIncremental(Context& context, const platform::InstanceRecord& instance,
                              const platform::SubclientRecord& subclient, Place& place) {
  if (subclient.forceFull) return "its images were restored since the last one";
  const std::vector<platform::ArchiveFile> images = imagesOf(context, instance);
  if (std::none_of(images.begin(), images.end(), [](const platform::ArchiveFile& i) { return i.level == full; }))
    return "there is no full one to stand on";
  if (!hasEndedWell(context, images.back().jobId)) return "the job of the newest image did not end well";
  if (wasKilled(context, instance.id)) return "a backup was killed since the last one that ended well";
  platform::ChainQuery chain;
  chain.backupSetId = subclient.backupSetId;
  chain.applicationType = platform::property::applicationTypeMySql;
  chain.to = std::numeric_limits<std::int64_t>::max();
  chain.reads = false;
  std::vector<platform::ArchiveFile> whole;
  if (const platform::Status status = context.services().archive->restoreChain(chain, whole); !status.ok())
    return "the last images cannot be restored: " + status.text;
  return whyNotOnImage(context, instance, images.back().jobId, place);
}

/// The level that a backup of this one can have.
Place placeOf(Context& context, int level, const platform::InstanceRecord& instance,
              const platform::SubclientRecord& subclient) {
  Place place;
  if (level != incremental) return place;
  const std::string reason = whyNotIncremental(context, instance, subclient, place);
  if (reason.empty()) {
    place.level = incremental;
  } else {
    context.note("a full backup is made: " + reason);
  }
  return place;
}

mysqlBackupArgs_t argumentsOf(const EnterpriseJob& job, const platform::InstanceRecord& instance,
                              const platform::SubclientRecord& subclient, int level) {
  mysqlBackupArgs_t args;
  args.jobId = job.id();
  args.backupLevel = static_cast<std::uint32_t>(level);
  args.applicationInstance = static_cast<std::uint32_t>(instance.id);
  args.applicationSubclient = static_cast<std::uint32_t>(subclient.id);
  return args;
}

/// A later restore has to know whose files the data directory holds, when no server is there to be asked.
void rememberDataDirectory(Context& context, EnterpriseJob& job, const platform::InstanceRecord& instance) {
  try {
    ServerSession server(context, std::to_string(instance.id), ServerSession::LibraryMode{});
    noteDataDirectory(server);
    noteOutsidePaths(context, server, job.id());
  } catch (const Failure& failure) {
    job.addCause(ownerNotKnown, {failure.what()});
    context.note(failure.what());
  }
}

std::optional<BackupHistory> historyIfKnown(Context& context, const platform::InstanceRecord& instance) {
  try {
    return readBackupHistory(context, instance);
  } catch (const Failure& failure) {
    context.note(failure.what());
  } catch (const Interrupted&) {  // whose wish the driver is told
  }
  return {};
}

/// For the next incremental backup. One that ends when another of the server has ended meanwhile may stand on that one,
/// and no restore must be told otherwise.
void noteOwnBackup(Context& context, EnterpriseJob& job, const platform::InstanceRecord& instance, const Place& place,
                   const platform::ArchiveFile& image, const std::string& title) {
  const std::optional<BackupHistory> now = place.before ? historyIfKnown(context, instance) : std::nullopt;
  const long long more = now ? now->count - place.before->count : 0;
  if (more > 1 && place.level == incremental) {
    require(context.services().archive->removeFile(image.id), "an image that cannot be restored stays in the archive");
    job.addCause(baseNotKnown, {image.name});
    job.fail(title);
  }
  const bool isNewest = more == 1 && now->newest != place.before->newest;
  if (!isNewest || !noteNewestBackup(context, job.id(), now->newest))
    context.note("the next incremental backup will be a full one: it is not noted what the server counts this one as");
}

/// The image as the archive knows it: what it does not know, no restore finds.
platform::ArchiveFile requireImage(Context& context, EnterpriseJob& job, const std::string& imageName,
                                   const std::string& title) {
  constexpr std::size_t prefix = std::char_traits<char>::length("sbt:");
  std::vector<platform::ArchiveFile> files;
  const std::string name = imageName.substr(std::min(prefix, imageName.size()));
  require(context.services().archive->findFiles(platform::property::applicationTypeMySql, name, files),
          "the archive cannot be read");
  const auto own = std::find_if(files.begin(), files.end(),
                                [&](const platform::ArchiveFile& file) { return file.jobId == job.id(); });
  if (own != files.end()) return *own;
  job.addCause(imageNotArchived, {name});
  job.fail(title);
}

void printImage(Context& context, const platform::JobRecord& job, const platform::InstanceRecord& instance,
                const platform::SubclientRecord& subclient, const platform::ArchiveFile& image) {
  std::vector<platform::BrowsePath> databases;
  require(context.services().index->listPaths(instance.id, job.id, databases), "the index cannot be read");
  Json document;
  document["job"] = job.id;
  document["state"] = stateOf(context, job);
  document["instance"] = instance.name;
  document["subclient"] = subclient.name;
  document["image"] = imageDocument(image);
  document["databases"] = Json::array();
  for (const platform::BrowsePath& database : databases) document["databases"].push_back(database.name);
  Table table;
  table.add({"job", std::to_string(job.id) + ", " + stateOf(context, job)});
  table.add({"instance", instance.name});
  table.add({"subclient", subclient.name});
  table.add({"image", image.name});
  table.add({"level", levelText(image.level)});
  table.add({"made", timeText(image.created * 1000000)});
  table.add({"size", amountText(static_cast<double>(image.size))});
  table.add({"databases", std::to_string(databases.size())});
  context.print(document, table);
}

}  // namespace

bool isEnterprise(const platform::InstanceRecord& instance) {
  const auto enabled = instance.properties.find(platform::property::mebEnabled);
  return enabled != instance.properties.end() && enabled->second == "1";
}

void runEnterpriseBackup(Context& context, const BackupRequest& request, const platform::InstanceRecord& instance,
                         const platform::SubclientRecord& subclient) {
  const std::string title = "the backup of " + instance.name + " failed";
  const WorkLock lock(context, instance);
  Place place = placeOf(context, request.level, instance, subclient);
  platform::JobRecord record;
  record.type = platform::JobType::backup;
  record.instanceId = instance.id;
  record.subclientId = subclient.id;
  record.level = place.level;
  EnterpriseJob job(context, record, "backup");
  platform::ArchiveFile image;
  {
    const OutputAside aside;
    const Finishing waitsInFull;  // the user's wish for the end reaches the driver as the job's
    MySqlSBTBackupUtils driver;
    driver.setInstanceId(instance.id);
    mysqlBackupArgs_t args = argumentsOf(job, instance, subclient, place.level);
    if (driver.initialize(args) != 0) job.fail(title);
    rememberDataDirectory(context, job, instance);
    if (!place.before) place.before = historyIfKnown(context, instance);
    if (driver.doMEBBackup() != 0 || job.isAskedToStop()) job.fail(title);
    image = requireImage(context, job, driver.imageName(), title);
    noteOwnBackup(context, job, instance, place, image, title);
    driver.setIndexImage(image.name);
    DZJobStatus status = job.causes().empty() ? DZJobStatus::success : DZJobStatus::completedWithErrors;
    if (driver.sendIndexingMetaData() != 0) {
      job.addCause(databasesNotInIndex, {context.lastWords()});
      status = DZJobStatus::completedWithErrors;
    }
    // What stood against incremental backups is overcome by an image that can be found, however the rest ended.
    if (place.level == full && MySqlSubclient(subclient.id).SetForceFull(false) != 0) {
      context.note("the subclient " + subclient.name + " is still marked for a full backup");
    }
    require(context.services().jobs->setProgress(job.id(), 100), "the job's progress cannot be told");
    if (driver.NotifyArbiterJobComplete(status, DZJobStatusFor::job, 0) != 0)
      throw Failure("the end of the job " + std::to_string(job.id()) + " is not recorded", context.lastWords());
  }
  printImage(context, job.record(), instance, subclient, image);
}

}  // namespace orrery::tool
