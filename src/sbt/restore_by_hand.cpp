// Restore without a job: what people did not say is looked up, and what is missing is printed for them.

#include <cstdio>
#include <string>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/DzProcess.h"
#include "orrery/platform/FXString.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::autoPopulateInputs";

}  // namespace

int MySqlSBTRestoreUtils::autoPopulateInputs() {
  return orrery::mysql::guarded(event_, tag, [&] {
    if (findProgram() != 0) return -1;
    if (getClientIdFromName(params_.clientNameText, params_.clientId) != 0) {
      const char* const client = params_.clientNameText.c_str();
      event_.Error(tag, "Failed to get clientId for client [%s]", client);
      std::printf(
          "Invalid DzSrcClientName [%s]\nSpecify correct source Client name using argument '-sc <Source Client "
          "name>'.\n",
          client);
      return -1;
    }
    if (getInstanceIdFromName(params_.clientId, params_.instanceName, params_.instanceId) != 0) {
      const char* const instance = params_.instanceName.c_str();
      event_.Error(tag, "Failed to get instanceId for client [%s] and instance [%s]", params_.clientNameText.c_str(),
                   instance);
      std::printf(
          "Invalid DzSrcInstName [%s]\nSpecify correct source Instance name using argument '-si <Source Instance "
          "name>'.\n",
          instance);
      return -1;
    }
    DZClient local(params_.clientName);
    if (local.lookup() != 0) {
      event_.Error(tag, "Failed to find deatils of current client. Re-install/Repair this Brimhold Client.");
      return -1;
    }
    params_.destinationClientId = local.getClientId();
    return 0;
  });
}

int MySqlSBTRestoreUtils::findProgram() {
  commandLineInputs_ = params_.binaryDirectory.empty();
  if (!commandLineInputs_) return 0;
  std::string found;
  std::string errors;
  const int status = DzProcess::system("which mysqlbackup", found, errors);
  params_.binaryDirectory = FXPath::SplitParentPath(FXString::Trim(found, " \t\n"));
  if (status == 0 && !params_.binaryDirectory.empty()) return 0;
  event_.Error(tag, "Failed to find mysqlbackup binary path. Error [%s]", errors.c_str());
  return -1;
}

bool MySqlSBTRestoreUtils::isValidInput() {
  bool isValid = true;
  const auto missing = [&isValid](const char* text) {
    std::puts(text);
    isValid = false;
  };
  if (params_.binaryDirectory.empty())
    missing("Specify path to mysqlbackup using argument '-b <path to dir containing mysqlbackup>'.");
  if (params_.dataDirectory.empty())
    missing("Specify destination dataDir using argument '-d <data directory to restore>'");
  if (params_.binaryDirectory.empty()) return isValid;
  bool isFile = false;
  if (FXPath::DoesPathExist(FXPath::Append(params_.binaryDirectory, sbt::backupProgram), isFile) && isFile)
    return isValid;
  std::printf("Invalid binary directory provided. 'mysqlbackup' is not found in %s.\n",
              params_.binaryDirectory.c_str());
  return false;
}
