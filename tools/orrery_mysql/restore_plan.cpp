#include "restore_plan.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/instance_properties.h"

#include "data_paths.h"
#include "enterprise_backup.h"
#include "failure.h"
#include "images.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "job_text.h"
#include "outside_paths.h"
#include "posix.h"
#include "progress.h"
#include "server_greeting.h"
#include "server_session.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

constexpr long usualStartWait = 180;  // seconds

std::vector<platform::ArchiveFile> imagesFor(Context& context, const RestorePlan& plan) {
  const Progress progress("reading the images", context.wantsProgress());
  platform::ChainQuery query;
  query.backupSetId = defaultBackupSet(context, plan.instance).id;
  query.applicationType = platform::property::applicationTypeMySql;
  query.to = plan.request.toTime;
  query.reads = plan.request.planOnly;  // a restore reads them itself
  query.isStopped = [] { return interruptSignal() != 0; };
  std::vector<platform::ArchiveFile> images;
  const platform::Status status = context.services().archive->restoreChain(query, images);
  if (interruptSignal() != 0) throw Interrupted();
  require(status, plan.instance.name + " cannot be restored to " + timeText(plan.request.toTime * 1000000),
          status.code == platform::statusNotFound ? "orrery-mysql browse " + plan.instance.name + " lists what there is"
                                                  : std::string());
  return images;
}

/// A restore fills one directory. What the images hold of elsewhere is written there over what a server may use, and
/// what a server keeps elsewhere would stay and not fit.
void requireInside(const RestorePlan& plan, const std::vector<std::string>& outside, const std::string& who) {
  if (outside.empty()) return;
  std::string all;
  for (const std::string& path : outside) all += (all.empty() ? "" : ", ") + path;
  throw Failure(plan.instance.name + " is not restored", who + " data outside the data directory: " + all,
                "restore it with mysqlbackup by hand, which can be told where they go");
}

void lookAtOrigins(Context& context, const RestorePlan& plan) {
  for (const platform::ArchiveFile& image : plan.images) {
    if (const auto noted = notedOutsidePaths(context, image.jobId))
      requireInside(plan, *noted, "the image " + image.name + " holds");
    else
      context.note("it is not known whether the image " + image.name + " holds data outside the data directory");
  }
}

/// What noting the data directory would keep, for a plan that changes nothing.
std::string noteOf(ServerSession& server, std::string directory) {
  std::string owner;
  server.run("the owner of the data directory is not known of",
             [&](GetMySqlInfo& session) { return session.getUserGroupOfPath(directory, owner); });
  if (directory.ends_with('/')) directory.pop_back();
  return "datadir:" + directory + ";" + owner;
}

/// Where the server keeps its data: a server that answers is asked; for one that is down, the last backup noted it.
void findDirectory(Context& context, RestorePlan& plan) {
  const std::string id = std::to_string(plan.instance.id);
  std::string told;
  if (!plan.isIntoServer()) {
    plan.directory = *plan.request.into;
  } else if (plan.serverAnswers) {
    // It may have moved since the last backup.
    ServerSession server(context, id, ServerSession::LibraryMode{});
    if (plan.request.planOnly) {
      told = readDataPaths(server).dataDirectory;
      plan.instance.properties[platform::property::dataDirOwner] = noteOf(server, told);
    } else {
      told = noteDataDirectory(server);
      plan.instance = findInstance(context, id);
    }
    requireInside(plan, outsidePaths(server), "the server keeps");
  }
  std::string directory;
  GetMySqlInfo::extractDataDir(plan.instance.properties[platform::property::dataDirOwner], directory, plan.user,
                               plan.group);
  if (plan.directory.empty()) plan.directory = directory;
  if (plan.directory.empty()) {
    throw Failure("it is not known where " + plan.instance.name + " keeps its data", "no backup has noted it",
                  "start the server and run orrery-mysql paths " + plan.instance.name);
  }
  // What is noted takes a path apart at ";" and ":".
  if (told.starts_with('/') && !isSameFolder(told, plan.directory)) {
    throw Failure(plan.instance.name + " is not restored",
                  "its server keeps its data in " + told + ", which cannot be noted: " + plan.directory + " came of it",
                  "restore into a folder, and move the files by hand");
  }
}

