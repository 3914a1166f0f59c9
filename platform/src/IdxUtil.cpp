#include "orrery/platform/IdxUtil.h"

#include "orrery/platform/services.h"

using namespace orrery::platform;

namespace {

constexpr const char* tag = "IdxUtil::addBrowseAblePath";

}  // namespace

IdxUtil::IdxUtil(EvEvent& log, int, DZJobCtrlClient* control, std::string) : log_(log), control_(control) {}

int IdxUtil::addBrowseAblePath(const std::vector<browseablePath_t>& paths, std::uint32_t level,
                               const std::string& imageName, std::uint32_t applicationId1, std::uint32_t applicationId2,
                               int, long long jobId, EvEvent&, int, int, const char*) {
  if (control_ != nullptr && control_->checkQuitFlag()) {
    log_.Error(tag, "the job %lld is to end", jobId);
    return -1;
  }
  const IndexKey key{jobId, applicationId1, applicationId2, static_cast<int>(level), imageName};
  std::vector<BrowsePath> entries;
  entries.reserve(paths.size());
  for (const browseablePath_t& path : paths)
    entries.push_back({path.path, path.name, path.size, path.modified, path.kind});
  const Status status = services().index->addPaths(key, entries);
  if (!status.ok()) log_.Error(tag, "job %lld: %s", jobId, status.text.c_str());
  return status.code;
}
