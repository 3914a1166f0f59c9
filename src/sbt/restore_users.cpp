// Restore: who works in the data directory, from before the server is stopped until the last image is applied.

#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/services.h"

#include "sbt/directory_users.h"
#include "sbt/texts.h"
#include "session/kept_error.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreToTime";
constexpr int secondsForOthers = 10;
constexpr int secondsForUsers = 60;
/// Whoever keeps a server running starts it again after a pause.
constexpr int secondsOfQuiet = 5;
constexpr std::int64_t betweenLooks = 1000;  // milliseconds
constexpr const char* startedByOthers = ": something else started the server; ";

/// By what this machine shows of processes, and by the locks on files, which tell also of what it does not show.
std::string whoUses(const std::string& directory, const std::vector<pid_t>& elsewhere) {
  std::string user = sbt::directoryUser(directory, getpid(), sbt::Whom::everybody, "/proc", elsewhere);
  return user.empty() ? sbt::directoryLocker(directory) : user;
}

}  // namespace

/// Those who would still be there when the server has gone are found while it runs. Somebody who just passes by gets
/// the time to do so.
int MySqlSBTRestoreUtils::waitForOthers(bool serverAnswers) {
  const std::string itsOwn = serverAnswers ? directoryOfServer() : std::string();
  if (sbt::isOfAnotherMachine(targetDirectory_, itsOwn, getpid()))
    return refuse(sbt::causeRestoreRefused, "the server that answers keeps its data in " + itsOwn +
                                                ", and no server is at work in the directory of that name here: it "
                                                "runs in a container or on another host");
  const auto server = serverAnswers ? sbt::serverProcesses(targetDirectory_, itsOwn) : std::vector<pid_t>();
  elsewhere_ = sbt::serversElsewhere(targetDirectory_, server);
  const auto others = [&] {
    return serverAnswers ? sbt::whoStays(targetDirectory_, getpid(), server)
                         : sbt::directoryUser(targetDirectory_, getpid(), sbt::Whom::allButServers);
  };
  std::string user;
  if (!waitWhileUsed(others, secondsForOthers, user)) return stopOnRequest("before anything was changed");
  return user.empty() ? 0 : refuse(sbt::causeRestoreRefused, user);
}

std::string MySqlSBTRestoreUtils::directoryOfServer() {
  const orrery::mysql::KeptError before(session_);
  std::string directory;
  if (session_.QueryVariable("datadir", directory) != 0 || directory.compare(0, 1, "/") != 0) directory.clear();
  before.putBack();
  return directory;
}

/// That nobody answers a ping is no proof that nobody is there: after a shutdown a server writes its last pages.
int MySqlSBTRestoreUtils::waitUntilLetGo() {
  std::string user;
  if (!waitWhileUsed([&] { return whoUses(targetDirectory_, elsewhere_); }, secondsForUsers, user))
    return stopBeforeRemoval();
  return user.empty() ? waitForReturn() : endWhileUsed(user);
}

/// A server that comes up in an emptied directory makes files of its own there.
int MySqlSBTRestoreUtils::waitForReturn() {
  std::string user;
  int quiet = 0;
  for (int second = 0; quiet < secondsOfQuiet && second < secondsForUsers; ++second) {
    if (isToStop()) return stopBeforeRemoval();
    orrery::platform::services().clock->sleep(betweenLooks);
    user = whoUses(targetDirectory_, elsewhere_);
    quiet = user.empty() ? quiet + 1 : 0;
    if (user.empty()) continue;
    if (const std::string server = sbt::serverIn(targetDirectory_, getpid()); !server.empty()) {
      event_.Error(tag, "the directory is not emptied: %s", server.c_str());
      return failJob(sbt::causeServerNotStopped, {server + startedByOthers + "nothing was removed"});
    }
  }
  if (quiet >= secondsOfQuiet) return 0;
  return endWhileUsed(user.empty() ? "programs come and go in " + targetDirectory_ : user);
}

bool MySqlSBTRestoreUtils::waitWhileUsed(const std::function<std::string()>& look, int seconds, std::string& user) {
  user = look();
  for (int second = 0; !user.empty() && second < seconds; ++second) {
    if (isToStop()) return false;
    if (second == 0) event_.Debug(tag, "waiting until the directory is let go: %s", user.c_str());
    orrery::platform::services().clock->sleep(betweenLooks);
    user = look();
  }
  return true;
}

int MySqlSBTRestoreUtils::endWhileUsed(const std::string& user) {
  event_.Error(tag, "the directory is not emptied: %s", user.c_str());
  return failJob(sbt::causeServerNotStopped, {user + "; " + untouched()});
}

std::string MySqlSBTRestoreUtils::whoCameUp() const {
  if (!restoreToServer_) return {};
  std::string server = sbt::serverIn(targetDirectory_, getpid());
  return server.empty() ? server : server + startedByOthers + "the data directory is not complete";
}

int MySqlSBTRestoreUtils::endWhenCameUp() {
  const std::string server = whoCameUp();
  if (server.empty()) return 0;
  event_.Error(tag, "the restore ends: %s", server.c_str());
  return failJob(sbt::causeServerNotStopped, {server});
}
