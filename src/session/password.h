#pragma once

#include <string>

namespace orrery::mysql {

/// Opens a password as the agent stores it. False when it cannot be opened or is longer than 1024 bytes; `plain` is
/// then as it was. No copy of the plain text stays in memory but `plain`.
bool openPassword(const std::string& sealed, std::string& plain);

}  // namespace orrery::mysql
