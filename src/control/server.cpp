// Start and stop of the server. Both run as the agent's own account, never as the one that owns the server: service
// managers serve nobody else.

#include <string>
#include <utility>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DzProcess.h"
#include "orrery/platform/services.h"

#include "access/dialect.h"
#include "session/guarded.h"
#include "session/kept_error.h"

using orrery::mysql::guarded;
using orrery::mysql::KeptError;

namespace {

constexpr const char* startTag = "GetMySqlInfo::StartServer";
constexpr const char* stopTag = "GetMySqlInfo::StopServer";

constexpr const char* defaultStartCommand = "service mysqld start";
constexpr const char* adminProgram = "mysqladmin";
constexpr unsigned waitSeconds = 60;
constexpr int statusChecks = 3;
constexpr int statusCheckPauseMilliseconds = 10000;

/// "The server could not be started or stopped" in the message catalogue.
constexpr std::uint32_t serverControlFailed = 0x57000056;

void tellJob(EvEvent& event, std::string text) {
  event << std::move(text);
  event.CriticalEvent(serverControlFailed);
}

}  // namespace

// Kept: nobody looks whether the command ends well or the server comes up. Callers wait for the server as long as they
// see fit; some start it and go.
int GetMySqlInfo::StartServer(const char* startCommand) {
  return guarded(evEvent, startTag, [&] {
    const std::string command = startCommand != nullptr ? startCommand : defaultStartCommand;
    evEvent.Debug(startTag, " startcmd=<< %s >>   --- Running this to start  the database server as root user",
                  command.c_str());
    std::string reason;
    if (DzProcess::StartProcess({"/bin/sh", "-c", command}, reason) == 1) return 0;
    evEvent.Debug(startTag, "StartProcess failed with error [%s]", reason.c_str());
    iErrorCode = -1;
    strErrorString = std::move(reason);
    tellJob(evEvent, "Error while bringing up database server");
    return -1;
  });
}

int GetMySqlInfo::StopServerFn(const char* stopCommand) {
  return StopServer(stopCommand);
}

int GetMySqlInfo::StopServer(const char* stopCommand) {
  return guarded(evEvent, stopTag, [&] {
    // Kept: a server that cannot be asked counts as one that is down, whatever the reason; the line before tells it.
    if (!answersPing()) {
      evEvent.Debug(stopTag, "database server is found already offline. skipping server stop...");
      return 0;
    }
    if (runStopCommand(stopCommand) != 0) return -1;
    return waitUntilDown();
  });
}

/// Asks in the session's mode. A failure stays in the session as the ping left it, and its reason goes to the log:
/// a refused password must not pass for a server that is down without a trace.
bool GetMySqlInfo::answersPing() {
  const KeptError before(*this);
  clearErrors();
  const bool answers = PingServer() == 0;
  const bool toldWhy = iErrorCode != 0 || !strErrorString.empty();
  if (!answers && toldWhy) evEvent.Debug(stopTag, "no ping: [%d:%s]", iErrorCode, strErrorString.c_str());
  if (answers || !toldWhy) before.putBack();
  return answers;
}

// Kept: two blanks stand behind the program, and no TLS option is added even where statements have one.
std::string GetMySqlInfo::shutdownCommand() {
  return strBinaryPath + "/" + dialect_->program(adminProgram) + "  --defaults-file=" + strConfigPwdFile +
         " --default-character-set=utf8 -u " + strSaUser + GetConnectMethod() + " shutdown";
}

int GetMySqlInfo::runStopCommand(const char* stopCommand) {
  constexpr const char* notStarted = "Error while shutting down database server";
  if (stopCommand == nullptr) {
    evEvent.Debug(stopTag, "No stopcmd specified, we shall use mysqladmin shutdown.");
    if (checkCommandParts(stopTag, {}, true) != 0) {
      tellJob(evEvent, notStarted);
      return -1;
    }
  }
  for (;;) {
    const std::string command = stopCommand != nullptr ? stopCommand : shutdownCommand();
    evEvent.Debug(stopTag, "stopcmd=[%s].  Running this to stop the database server as root user", command.c_str());
    MySqlChildProcess child;
    // Nobody reads what the command prints: only its end and its error output count.
    child.WithoutPipes();
    if (child.Initialize(command, nullptr) != 0 || child.DZ_CreateProcess(false, true, false) != 0) {
      evEvent.Debug(stopTag, " Couldn't Create Child Process : << %s >> failed ", command.c_str());
      iErrorCode = -1;
      strErrorString = child.GetLastErrText();
      tellJob(evEvent, notStarted);
      return -1;
    }
    if (child.Wait(waitSeconds) == 0) return 0;
    rememberClientError(stopTag, child);
    // In a mode whose pings run no client, this is the first that is seen of the clients' names.
    if (stopCommand == nullptr &&
        dialect_->learn({strBinaryPath, adminProgram, {}, false, iErrorCode, strErrorString}, evEvent, stopTag)) {
      continue;
    }
    evEvent.Debug(stopTag, " Failed to shutdown the server << %s >>", command.c_str());
    tellJob(evEvent, "Error [" + strErrorString + "] while shutting down database server");
    return -1;
  }
}

/// A shutdown is answered before the server has gone.
int GetMySqlInfo::waitUntilDown() {
  const KeptError before(*this);
  for (int attempt = 0; attempt < statusChecks; ++attempt) {
    evEvent.Debug(stopTag, "status check attempt %d", attempt);
    if (!answersPing()) {
      before.putBack();  // that nobody answered is what was wanted
      evEvent.DebugLvl(stopTag, 4, "server is down now.");
      evEvent.Debug(stopTag, "Database server shutdown success.");
      return 0;
    }
    // Kept: the pause follows the last attempt as well. Callers that start over find the server down more often.
    orrery::platform::services().clock->sleep(statusCheckPauseMilliseconds);
  }
  // Kept: no event. The stop itself was accepted, and the caller decides what a slow server means to the job.
  evEvent.Debug(stopTag, "server has not come down in timeout period");
  return -1;
}
