// Restore: the server before and after it.

#include <algorithm>
#include <limits>
#include <string>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/services.h"

#include "sbt/texts.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreToTime";
constexpr const char* section = "MySQL";
constexpr long defaultWait = 180;  // seconds
constexpr std::int64_t millisecondsPerSecond = 1000;
constexpr long longestWait = std::numeric_limits<std::int64_t>::max() / millisecondsPerSecond / 1000;

}  // namespace

int MySqlSBTRestoreUtils::stopServer() {
  return session_.StopServerFn(nullptr);
}

int MySqlSBTRestoreUtils::startServer(const char* command) {
  return session_.StartServer(command);
}

int MySqlSBTRestoreUtils::pingServer() {
  return session_.PingServer();
}

int MySqlSBTRestoreUtils::bringServerUp() {
  const DZPlatformInfo settings;
  long isManual = 0;
  if (!settings.getNumber(section, "bManualServerStart", isManual))
    event_.Debug(tag, "bManualServerStart not set, server start will be attempted");
  if (isManual != 0) return 0;
  launchServer();
  // The data are there whether or not the job is asked to end meanwhile: the server gets its time.
  long seconds = defaultWait;
  if (settings.getNumber(section, "nStartServerWaitTime", seconds)) {
    event_.Debug(tag, "nStartServerWaitTime is set [%lu]", static_cast<unsigned long>(seconds));
  } else {
    seconds = defaultWait;
  }
  seconds = std::clamp(seconds, 0L, longestWait);
  event_.Debug(tag, "Sleeping for [%lu] seconds", static_cast<unsigned long>(seconds));
  orrery::platform::services().clock->sleep(seconds * millisecondsPerSecond);
  if (pingServer() != 0) {
    event_.Error(tag, "no answer: [%d:%s]", session_.iErrorCode, session_.strErrorString.c_str());
    return failJob(sbt::causeServerDown);
  }
  event_.Debug(tag, "MySQL Server started successfully.");
  return 0;
}

void MySqlSBTRestoreUtils::launchServer() {
  event_.Debug(tag, "Restore completed, starting MySQL Server.");
  std::string command;
  if (!DZPlatformInfo().getString(section, "sServerStartCmd", command))
    event_.Debug(tag, "sServerStartCmd not set, using default command.");
  // A failure is not the end: whoever else looks after the server may start it, and the ping tells.
  if (startServer(command.empty() ? nullptr : command.c_str()) != 0) event_.Error(tag, "Failed to start MySQL Server");
}
