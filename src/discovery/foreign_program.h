#pragma once

#include <optional>
#include <string>

#include "discovery/host.h"

namespace orrery::mysql::discovery {

/// How the program of a server is asked for its version: as the agent, as the account of the server's process, or not
/// at all.
struct ProgramRun {
  std::optional<OtherAccount> account;  ///< nothing: the agent's own
  std::string doubt;                    ///< why it is not run as the agent
  std::string refusal;                  ///< empty: the program is run
};

/// What a stranger could have put there is run with that stranger's rights, or not at all. A process that lives among
/// other folders, or has accounts of its own, names nothing that could be found from here.
ProgramRun howToRun(const PathVerdict& program, uid_t agent, const ProcessAccount& account,
                    const ProcessPlaces& places);

}  // namespace orrery::mysql::discovery
