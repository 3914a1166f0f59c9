#pragma once

#include <string>

namespace orrery::platform {
/// The system's text for an errno value, safe from several threads.
std::string errorText(int error);
}  // namespace orrery::platform
