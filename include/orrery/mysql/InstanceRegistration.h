#pragma once

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

/// A record, and what could be seen of its server besides.
struct SeenServer {
  MysqlInstanceInfo record;
  std::vector<std::string> ports;            ///< further ones that it may be known by
  std::vector<std::string> dataDirectories;  ///< likewise: a record may have the folder of the logs
  /// Why all of this is only what its account claims; empty: it is not.
  std::string claimedBecause;
};

struct RegistrationDecision {
  enum class Kind {
    add,
    known,     ///< the inventory, or a record before this one, has it
    doubtful,  ///< it is not added, for a reason
  };
  Kind kind = Kind::add;
  std::string name;    ///< of the new instance, or of the one that it is; of a doubtful one a name that is free
  std::string reason;  ///< of a doubtful one: one sentence without a full stop
};

/// One decision for each server, in their order. A server is known by its socket, or by its port together with its data
/// directory. With the socket of a known one, but both another port and another data directory, it is doubtful, and so
/// is one that would not be told again the next time, and one that is a mere claim. A name that is taken gets "_" and
/// the first number from 1 that is free. Paths are compared as texts, but for slashes at their ends: resolve links
/// before, on both sides.
ORRERY_MYSQL_EXPORT std::vector<RegistrationDecision> planRegistration(const std::vector<SeenServer>& servers,
                                                                       const std::vector<KnownInstance>& known);

}  // namespace orrery::mysql
