#pragma once

#include <string>
#include <vector>

#include "orrery/platform/export.h"

/// Strings.
class ORRERY_PLATFORM_EXPORT FXString {
 public:
  /// The pieces of `text` between separators; empty pieces count, so a text with n separators has n + 1 pieces.
  static std::vector<std::string> Split(const std::string& text, char separator);
  /// Whether `part` occurs in `text`. With `ignoreCase`, letters of ASCII match in either case.
  static bool Contains(const std::string& text, const std::string& part, bool ignoreCase);
};

/// Paths.
class ORRERY_PLATFORM_EXPORT FXPath {
 public:
  /// The folder part: what stands before the last "/", "/" for a name directly below the root, empty without a "/".
  static std::string SplitParentPath(const std::string& path);
  /// `path` + "/" + `name`, as they stand.
  static std::string Append(const std::string& path, const std::string& name);
  /// Whether something is there, links followed; `isFile` tells whether it is anything else than a folder, and is
  /// false when nothing is there. The path is taken as it stands: nothing stands for a home folder.
  static bool DoesPathExist(const std::string& path, bool& isFile) noexcept;
};
