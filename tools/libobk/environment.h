#pragma once

#include <string>

#include "thread_command_line.h"

namespace orrery::libobk {

/// What the backup program's environment tells the library. DzKycmdTokenFile, which agents set too, opens connections
/// to a management server; this library needs none and does not look at it.
struct Environment {
  std::string clientName;    ///< DzSrcClientName: whose instance it is; empty: this machine's
  std::string instanceName;  ///< DzMySQLSBTInstance; counts when the command line does not tell the instance
  ThreadCommandLine job;     ///< ThreadCommandLine
};

/// Throws MediaFailure for a command line that cannot be read.
Environment readEnvironment();

/// Works out the home for the sessions to come: the folder through which the library was loaded, when that is one; the
/// default home otherwise. What the caller's environment and folder become later does not lead to another one.
void workOutHome();
/// The home that was worked out last. Any thread may call.
std::string homeToUse();

}  // namespace orrery::libobk
