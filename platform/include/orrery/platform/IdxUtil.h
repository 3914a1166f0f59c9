#pragma once

/// The agent's way into the index: what a restore can be chosen by.

#include <cstdint>
#include <string>
#include <vector>

#include "orrery/platform/DZJobClient.h"
#include "orrery/platform/export.h"

/// One thing to be chosen. A plain record.
struct browseablePath_t {
  std::string path;
  std::int64_t size = 0;  ///< bytes, where the agent knows them
  std::string name;
  std::int64_t modified = 0;  ///< seconds since the epoch, where the agent knows them
  std::int64_t reserved1 = 0;
  std::uint32_t kind = 0;  ///< 2: a container, which a database is
  std::uint32_t reserved2 = 0;
  int count = 0;
};

class ORRERY_PLATFORM_EXPORT IdxUtil {
 public:
  /// `log`: where failures are told. `control`: of the job that the entries belong to; asked before they are sent, may
  /// be null. `version` and `clientName` choose the index in suites that have several.
  IdxUtil(EvEvent& log, int version, DZJobCtrlClient* control, std::string clientName);

  /// Adds the paths of a backup to the index, all or none. `applicationId1` and `applicationId2` are those of the
  /// backup's ApplicationId: instance and subclient. The arguments without a name are for suites whose index wants
  /// them. 0; the code of services.h otherwise, or -1 when the job is to end.
  int addBrowseAblePath(const std::vector<browseablePath_t>& paths, std::uint32_t level, const std::string& imageName,
                        std::uint32_t applicationId1, std::uint32_t applicationId2, int, long long jobId, EvEvent& log,
                        int applicationType, int, const char* applicationText);

 private:
  EvEvent& log_;
  DZJobCtrlClient* control_;
};
