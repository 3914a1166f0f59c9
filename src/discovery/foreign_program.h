#pragma once

#include <optional>
#include <string>

#include "discovery/host.h"

namespace orrery::mysql::discovery {

/// How the program of a server is asked for its version: as the agent, as the account of the server's process, or not
/// at all.
struct ProgramRun {
  std::optional<OtherAccount> account;  ///< nothing: the agent's own
  std::string refusal;                  ///< empty: the program is run
};

/// `replaceableBy`: who else than root and the agent could put another program there, as whoCanReplace() says. What a
/// stranger could have put there is run with that stranger's rights, or not at all.
ProgramRun howToRun(const std::string& replaceableBy, uid_t agent, const ProcessAccount& process);

}  // namespace orrery::mysql::discovery