std::string spaceText(const Space& space) {
  std::string text = amountText(static_cast<double>(space.free)) + " are free";
  if (space.freed > 0) text += ", " + amountText(static_cast<double>(space.freed)) + " more once the folder is emptied";
  return text;
}

/// Files that servers make in their data directories, and those that a restore leaves when it breaks off.
bool isOfServer(const std::string& name) {
  static constexpr const char* begins[] = {
      "ibdata",    "ib_",           "ibtmp",   "#ib",    "#inno",    "undo",        "aria_log",  "auto.cnf",
      "mysql-bin", "mysql_upgrade", "binlog.", "relay-", "mariadb_", "xtrabackup_", "backup-my", "backup_variables",
      "server-my"};
  return std::any_of(std::begin(begins), std::end(begins),
                     [&](const char* begin) { return name.starts_with(begin); }) ||
         name.ends_with(".ibd");
}

/// A folder of a database, which may be all that is left of a restore that broke off while it emptied the directory.
bool isDatabase(const std::filesystem::directory_entry& folder) {
  std::error_code error;
  if (!folder.is_directory(error)) return false;
  for (std::filesystem::directory_iterator entry(folder.path(), error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string ending = entry->path().extension();
    if (ending == ".ibd" || ending == ".frm" || ending == ".opt" || ending == ".MYD" || ending == ".MAI" ||
        ending == ".sdi")
      return true;
  }
  return false;
}

void lookAtDirectory(RestorePlan& plan) {
  std::error_code error;
  bool isServers = false;
  bool isStrangers = false;
  for (std::filesystem::directory_iterator entry(plan.directory, error), end; !error && entry != end;
       entry.increment(error)) {
    ++plan.entries;
    const std::string name = entry->path().filename();
    isServers = isServers || isOfServer(name) || isDatabase(*entry);
    isStrangers = isStrangers || name != "lost+found";
  }
  if (error && error != std::errc::no_such_file_or_directory)
    throw Failure("the folder " + plan.directory + " cannot be used", error.message());
  if (plan.isIntoServer() && isStrangers && !isServers) {
    throw Failure(plan.instance.name + " is not restored",
                  plan.directory + ", which would be emptied, holds nothing that a server writes",
                  "correct the instance's data directory, or empty that folder by hand");
  }
  // Asked again by the driver, which reads the images first.
  if (const std::string why = plan.isIntoServer() ? MySqlSBTRestoreUtils::whyNotEmptied(plan.directory) : std::string();
      !why.empty())
    throw Failure(plan.instance.name + " is not restored", plan.directory + " could not be emptied: " + why,
                  "correct that, then start the restore again");
  if (!plan.isIntoServer() && plan.entries != 0) {
    throw Failure("nothing is restored into " + plan.directory, "the folder is not empty",
                  "empty it or choose another one");
  }
}

void lookAtTarget(Context& context, RestorePlan& plan) {
  plan.space = spaceAt(plan.directory, plan.isIntoServer());
  if (plan.space.usable() >= plan.bytesAtMost()) return;
  const bool isTooLittle = plan.space.usable() < plan.bytesNeeded();
  const std::string why =
      (isTooLittle ? "the largest image has " + amountText(static_cast<double>(plan.bytesNeeded()))
                   : "the images have " + amountText(static_cast<double>(plan.bytesAtMost())) + " together") +
      ", and " + spaceText(plan.space);
  if (isTooLittle && !plan.space.isCompressed)
    throw Failure("there is no room in " + plan.directory + " for " + plan.instance.name, why,
                  "make room, or choose another folder");
  context.note("the room in " + plan.directory + " may not do: " + why);
}

/// What `mysqlbackup` unpacks and does not find room for would be missed when the data are gone.
void lookAtWorkingFolder(Context& context, RestorePlan& plan) {
  plan.workingFolder = std::filesystem::path(context.resultsDirectory()) / kRestoreResultsFolder;
  plan.workingSpace = spaceAt(plan.workingFolder, false);
  const bool isShared = plan.workingSpace.device == plan.space.device;
  const std::uint64_t room = isShared ? plan.space.usable() : plan.workingSpace.free;
  const std::uint64_t ofData = isShared ? plan.bytesNeeded() : 0;
  const auto fits = [&](std::uint64_t bytes) { return room >= ofData && room - ofData >= bytes; };
  // A full image is copied to where it belongs, as far as the manual tells: of that only a plan speaks.
  const std::uint64_t unpacked = plan.request.planOnly ? plan.bytesNeeded() : plan.bytesUnpacked();
  if (fits(unpacked)) return;
  const bool isTooLittle = !fits(plan.bytesUnpacked());
  const std::uint64_t missed = isTooLittle ? plan.bytesUnpacked() : unpacked;
  const std::string why = "mysqlbackup may unpack an image of " + amountText(static_cast<double>(missed)) + " in " +
                          plan.workingFolder + (isShared ? ", beside the data" : "") + ", and " +
                          spaceText(isShared ? plan.space : plan.workingSpace);
  if (isTooLittle && plan.isIntoServer() && !plan.workingSpace.isCompressed && !plan.request.littleRoom)
    throw Failure("there may be no room to restore " + plan.instance.name, why,
                  "make room, or mount a file system that has it there; with --little-room it is tried all the "
                  "same");
  context.note("the room may not do: " + why);
}

/// Whether the server runs. One that hangs, or does not let the agent in, cannot be told from one that is down by those
/// who ask it with a client; its data directory must not be emptied.
bool answers(Context& context, const platform::InstanceRecord& instance) {
  constexpr std::chrono::seconds limit{10};
  const std::string title = instance.name + " is not restored";
  const auto socket = instance.properties.find(platform::property::socketFile);
  switch (socket == instance.properties.end() ? Greeting::none : greetingOf(socket->second, limit)) {
    case Greeting::none:
      return false;
    case Greeting::silent:
      throw Failure(title, "its server takes connections and does not answer",
                    "end it, then start the restore again: a server that is down can be restored");
    case Greeting::given:
      break;
  }
  ServerSession server(context, std::to_string(instance.id), ServerSession::LibraryMode{});
  server.run(title + ": its server does not let the agent in,",
             [](GetMySqlInfo& session) { return session.PingServer(); });
  return true;
}

/// A folder in a server's data directory is a database to it.
void requireApartFromServers(Context& context, const RestorePlan& plan) {
  if (plan.isIntoServer()) return;
  const std::filesystem::path target = resolvedPath(plan.directory);
  std::vector<platform::InstanceRecord> instances;
  require(context.services().inventory->listInstances(instances), "the inventory cannot be read");
  for (platform::InstanceRecord& instance : instances) {
    std::string directory;
    std::string user;
    std::string group;
    GetMySqlInfo::extractDataDir(instance.properties[platform::property::dataDirOwner], directory, user, group);
    if (directory.empty()) continue;
    const std::filesystem::path data = resolvedPath(directory);
    if (isWithin(data, target) || isWithin(target, data)) {
      throw Failure("nothing is restored into " + plan.directory,
                    "it is, lies in or holds the data directory of " + instance.name, "choose another one");
    }
  }
}

void readStart(RestorePlan& plan) {
  constexpr const char* section = "MySQL";
  const DZPlatformInfo settings;
  long manual = 0;
  plan.manualStart = settings.getNumber(section, "bManualServerStart", manual) && manual != 0;
  settings.getString(section, "sServerStartCmd", plan.startCommand);
  if (!settings.getNumber(section, "nStartServerWaitTime", plan.startWait)) plan.startWait = usualStartWait;
}

std::string ownerOf(const RestorePlan& plan) {
  return plan.user.empty() ? "this agent's account" : plan.user + ":" + plan.group;
}

std::string startOf(const RestorePlan& plan) {
  if (plan.manualStart) return "left to you (bManualServerStart is set)";
  return (plan.startCommand.empty() ? std::string("by the default command") : plan.startCommand) + ", asked after " +
         std::to_string(plan.startWait) + " s";
}

std::string contentOf(const RestorePlan& plan) {
  return plan.entries == 0
             ? "is empty"
             : "is emptied: " + std::to_string(plan.entries) + (plan.entries == 1 ? " entry" : " entries") +
                   ", binary logs among them if they are there";
}

}  // namespace

