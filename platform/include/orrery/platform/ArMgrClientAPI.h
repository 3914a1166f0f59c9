#pragma once

/// The agent's way to the archive manager: which images a restore needs.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "orrery/platform/export.h"

/// What is asked for. A plain record.
struct GetArchFileListByTimeArgs_t {
  unsigned long backupSetId = 0;
  int applicationType = 0;
  int flag = 0;               ///< 1: what a restore to `toTime` needs, the one question that this backend is asked
  std::int64_t fromTime = 0;  ///< seconds since the epoch
  std::int64_t toTime = 0;
  /// False: the images' data are not read, for a caller that destroys nothing or had them read shortly before.
  bool reads = true;
  /// Asked some times a second while images are checked, may be empty: once true, the answer is a failure.
  std::function<bool()> isStopped;
};

/// One image. A plain record; the numbers without a name are not filled by this backend.
struct ArchFileListByTimeElement_t {
  std::uint32_t number = 0;
  std::string fileName;
  std::uint32_t creationTime = 0;  ///< seconds since the epoch
  std::uint32_t subclientId = 0;
  std::uint32_t backupLevel = 0;  ///< 1 full, 2 incremental
  std::uint32_t numbers1[5] = {};
  std::int64_t size = 0;  ///< bytes
  std::int64_t jobId = 0;
  std::uint32_t numbers2[5] = {};

  bool isIncremental() const noexcept { return backupLevel == 2; }
};

class ORRERY_PLATFORM_EXPORT ArMgrClientAPI {
 public:
  /// The images that together give what was protected at `toTime`, in the order in which they are to be applied. Each
  /// is there and has been read as `reads` says. 0 and none in `files` when there are
  /// none; otherwise a code of services.h, with the reason in `errorText`, and `files` as it was.
  static int getArchFileListByTime(const GetArchFileListByTimeArgs_t& query,
                                   std::vector<ArchFileListByTimeElement_t>& files, std::string& errorText);
};
