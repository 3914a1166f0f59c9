#pragma once

#include <memory>
#include <string>

#include "orrery/platform/services.h"

namespace orrery::platform {

/// A backend for a process that has none: every port answers statusUnavailable with `reason`, errors go to standard
/// error, and the clock is the system's.
std::shared_ptr<const Services> unavailableServices(const std::string& reason);

}  // namespace orrery::platform
