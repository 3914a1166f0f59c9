#pragma once

#include <list>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlAutoDiscoveryBase.h"
#include "orrery/mysql/export.h"

/// Which of the servers that discovery found are new to an inventory.
namespace orrery::mysql {

/// An instance that the inventory has already. Texts that it does not know are empty.
struct KnownInstance {
  std::string name;
  std::string socket;
  std::string port;
  std::string dataDirectory;
};

struct RegistrationDecision {
  enum class Kind {
    add,
    known,     ///< the inventory, or a record before this one, has it
    doubtful,  ///< nothing would tell it again the next time: it is not added
  };
  Kind kind = Kind::add;
  std::string name;  ///< of the new instance, or of the one that it is; of a doubtful one a name that is free
};

/// One decision for each record, in their order. A server is known by its socket, or by its port together with its data
/// directory; a name that is taken gets "_" and the first number from 1 that is free. Paths are compared as texts, but
/// for slashes at their ends: resolve links before, on both sides.
ORRERY_MYSQL_EXPORT std::vector<RegistrationDecision> planRegistration(const std::list<MysqlInstanceInfo>& records,
                                                                       const std::vector<KnownInstance>& known);

}  // namespace orrery::mysql
