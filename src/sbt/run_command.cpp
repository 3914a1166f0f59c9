// The two ways of running a command: through the shell, or as a supervised child.

#include <cerrno>
#include <cstdlib>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/LibMySqlProcess.h"
#include "orrery/platform/posix.h"

#include "sbt/command_values.h"
#include "sbt/texts.h"
#include "session/guarded.h"

namespace {

constexpr const char* tag = "MySqlSBTUtils::runCommand";

}  // namespace

/// Kept: neither way fills the two outputs. Callers that want an output run their command by other means.
int MySqlSBTUtils::runCommand(const std::string& command, std::string&, std::string&, int& rc, bool throughShell) {
  return orrery::mysql::guarded(event_, tag, [&] {
    event_.DebugLvl(tag, orrery::mysql::sbt::verbose, "Running command [%s]", command.c_str());
    const int result = throughShell ? runThroughShell(command, rc) : runSupervised(command);
    if (result == 0) event_.Debug(tag, "Successfully executed command [%s]", command.c_str());
    return result;
  });
}

int MySqlSBTUtils::runThroughShell(const std::string& command, int& rc) {
  DZPI_CommClient platform;
  platform.setFocusClientName(platform.getFocusClientName(true));
  std::string home;
  if (platform.getBaseHomeDirectory(home) != 0) {
    event_.Error(tag, "the agent has no home");
    return -1;
  }
  const std::string line = orrery::mysql::sbt::formatted("export LD_LIBRARY_PATH=%s; %s",
                                                         orrery::mysql::sbt::shellWord(home).c_str(), command.c_str());
  event_.Debug(tag, "Executing command [%s]", line.c_str());
  rc = std::system(line.c_str());  // NOLINT(concurrency-mt-unsafe): the C library's is safe
  // Kept: a negative result, of a shell that was not started or whose end is lost, is no failure; callers look at `rc`.
  if (rc < 0)
    event_.Error(tag, "How the command [%s] ended is not known: %s", command.c_str(),
                 orrery::platform::errorText(errno).c_str());
  if (rc <= 0) return 0;
  event_.Error(tag, "Failed to run the command [%s]", command.c_str());
  return -1;
}

int MySqlSBTUtils::runSupervised(const std::string& command) {
  LibMySqlProcess::MySqlChildProcess child;
  if (child.Initialize(command, "", "") != 0) {
    event_.Debug(tag, "Failed to Intialize MySqlChildProcess with the command [%s]", command.c_str());
    return -1;
  }
  if (child.DZ_CreateProcess(false, false, false, true) != 0) {
    event_.Debug(tag, "Failed to start the command [%s]", command.c_str());
    child.setPreserveError(true);
    return -1;
  }
  if (WaitForMEB(child) != 0) {
    child.setPreserveError(true);
    return -1;
  }
  return 0;
}
