#pragma once

#include <string>

#include "orrery/mysql/DiscoveryExplanation.h"
#include "orrery/mysql/MySqlAutoDiscoveryBase.h"

#include "output.h"

namespace orrery::tool {

/// What discovery saw, as programs and people read it.
Json toJson(const MysqlInstanceInfo& record);
Json toJson(const mysql::ServerProcess& server);
Json toJson(const mysql::DiscoveryHint& hint);
Table explanationTable(const mysql::DiscoveryExplanation& explanation);

/// A text as one word of a shell's command line.
std::string shellWord(const std::string& text);

}  // namespace orrery::tool
