#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace orrery::tool {

/// Stops the replica of an instance together with the backups that share it, runs a program of the user, and lets the
/// replica go when the program ends, fails or is interrupted. The exit status becomes the program's; 128 and the
/// signal's number when a signal ended it.
void holdReplica(Context& context, const std::string& nameOrId, const std::vector<std::string>& words);

}  // namespace orrery::tool
