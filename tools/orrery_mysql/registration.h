#pragma once

#include <list>
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

/// Compares records with the inventory and, if `add`, adds the new ones: one outcome for each, in their order. `seen`
/// are the same records, completed by what could be seen besides: a server that was added by hand is known by that. May
/// be run by several programs at the same time.
std::vector<RegistrationOutcome> registerRecords(Context& context, const std::list<MysqlInstanceInfo>& records,
                                                 const std::list<MysqlInstanceInfo>& seen, bool add);

}  // namespace orrery::tool
