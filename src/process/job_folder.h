#pragma once

#include <sys/types.h>

#include <string>

#include "orrery/platform/posix.h"

namespace orrery::mysql {

/// Lets one account create files in a job's folder while a child of that account starts.
///
/// The folder is the agent's; its group is set to the account's and may create files there (mode 1730: not list them,
/// and not touch those of others). Two jobs without a number share one folder, and their servers may belong to
/// different accounts; so whoever needs the folder's group as it is holds a shared lock on the folder, and a change
/// waits for all of them. The child inherits the lock and lets go of it with exec.
class [[nodiscard]] JobFolderGrant {
 public:
  /// Changes the folder where that is needed. valid() is false, with errno, when the folder cannot be opened or changed
  /// or another account's children did not let go of it in time.
  JobFolderGrant(const std::string& folder, gid_t group);
  bool valid() const noexcept { return folder_.valid(); }

 private:
  platform::OwnFd folder_;
};

}  // namespace orrery::mysql
