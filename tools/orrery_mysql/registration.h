#pragma once

#include <string>
#include <vector>

#include "orrery/mysql/InstanceRegistration.h"

#include "context.h"

namespace orrery::tool {

/// What became of one record.
struct RegistrationOutcome {
  enum class State { isNew, known, added, refused };
  State state = State::isNew;
  std::string instance;              ///< its name in the inventory, or the one that it would get
  std::string reason;                ///< why it is refused
  std::vector<std::string> missing;  ///< fields that the inventory does not take as they are, each with the reason
};

/// One record and the process that it describes.
struct FoundServer {
  MysqlInstanceInfo record;
  const mysql::ServerProcess* process;
};

/// Compares what was found with the inventory and, if `add`, adds the new ones: one outcome for each, in their order.
/// Servers are compared, and added, without what is certainly another process's; a server that was added by hand is
/// known by what could be seen besides its record. May be run by several programs at the same time.
std::vector<RegistrationOutcome> registerRecords(Context& context, const std::vector<FoundServer>& found, bool add);

}  // namespace orrery::tool
