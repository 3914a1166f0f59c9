#pragma once

#include <string>
#include <vector>

/// What discovery saw of the servers of a host, beside the records that it makes of them: where every field came from,
/// why a server has no record, and what the rules of discovery miss.
namespace orrery::mysql {

enum class FactSource {
  nowhere,       ///< not found
  commandLine,   ///< options of the server's process
  socketList,    ///< the sockets that the host listens on
  optionFile,    ///< the option file that the record names
  usualPlace,    ///< the first of the usual places where there is something
  program,       ///< the program that the process runs
  searchPath,    ///< the client programs in the agent's search path
  defaultValue,  ///< the servers' own default
  agentAccount,  ///< the account that discovery runs as
  composed,      ///< made of the client's name and the port
};

struct DiscoveredFact {
  std::string value;
  FactSource source = FactSource::nowhere;
  /// Folder of the programs and option file, in a record: who else than root and the agent could change what stands
  /// there, and where; empty: nobody.
  std::string replaceableBy;
};

/// Something that the record lacks or has wrong, as far as can be seen.
struct DiscoveryHint {
  std::string text;       ///< one sentence, without a full stop
  std::string option;     ///< of `orrery-mysql instance set`, where one sets it right by hand; else empty
  std::string value;      ///< for that option; empty: not known
  bool replaces = false;  ///< what the record has for that option is certainly another's
};

/// One process whose program has a server's name.
struct ServerProcess {
  std::string pid;
  std::string program;  ///< as the process list shows it
  std::string account;  ///< that the process runs as; empty: not known
  bool recorded = false;
  std::string leftOut;  ///< why it has no record
  /// Why its program was asked for the version with the rights of the server's account alone; empty: it was asked with
  /// the agent's. What such a process says of itself is what its account claims.
  std::string claimedBecause;
  // The seven fields of a record, filled as far as discovery came.
  DiscoveredFact unixUser;
  DiscoveredFact socket;
  DiscoveredFact logDataDirectory;
  DiscoveredFact binaryDirectory;
  DiscoveredFact port;
  DiscoveredFact configFile;
  DiscoveredFact instanceName;
  std::vector<DiscoveryHint> hints;
};

struct DiscoveryExplanation {
  std::vector<ServerProcess> processes;  ///< in the order of the process list
  std::vector<DiscoveryHint> hints;      ///< about the host as a whole
};

}  // namespace orrery::mysql
