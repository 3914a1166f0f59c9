#pragma once

#include "context.h"

namespace orrery::tool {

/// Adds `subclient` with its commands to the group of commands about instances.
void addSubclientCommands(CLI::App& instanceGroup, Action& chosen);

}  // namespace orrery::tool
