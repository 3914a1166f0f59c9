#pragma once

#include <sys/types.h>

#include "orrery/platform/services.h"

namespace orrery::tool {

/// What tells a process of this machine from every other, also from one that gets its id later, after a restart of the
/// machine too. The mark of a process that is gone has an empty `start`.
platform::ProcessMark markOf(pid_t process);

/// Whether the process still runs. One that has ended and is not yet reaped does not.
bool isAlive(const platform::ProcessMark& mark);

/// Whether the process runs the same program as this one.
bool isOfThisProgram(pid_t process);

}  // namespace orrery::tool
