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

/// Paths as texts; the file system is not asked.
class ORRERY_PLATFORM_EXPORT FXPath {
 public:
  /// The folder part: what stands before the last "/", "/" for a name directly below the root, empty without a "/".
  static std::string SplitParentPath(const std::string& path);
};
