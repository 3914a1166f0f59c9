#pragma once

#include <sys/types.h>

#include <string_view>
#include <vector>

#include "orrery/platform/services.h"

namespace orrery::tool {

/// What tells a process of this machine from every other, also from one that gets its id later, after a restart of the
/// machine too. The mark of a process that is gone has an empty `start`.
platform::ProcessMark markOf(pid_t process);

/// Whether the process still runs. One that has ended and is not yet reaped does not.
bool isAlive(const platform::ProcessMark& mark);

/// Processes that have a file of this name mapped, this one and others of the same program left out. Those of other
/// accounts can only be seen by root.
std::vector<pid_t> processesUsing(std::string_view library);

}  // namespace orrery::tool
