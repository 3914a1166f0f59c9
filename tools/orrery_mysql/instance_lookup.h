#pragma once

#include <string>

#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// The instance that a command line names by name or id. Throws Failure when there is none, or several of the name.
platform::InstanceRecord findInstance(Context& context, const std::string& nameOrId);

/// Name of the client that owns an instance.
std::string clientNameOf(Context& context, const platform::InstanceRecord& record);

}  // namespace orrery::tool