std::uint64_t RestorePlan::bytesNeeded() const noexcept {
  std::int64_t most = 0;
  for (const platform::ArchiveFile& image : images) most = std::max(most, image.size);
  return static_cast<std::uint64_t>(most);
}

std::uint64_t RestorePlan::bytesUnpacked() const noexcept {
  std::int64_t most = 0;
  for (auto image = std::next(images.begin()); image != images.end(); ++image) most = std::max(most, image->size);
  return static_cast<std::uint64_t>(most);
}

std::uint64_t RestorePlan::bytesAtMost() const noexcept {
  std::uint64_t sum = 0;
  for (const platform::ArchiveFile& image : images) sum += static_cast<std::uint64_t>(image.size);
  return sum;
}

RestorePlan planRestore(Context& context, const RestoreRequest& request) {
  RestorePlan plan;
  plan.request = request;
  plan.instance = findInstance(context, request.instance);
  if (!isEnterprise(plan.instance)) {
    throw Failure(plan.instance.name + " is not restored", "enterprise backup is not on for it",
                  "orrery-mysql instance set " + plan.instance.name + " --meb on turns it on");
  }
  plan.images = imagesFor(context, plan);
  if (plan.isIntoServer()) {
    plan.serverAnswers = answers(context, plan.instance);
    readStart(plan);
  }
  lookAtOrigins(context, plan);
  findDirectory(context, plan);
  requireApartFromServers(context, plan);
  lookAtDirectory(plan);
  lookAtTarget(context, plan);
  lookAtWorkingFolder(context, plan);
  return plan;
}

