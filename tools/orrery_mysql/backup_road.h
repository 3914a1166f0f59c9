#pragma once

#include <string>

#include "context.h"

namespace orrery::tool {

struct BackupRequest {
  std::string instance;
  std::string subclient;  ///< empty: the default one
  int level = 1;          ///< 1 full, 2 incremental
};

/// Walks the road of a replica's backup as a job: holds the replica, reconciles the databases, records what they hold
/// in the index, finds every data path, rotates and lists the binary logs, lets the replica go, writes the manifest and
/// prints it. However it ends, the replica runs as before and the job says what happened. Throws Failure or
/// Interrupted.
void runBackup(Context& context, const BackupRequest& request);

}  // namespace orrery::tool
