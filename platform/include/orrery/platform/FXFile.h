#pragma once

#include <string>

#include "orrery/platform/CKyError.h"
#include "orrery/platform/export.h"

/// Files.
class ORRERY_PLATFORM_EXPORT FXFile {
 public:
  /// Removes a folder with all it holds. Links are removed and never followed, in the folder and in its place. A folder
  /// that is not there is a success; a path that is no whole one, and the root, are refused. The flags are for suites
  /// that tell ways of removing apart; here there is one.
  static CKyError RemoveFolder(const std::string& path, int flags);
};
