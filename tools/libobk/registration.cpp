#include "registration.h"

#include <algorithm>

#include "orrery/platform/instance_properties.h"

#include "image_name.h"

namespace orrery::libobk {
namespace {

using namespace platform;

constexpr int applicationType = property::applicationTypeMySql;

Id instanceByName(Inventory& inventory, const Environment& environment) {
  Client client;
  require(environment.clientName.empty() ? inventory.ownClient(client)
                                         : inventory.findClient(environment.clientName, client),
          "find the client \"" + printable(environment.clientName) + "\" that DzSrcClientName names");
  InstanceRecord record;
  require(inventory.findInstance(client.id, applicationType, environment.instanceName, record),
          "find the instance \"" + printable(environment.instanceName) + "\" that DzMySQLSBTInstance names");
  return record.id;
}

template <class Record>
const Record& theDefault(const std::vector<Record>& records, const std::string& what) {
  const auto found = std::find_if(records.begin(), records.end(), [](const Record& each) { return each.isDefault; });
  if (found == records.end())
    throw MediaFailure(what + " has no default one; run `orrery-mysql init` and add it again");
  return *found;
}

}  // namespace

Place findPlace(const Services& services, const Environment& environment) {
  Inventory& inventory = *services.inventory;
  Place place;
  place.instance = environment.job.instanceId;
  if (place.instance == 0 && !environment.instanceName.empty()) place.instance = instanceByName(inventory, environment);
  if (place.instance == 0) return place;
  const std::string which = "instance " + std::to_string(place.instance);
  std::vector<BackupSet> sets;
  require(inventory.listBackupSets(place.instance, sets), "find the backup sets of " + which);
  place.subclient = environment.job.subclientId;
  if (place.subclient != 0) {
    SubclientRecord subclient;
    require(inventory.findSubclient(place.subclient, subclient), "find the subclient of the backup");
    place.backupSet = subclient.backupSetId;
    if (std::none_of(sets.begin(), sets.end(), [&](const BackupSet& set) { return set.id == place.backupSet; }))
      throw MediaFailure("subclient " + std::to_string(place.subclient) + " is none of " + which +
                         "; correct -a in ThreadCommandLine");
    return place;
  }
  place.backupSet = theDefault(sets, "the list of backup sets of " + which).id;
  std::vector<SubclientRecord> subclients;
  require(inventory.listSubclients(place.backupSet, subclients), "find the subclients of " + which);
  place.subclient = theDefault(subclients, "the list of subclients of " + which).id;
  return place;
}

void enterImage(ArchiveManager& archive, const Place& place, const ImageHeader& header, const ImageEnd& end) {
  ArchiveFile file;
  file.backupSetId = place.backupSet;
  file.subclientId = place.subclient;
  file.jobId = header.jobId;
  file.applicationType = applicationType;
  file.level = static_cast<int>(header.level);
  file.name = header.name;
  file.created = end.seconds;
  file.size = static_cast<std::int64_t>(end.bytes);
  Id id = 0;
  require(archive.addFile(file, id), "enter the image " + printable(header.name) + " in the archive");
}

void enterLeftImage(const Services& services, const ImageHeader& header, const ImageEnd& end) {
  const std::vector<ArchiveFile> known = findRecords(*services.archive, header.name);
  const auto isThisOne = [&](const ArchiveFile& file) {
    return file.jobId == header.jobId && file.size == static_cast<std::int64_t>(end.bytes);
  };
  if (std::any_of(known.begin(), known.end(), isThisOne)) return;
  const Environment writers{{}, {}, {header.jobId, header.instanceId, header.subclientId, header.level}};
  enterImage(*services.archive, findPlace(services, writers), header, end);
}

std::vector<ArchiveFile> findRecords(ArchiveManager& archive, const std::string& name) {
  std::vector<ArchiveFile> files;
  require(archive.findFiles(applicationType, name, files), "find the image " + printable(name) + " in the archive");
  return files;
}

void takeOut(ArchiveManager& archive, const std::vector<ArchiveFile>& files) {
  for (const ArchiveFile& file : files) {
    const Status status = archive.removeFile(file.id);
    if (status.code != statusNotFound)
      require(status, "take the image " + printable(file.name) + " out of the archive");
  }
}

void putBack(ArchiveManager& archive, const std::vector<ArchiveFile>& files) noexcept {
  for (const ArchiveFile& file : files) {
    Id id = 0;
    static_cast<void>(archive.addFile(file, id));
  }
}

}  // namespace orrery::libobk
