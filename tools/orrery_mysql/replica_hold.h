#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace orrery::tool {

class ServerSession;

/// Stops the replica of an instance together with the backups that share it, runs a program of the user, and lets the
/// replica go when the program ends, fails or is interrupted. The exit status becomes the program's; 128 and the
/// signal's number when a signal ended it.
void holdReplica(Context& context, const std::string& nameOrId, const std::vector<std::string>& words);

struct ReplicationStatus {
  bool isReplica = true;
  bool isRunning = false;
  bool isPartial = false;
  bool isHeld = false;  ///< stopped, and the counter says that a backup did it
};
/// Throws Failure when the server does not tell.
ReplicationStatus readReplication(ServerSession& server);

}  // namespace orrery::tool