Json toJson(const RestorePlan& plan) {
  Json document;
  document["instance"] = plan.instance.name;
  document["to_time"] = timeText(plan.request.toTime * 1000000);
  document["into_server"] = plan.isIntoServer();
  document["directory"] = plan.directory;
  document["entries_removed"] = plan.entries;
  document["bytes_needed"] = plan.bytesNeeded();
  document["bytes_free"] = plan.space.free;
  document["bytes_freed"] = plan.space.freed;
  document["working_folder"] = plan.workingFolder;
  document["working_bytes_free"] = plan.workingSpace.free;
  document["owner"] = plan.user.empty() ? Json(nullptr) : Json(plan.user + ":" + plan.group);
  document["images"] = Json::array();
  for (const platform::ArchiveFile& image : plan.images) document["images"].push_back(imageDocument(image));
  if (plan.isIntoServer()) {
    document["server_answers"] = plan.serverAnswers;
    document["manual_start"] = plan.manualStart;
    document["start_command"] = plan.startCommand.empty() ? Json(nullptr) : Json(plan.startCommand);
    document["start_wait_seconds"] = plan.startWait;
  }
  return document;
}

Table toTable(const RestorePlan& plan) {
  Table table;
  table.add({"instance", plan.instance.name});
  table.add(
      {"to", timeText(plan.request.toTime * 1000000) + ", as of " + timeText(plan.images.back().created * 1000000)});
  if (plan.isIntoServer()) table.add({"server", plan.serverAnswers ? "answers, is stopped" : "does not answer"});
  table.add({"folder", plan.directory + " " + contentOf(plan)});
  table.add({"space", spaceText(plan.space)});
  table.add({"work", spaceText(plan.workingSpace) + " in " + plan.workingFolder});
  for (const platform::ArchiveFile& image : plan.images) {
    table.add({"image", std::string(levelText(image.level)) + " of " + timeText(image.created * 1000000) + ", " +
                            amountText(static_cast<double>(image.size)) + ", read and found whole: " + image.name});
  }
  table.add({"owner", ownerOf(plan)});
  if (plan.isIntoServer()) table.add({"start", startOf(plan)});
  return table;
}

}  // namespace orrery::tool
