#include "orrery/platform/ArMgrClientAPI.h"

#include "orrery/platform/services.h"

using namespace orrery::platform;

int ArMgrClientAPI::getArchFileListByTime(const GetArchFileListByTimeArgs_t& query,
                                          std::vector<ArchFileListByTimeElement_t>& files, std::string& errorText) {
  ChainQuery wanted;
  wanted.backupSetId = query.backupSetId;
  wanted.applicationType = query.applicationType;
  wanted.from = query.fromTime;
  wanted.to = query.toTime;
  wanted.reads = query.reads;
  wanted.isStopped = query.isStopped;
  std::vector<ArchiveFile> chain;
  const Status status = services().archive->restoreChain(wanted, chain);
  if (!status.ok() && status.code != statusNotFound) {
    errorText = status.text;
    return status.code;
  }
  std::vector<ArchFileListByTimeElement_t> found;
  found.reserve(chain.size());
  for (ArchiveFile& file : chain) {
    ArchFileListByTimeElement_t element;
    element.fileName = std::move(file.name);
    element.creationTime = static_cast<std::uint32_t>(file.created);
    element.subclientId = static_cast<std::uint32_t>(file.subclientId);
    element.backupLevel = static_cast<std::uint32_t>(file.level);
    element.size = file.size;
    element.jobId = file.jobId;
    found.push_back(std::move(element));
  }
  files = std::move(found);
  return 0;
}
