#pragma once

#include <string>
#include <string_view>

namespace orrery::mysql::sbt {

/// What a file system keeps for itself where a directory is its root.
inline constexpr std::string_view folderOfFileSystem = "lost+found";

struct Emptied {
  std::string problem;  ///< empty on success; otherwise what could not be removed and why
  bool any = false;     ///< something was removed, whatever came after it
};

/// Removes what a directory holds; the directory itself stays as it is, and may be reached through a link. Links below
/// it are removed and not followed, and nothing that is mounted below it is entered. What cannot be removed is looked
/// for first, and nothing goes when there is such a thing. A folder that cannot be entered goes when it is empty; else
/// nothing does, but lost+found, which then stays. What was removed before a failure is gone.
Emptied emptyDirectory(const std::string& path);

/// Why it could not be emptied now, as far as that can be told without removing anything: a folder that cannot be
/// entered may be an empty one. Empty: it could, or is not there.
std::string whyNotEmptied(const std::string& path);

/// What is mounted below a directory, the first of it, or why that cannot be told; empty: nothing. `mounts` is the
/// system's table of them.
std::string mountBelow(const std::string& path, const std::string& mounts = "/proc/self/mountinfo");

}  // namespace orrery::mysql::sbt
