#pragma once

#include <string>
#include <vector>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/account.h"
#include "orrery/platform/posix.h"

namespace orrery::platform::background {

/// What is run, and as whom.
struct Command {
  std::vector<std::string> arguments;
  bool takesAccount = false;
  Account account;
};

/// Our ends of a program's streams; they never block.
struct Streams {
  OwnFd output;
  OwnFd errors;
};

/// Fills the command, or says why it cannot be.
std::string prepare(const std::string& commandLine, const std::string& user, const std::string& group,
                    Command& command);

/// Starts the program as leader of a process group. Empty once it has taken over, else why it did not. Without
/// `streams` its output goes to /dev/null.
std::string start(const Command& command, DzProcess& process, Streams* streams);

}  // namespace orrery::platform::background
