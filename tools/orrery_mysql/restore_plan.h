#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "enterprise_restore.h"
#include "restore_space.h"

namespace orrery::tool {

/// What a restore uses and replaces.
struct RestorePlan {
  platform::InstanceRecord instance;
  RestoreRequest request;
  std::vector<platform::ArchiveFile>
      images;  ///< in the order in which they are applied; each was read as a whole, if that is all that is done
  std::string directory;    ///< where to
  std::string user, group;  ///< whose the files will be; empty: not known
  bool serverAnswers = false;
  std::size_t entries = 0;  ///< in the directory, which go
  Space space;
  std::string workingFolder;  ///< where `mysqlbackup` keeps what it unpacks, below it
  Space workingSpace;
  bool manualStart = false;
  std::string startCommand;  ///< empty: the default one
  long startWait = 0;        ///< seconds

  /// The least that the data will take: what the largest image holds. File systems that compress may need less.
  std::uint64_t bytesNeeded() const noexcept;
  /// What the largest incremental image holds, 0 without one: `mysqlbackup` unpacks it before it applies it.
  std::uint64_t bytesUnpacked() const noexcept;
  /// The most that the data will take: each incremental image may hold only new pages, or only changed ones.
  std::uint64_t bytesAtMost() const noexcept;
  bool isIntoServer() const noexcept { return !request.into; }
};

/// Finds out without changing anything. Throws Failure when the restore could not be done.
RestorePlan planRestore(Context& context, const RestoreRequest& request);

Json toJson(const RestorePlan& plan);
Table toTable(const RestorePlan& plan);

}  // namespace orrery::tool
