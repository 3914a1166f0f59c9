// Restore: the server before and after it.

#include <algorithm>
#include <limits>
#include <string>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/services.h"

#include "sbt/texts.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreToTime";
constexpr const char* section = "MySQL";
constexpr long defaultWait = 180;  // seconds
constexpr std::int64_t millisecondsPerSecond = 1000;
constexpr long longestWait = std::numeric_limits<std::int64_t>::max() / millisecondsPerSecond / 1000;

/// Whether a failed ping had an answer: the number is a server's, or one of the client's about a talk that had begun.
bool isRefusal(int number) {
  constexpr int ofTalks[] = {2007, 2012, 2026, 2049, 2054, 2059, 2061};
  constexpr int firstOfServer = 1000;
  constexpr int firstOfClient = 2000;
  constexpr int endOfClient = 3000;
  constexpr int endOfServer = 65536;
  if (number >= firstOfClient && number < endOfClient)
    return std::find(std::begin(ofTalks), std::end(ofTalks), number) != std::end(ofTalks);
  return number >= firstOfServer && number < endOfServer;
}

/// A ping's failure in words.
std::string whyNoAnswer(const GetMySqlInfo& session) {
  if (session.iErrorCode == 0) return "no connection";
  const std::string text = std::to_string(session.iErrorCode) + " " + FXString::Trim(session.strErrorString);
  return isRefusal(session.iErrorCode)
             ? "it runs and refused the agent, whose account is that of the restored data: " + text
             : text;
}

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

int MySqlSBTRestoreUtils::stopForRestore() {
  session_.iErrorCode = 0;
  session_.strErrorString.clear();
  const bool answers = pingServer() == 0;
  if (!answers && isRefusal(session_.iErrorCode)) {
    // The stop takes whoever does not answer it for a server that is down.
    const std::string why = "the server answered and refused the agent: " + std::to_string(session_.iErrorCode) + " " +
                            FXString::Trim(session_.strErrorString);
    event_.Error(tag, "the server is not stopped: %s", why.c_str());
    return failJob(sbt::causeServerNotStopped, {why + "; " + untouched()});
  }
  if (waitForOthers(answers) != 0) return -1;
  if (stopServer() != 0) {
    event_.Error(tag, "Stopping MySQL server failed. Cannot proceed without stopping the server.");
    const std::string why = session_.strErrorString.empty() ? "it still answers" : session_.strErrorString;
    return failJob(sbt::causeServerNotStopped, {why + "; nothing was removed"});
  }
  serverWasStopped_ = answers;
  return waitUntilLetGo();
}

std::string MySqlSBTRestoreUtils::untouched() const {
  return serverWasStopped_ ? "the server is stopped; nothing was removed; start it again"
                           : "nothing was stopped or removed";
}

int MySqlSBTRestoreUtils::stopBeforeRemoval() {
  return stopOnRequest(serverWasStopped_ ? "after the server was stopped and before anything was removed, so start the "
                                           "server again"
                                         : "before anything was changed");
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
    seconds = std::clamp(seconds, 0L, longestWait);
    event_.Debug(tag, "nStartServerWaitTime is set [%lu]", static_cast<unsigned long>(seconds));
  } else {
    seconds = defaultWait;
  }
  event_.Debug(tag, "Sleeping for [%lu] seconds", static_cast<unsigned long>(seconds));
  orrery::platform::services().clock->sleep(seconds * millisecondsPerSecond);
  session_.iErrorCode = 0;
  session_.strErrorString.clear();
  if (pingServer() != 0) {
    event_.Error(tag, "no answer: [%d:%s]", session_.iErrorCode, session_.strErrorString.c_str());
    return failJob(sbt::causeServerDown, {whyNoAnswer(session_)});
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
