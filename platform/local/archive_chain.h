#pragma once

#include <algorithm>
#include <vector>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

inline constexpr int fullLevel = 1;

/// Of files in the order of their making, keeps the last full one and what follows it; false when none is a full one.
/// Subclients are not told apart: an incremental image stands on the server's last backup, whoever asked for that.
inline bool keepChain(std::vector<ArchiveFile>& files) {
  const auto full =
      std::find_if(files.rbegin(), files.rend(), [](const ArchiveFile& f) { return f.level == fullLevel; });
  if (full == files.rend()) return false;
  files.erase(files.begin(), std::prev(full.base()));
  return true;
}

}  // namespace orrery::platform::local
