#pragma once

#include <string>

namespace orrery::mysql::sbt {

struct Emptied {
  std::string problem;  ///< empty on success; otherwise what could not be removed and why
  bool any = false;     ///< something was removed, whatever came after it
};

/// Removes what a directory holds; the directory itself stays as it is, and may be reached through a link. Links below
/// it are removed and not followed, and nothing that is mounted below it is entered. What was removed before a failure
/// is gone.
Emptied emptyDirectory(const std::string& path);

/// What is mounted below a directory, the first of it, or why that cannot be told; empty: nothing. `mounts` is the
/// system's table of them.
std::string mountBelow(const std::string& path, const std::string& mounts = "/proc/self/mountinfo");

}  // namespace orrery::mysql::sbt
