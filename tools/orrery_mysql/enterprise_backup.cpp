#include "enterprise_backup.h"

#include <algorithm>
#include <limits>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/instance_properties.h"

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
constexpr int full = 1;
constexpr int incremental = 2;

const platform::ArchiveFile& newest(const std::vector<platform::ArchiveFile>& images) {
  return *std::max_element(images.begin(), images.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
}

/// After a run that broke off nobody knows whether the server has noted the backup: the next incremental one may stand
/// on that image or on the one before it.
bool hasEndedWell(Context& context, long long job) {
  platform::JobRecord record;
  const platform::Status status = context.services().jobs->find(job, record);
  if (status.code == platform::statusNotFound) return false;
  require(status, "the job of the newest image cannot be looked up");
  return record.state == platform::JobState::succeeded || record.state == platform::JobState::completedWithErrors;
}

/// Its image may still be entered in the archive, by the next one that writes there.
bool wasKilled(Context& context, platform::Id instance) {
  constexpr std::size_t most = 100;
  std::vector<platform::JobRecord> jobs;
  require(context.services().jobs->list(most, jobs), "the jobs cannot be listed");
  const auto last = std::find_if(jobs.begin(), jobs.end(), [&](const platform::JobRecord& job) {
    return job.type == platform::JobType::backup && job.instanceId == instance;
  });
  return last != jobs.end() && stateOf(context, *last) == "died";
}

/// By another record of the same server: what the server counts as its last backup is that one then.
bool isOvertaken(Context& context, const platform::InstanceRecord& instance, platform::Id newestImage) {
  const auto socketOf = [](const platform::InstanceRecord& record) {
    const auto socket = record.properties.find(platform::property::socketFile);
    return socket == record.properties.end() ? std::string() : socket->second;
  };
  std::vector<platform::InstanceRecord> records;
  require(context.services().inventory->listInstances(records), "the inventory cannot be read");
  return std::any_of(records.begin(), records.end(), [&](const platform::InstanceRecord& other) {
    if (other.id == instance.id || socketOf(other).empty() || socketOf(other) != socketOf(instance)) return false;
    const std::vector<platform::ArchiveFile> images = imagesOf(context, other);
    return !images.empty() && newest(images).id > newestImage;
  });
}

/// Why an incremental backup would have nothing to stand on; empty when it has.
std::string whyNotIncremental(Context& context, const platform::InstanceRecord& instance,
                              const platform::SubclientRecord& subclient) {
  if (subclient.forceFull) return "its images were restored since the last one";
  const std::vector<platform::ArchiveFile> images = imagesOf(context, instance);
  if (std::none_of(images.begin(), images.end(), [](const platform::ArchiveFile& i) { return i.level == full; }))
    return "there is no full one to stand on";
  if (!hasEndedWell(context, newest(images).jobId)) return "the job of the newest image did not end well";
  if (wasKilled(context, instance.id)) return "the last backup was killed";
  platform::ChainQuery chain;
  chain.backupSetId = subclient.backupSetId;
  chain.applicationType = platform::property::applicationTypeMySql;
  chain.to = std::numeric_limits<std::int64_t>::max();
  chain.reads = false;
  std::vector<platform::ArchiveFile> whole;
  if (const platform::Status status = context.services().archive->restoreChain(chain, whole); !status.ok())
    return "the last images cannot be restored: " + status.text;
  if (isOvertaken(context, instance, newest(images).id)) return "another record of this server was backed up since";
  return {};
}

/// The level that a backup of this one can have.
int possibleLevel(Context& context, int level, const platform::InstanceRecord& instance,
                  const platform::SubclientRecord& subclient) {
  if (level != incremental) return level;
  const std::string reason = whyNotIncremental(context, instance, subclient);
  if (reason.empty()) return incremental;
  context.note("a full backup is made: " + reason);
  return full;
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
  const int level = possibleLevel(context, request.level, instance, subclient);
  platform::JobRecord record;
  record.type = platform::JobType::backup;
  record.instanceId = instance.id;
  record.subclientId = subclient.id;
  record.level = level;
  EnterpriseJob job(context, record, "backup");
  platform::ArchiveFile image;
  {
    const OutputAside aside;
    const Finishing waitsInFull;  // the user's wish for the end reaches the driver as the job's
    MySqlSBTBackupUtils driver;
    driver.setInstanceId(instance.id);
    mysqlBackupArgs_t args = argumentsOf(job, instance, subclient, level);
    if (driver.initialize(args) != 0) job.fail(title);
    rememberDataDirectory(context, job, instance);
    if (driver.doMEBBackup() != 0 || job.isAskedToStop()) job.fail(title);
    image = requireImage(context, job, driver.imageName(), title);
    DZJobStatus status = job.causes().empty() ? DZJobStatus::success : DZJobStatus::completedWithErrors;
    if (driver.sendIndexingMetaData() != 0) {
      job.addCause(databasesNotInIndex, {context.lastWords()});
      status = DZJobStatus::completedWithErrors;
    }
    // What stood against incremental backups is overcome by an image that can be found, however the rest ended.
    if (level == full && MySqlSubclient(subclient.id).SetForceFull(false) != 0) {
      context.note("the subclient " + subclient.name + " is still marked for a full backup");
    }
    require(context.services().jobs->setProgress(job.id(), 100), "the job's progress cannot be told");
    if (driver.NotifyArbiterJobComplete(status, DZJobStatusFor::job, 0) != 0)
      throw Failure("the end of the job " + std::to_string(job.id()) + " is not recorded", context.lastWords());
  }
  printImage(context, job.record(), instance, subclient, image);
}

}  // namespace orrery::tool
