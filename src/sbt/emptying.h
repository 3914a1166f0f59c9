#pragma once

#include <string>

namespace orrery::mysql::sbt {

/// Removes what a directory holds; the directory itself stays as it is, and may be reached through a link. Links below
/// it are removed and not followed, and nothing that is mounted below it is entered. Empty on success; otherwise what
/// could not be removed and why: what was removed until then is gone.
std::string emptyDirectory(const std::string& path);

/// What is mounted below a directory, the first of it, or why that cannot be told; empty: nothing. `mounts` is the
/// system's table of them.
std::string mountBelow(const std::string& path, const std::string& mounts = "/proc/self/mountinfo");

}  // namespace orrery::mysql::sbt
