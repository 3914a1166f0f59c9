// Restore: the data directory goes back to the account of the server.

#include <unistd.h>

#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DzProcess.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/MySqlInstance.h"

#include "sbt/command_values.h"
#include "sbt/owner.h"
#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::setPermissionsToDataDir";
constexpr const char* executing = "Executing command [%s]";

const char* chownProgram() {
  for (const char* const path : {"/bin/chown", "/usr/bin/chown"})
    if (access(path, X_OK) == 0) return path;
  return "/bin/chown";  // whose absence the run then tells
}

/// A link is changed in place of what it leads to, unless a slash says that the directory is meant.
std::string directoryOperand(const std::string& directory) {
  std::error_code error;
  const bool isLink = std::filesystem::is_symlink(directory, error);
  return isLink ? directory + "/" : directory;
}

/// As long as it takes: a large tree has no time limit.
std::string runChown(const std::string& owner, const std::string& directory) {
  DzProcess::RunOptions options;
  options.milliseconds = std::numeric_limits<int>::max();
  std::string output;
  std::string errors;
  std::string reason;
  int status = 0;
  if (DzProcess::RunProcess({chownProgram(), "-R", owner, directory}, options, output, errors, status, reason) != 1)
    return reason;
  if (status == 0) return {};
  errors = FXString::Trim(errors);
  return errors.empty() ? "exit status " + std::to_string(status) : errors;
}

}  // namespace

bool sbt::isOwnerName(const std::string& name) {
  constexpr const char* usual = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-+@$\\";
  return !name.empty() && name.front() != '-' && name.find_first_not_of(usual) == std::string::npos;
}

int MySqlSBTRestoreUtils::setPermissionsToDataDir() {
  return orrery::mysql::guarded(event_, tag, [&] {
    std::string directory = targetDirectory_;
    if (directory.empty() && findRestoredDirectory(directory) != 0) return -1;
    if (ownerUser_.empty() && ownerGroup_.empty()) takeOwnerOfInstance();
    if (ownerUser_.empty() && ownerGroup_.empty()) {
      event_.Debug(tag, "nobody says whose [%s] is to be: its files stay those of the agent's account",
                   directory.c_str());
      return 0;
    }
    directory = directoryOperand(directory);
    const std::string command = sbt::formatted("chown -R %s:%s %s", sbt::shellWord(ownerUser_).c_str(),
                                               sbt::shellWord(ownerGroup_).c_str(), sbt::shellWord(directory).c_str());
    event_.Debug(tag, executing, command.c_str());
    const bool isSafe = sbt::isOwnerName(ownerUser_) && sbt::isOwnerName(ownerGroup_) && directory.front() == '/';
    const std::string problem =
        isSafe ? runChown(ownerUser_ + ":" + ownerGroup_, directory) : "these are no user, group and whole path";
    if (problem.empty()) return 0;
    event_.Error(tag, "Command [%s] failed to set ownership to datadir, error[%s]", command.c_str(), problem.c_str());
    return -1;
  });
}

void MySqlSBTRestoreUtils::takeOwnerOfInstance() {
  std::string property;
  std::string itsDirectory;
  if (params_.destinationInstanceId == 0) return;
  if (MySqlInstance(params_.destinationInstanceId).getMySqlDataDir(property) == 0)
    GetMySqlInfo::extractDataDir(property, itsDirectory, ownerUser_, ownerGroup_);
}

/// `mysqlbackup` leaves the server's variables as it found them in the image beside what it works with.
int MySqlSBTRestoreUtils::findRestoredDirectory(std::string& directory) {
  const std::string command =
      sbt::formatted("cat %s/server-my.cnf | grep \"datadir=\"", sbt::shellWord(driverText2_).c_str());
  event_.Debug(tag, executing, command.c_str());
  std::string output;
  std::string errors;
  if (DzProcess::system(command, output, errors) != 0) {
    event_.Error(tag, "Command [%s] failed to find datadir, error[%s]", command.c_str(), errors.c_str());
    return -1;
  }
  const auto parts = FXString::Split(FXString::Trim(output, " \t\r\n"), '=');
  if (parts.size() != 2 || parts[1].empty()) {
    event_.Error(tag, "Valid datadir not found in the output [%s], err[%s]", output.c_str(), errors.c_str());
    return -1;
  }
  directory = parts[1];
  event_.Debug(tag, "Found datadir=%s", directory.c_str());
  return 0;
}
