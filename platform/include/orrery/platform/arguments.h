#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orrery/platform/export.h"

namespace orrery::platform {

/// Splits a command line into arguments without a shell.
///
/// Blanks separate arguments; a run of them separates once. A double quote joins what stands between it and the next
/// token with a double quote into one argument, its blanks kept, and the double quotes vanish; single quotes do the
/// same in an argument without double quotes. "--stop-datetime" takes the next token with a blank between, because its
/// value is a date and a time.
ORRERY_PLATFORM_EXPORT std::vector<std::string> splitArguments(std::string_view command);

}  // namespace orrery::platform
