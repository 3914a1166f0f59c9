#pragma once

#include "orrery/mysql/export.h"

namespace orrery::mysql {
/// Version of the loaded library, "major.minor.patch".
ORRERY_MYSQL_EXPORT const char* version() noexcept;
}  // namespace orrery::mysql
