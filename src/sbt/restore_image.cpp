// Restore: one image, by one run of `mysqlbackup`.

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/MySqlInstance.h"
#include "orrery/platform/services.h"

#include "sbt/command_values.h"
#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::sbtRestoreFromImage";
constexpr std::int64_t untilNextSecond = 1000;  // milliseconds

}  // namespace

int MySqlSBTRestoreUtils::sbtRestoreFromImage(const std::string& imageName, bool incremental) {
  return orrery::mysql::guarded(event_, tag, [&] {
    if (!isInitialized_) {
      event_.Error(tag, "%s", sbt::initializationNotDone);
      return -1;
    }
    event_.DebugLvl(tag, sbt::verbose, "Restoring from image [%s]", imageName.c_str());
    if (imageName.empty()) {
      event_.Error(tag, "Image name is empty and is not valid.");
      return -1;
    }
    const std::string directory = runDirectory();
    std::string command;
    if (imageCommand(imageName, incremental, directory, command) != 0) return -1;
    std::string out;
    std::string err;
    int rc = 0;
    if (runCommand(command, out, err, rc, jobId_ == 0) < 0 || rc > 0) {
      event_.Error(tag, sbt::commandFailed, command.c_str(), rc);
      return -1;
    }
    if (!incremental) driverText2_ = directory;
    event_.DebugLvl(tag, 1, "Successfully restored from image [%s]", imageName.c_str());
    std::printf("Successfully restored from image [%s]\n", imageName.c_str());
    return 0;
  });
}

/// A run by hand may take less than a second; the next one then waits for its own name.
std::string MySqlSBTRestoreUtils::runDirectory() const {
  std::string directory = sbt::timedFolder(jobResultsDir_);
  std::error_code error;
  while (std::filesystem::exists(directory, error)) {
    orrery::platform::services().clock->sleep(untilNextSecond);
    directory = sbt::timedFolder(jobResultsDir_);
  }
  return directory;
}

int MySqlSBTRestoreUtils::imageCommand(const std::string& imageName, bool incremental, const std::string& directory,
                                       std::string& command) {
  const bool throughShell = jobId_ == 0;
  std::string defaultsFile;
  if (targetDirectory_.empty() && throughShell && readDefaultsFile(defaultsFile) != 0) return -1;
  if (const std::string why = unfitValues(imageName, defaultsFile, directory); !why.empty()) {
    event_.Error(tag, "not handed over to mysqlbackup: %s", why.c_str());
    return -1;
  }
  const auto quoted = [throughShell](const std::string& text) {
    return throughShell ? sbt::insideDoubleQuotes(text) : text;
  };
  std::string options = extraOptions_;
  if (incremental) options += " --incremental";
  if (!targetDirectory_.empty()) options += " --datadir=\"" + quoted(targetDirectory_) + "\"";
  std::string defaultsField;
  if (!defaultsFile.empty()) defaultsField = sbt::formatted("--defaults-file=\"%s\"", quoted(defaultsFile).c_str());
  std::string threadCommandLine;
  if (!throughShell)
    threadCommandLine =
        sbt::formatted("ThreadCommandLine=-j %lld -at %d", static_cast<long long>(jobId_), kMySqlApplicationType);
  command = sbt::formatted(
      "%s %s --backup-dir=\"%s\" --backup-image=\"sbt:%s\" --sbt-lib-path=\"%s\" %s "
      "--sbt-environment=\"DzSrcClientName=%s,DzKycmdTokenFile=%s,DzMySQLSBTInstance=%s,%s\" --verbose --debug=all "
      "copy-back-and-apply-log",
      throughShell ? sbt::shellWord(driverText1_).c_str() : driverText1_.c_str(), defaultsField.c_str(),
      quoted(directory).c_str(), quoted(imageName).c_str(), quoted(sbtLibraryPath_).c_str(), options.c_str(),
      quoted(params_.clientNameText).c_str(), quoted(params_.tokenFile).c_str(), quoted(params_.instanceName).c_str(),
      threadCommandLine.c_str());
  // `mysqlbackup` makes its own folder, not those above it.
  if (const CKyError error = CKyDirectory::Create(jobResultsDir_); error.isError())
    event_.Error(tag, "the working directory cannot be made: %s", error.text().c_str());
  return 0;
}

int MySqlSBTRestoreUtils::readDefaultsFile(std::string& path) const {
  const auto instance = MySqlInstance::create(static_cast<long>(params_.instanceId));
  if (instance == nullptr) {
    event_.Error(tag, "lookup failed for MySQL instance [%lu]", params_.instanceId);
    return -1;
  }
  if (instance->getMySqlConfigFile(path) == 0) return 0;
  event_.Error(tag, "Failed to get config file from MySQL instance [%lu]", params_.instanceId);
  return -1;
}

std::string MySqlSBTRestoreUtils::unfitValues(const std::string& imageName, const std::string& defaultsFile,
                                              const std::string& directory) const {
  using sbt::Place;
  return sbt::whyNotHandedOver({{"the path of mysqlbackup", driverText1_, Place::word},
                                {"the configuration file", defaultsFile, Place::quoted},
                                {"the working directory", directory, Place::quoted},
                                {"the image", imageName, Place::quoted},
                                {"the media library", sbtLibraryPath_, Place::quoted},
                                {"the directory to restore into", targetDirectory_, Place::quoted},
                                {"the client", params_.clientNameText, Place::environment},
                                {"the token file", params_.tokenFile, Place::environment},
                                {"the instance", params_.instanceName, Place::environment}},
                               jobId_ == 0);
}
