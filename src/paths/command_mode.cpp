// Data paths through the server's clients.

#include <map>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "paths/data_files.h"
#include "session/guarded.h"

namespace paths = orrery::mysql::paths;

namespace {

constexpr const char* findTag = " <<FALLBACK>> GetMySqlInfo::FindAllDatabasePaths";

struct Variable {
  const char* statement;
  const char* malformed;
};
constexpr Variable dataDir = {"show variables like 'datadir';",
                              "\"show variables like 'datadir';\" output does not match expected format"};
constexpr Variable dataHome = {"show variables like 'innodb_data_home_dir';",
                               "\"show variables like 'innodb_data_home_dir';\" output does not match expected format"};
constexpr Variable dataFilePath = {
    "show variables like 'innodb_data_file_path';",
    "\"show variables like 'innodb_data_file_path';\" output does not match expected format"};
constexpr Variable logHome = {
    "show variables like 'innodb_log_group_home_dir';",
    "\"show variables like 'innodb_log_group_home_dir';\" output does not match expected format"};

/// What stands behind the last tab, without the line feed that ends the row.
int readValue(const EvEvent& log, const Variable& variable, const std::string& output, std::string& value) {
  const std::size_t tab = output.rfind('\t');
  if (tab == std::string::npos) {
    log.Debug(findTag, "%s", variable.malformed);
    return -1;
  }
  value = output.substr(tab + 1);
  if (!value.empty()) value.pop_back();
  return 0;
}

void addDataFiles(const EvEvent& log, const std::string& value, std::map<std::string, std::string>& found) {
  for (const paths::DataFile& file : paths::dataFilesOfCommandMode(value)) {
    if (!file.closed) log.DebugLvl(findTag, 8, "parsing innodb_data_file_path ended");
    if (!file.sized) {
      log.DebugLvl(findTag, 0, "the innodb_data_file_path [%s] does not contain ':' for [%s]", value.c_str(),
                   file.piece.c_str());
    }
    if (file.hasDirectory()) found[file.name] = file.name;
  }
}

}  // namespace

int GetMySqlInfo::askForPath(const char* statement, std::string& output) {
  evEvent.Debug(findTag, "command = %s", statement);
  const int rc = executeMySqlCommand(statement, output, false);
  evEvent.Debug(findTag, " command = %s out = %s  ret = %d", statement, output.c_str(), rc);
  if (rc == 0) return 0;
  evEvent.Debug(findTag, "executeMySqlCommand, command=%s, out=%s, ret=%d", statement, output.c_str(), rc);
  return -1;
}

int GetMySqlInfo::findInnoDbPaths(std::map<std::string, std::string>& found) {
  std::string output, home, files, logs;
  if (askForPath(dataHome.statement, output) != 0) return -1;
  if (!output.empty()) {
    if (readValue(evEvent, dataHome, output, home) != 0) return -1;
    evEvent.Debug(findTag, "innodb_data_home_dir= [%s]", home.c_str());
  }
  found["innodb_data_home_dir"] = home;

  output.clear();
  if (askForPath(dataFilePath.statement, output) != 0) return -1;
  if (!output.empty()) {
    if (readValue(evEvent, dataFilePath, output, files) != 0) return -1;
    evEvent.Debug(findTag, "innodb_data_file_path= [%s]", files.c_str());
    if (files.empty()) evEvent.Debug(findTag, "innodb_data_file_path empty");
    addDataFiles(evEvent, files, found);
  }

  output.clear();
  if (askForPath(logHome.statement, output) != 0) return -1;
  if (!output.empty()) {
    if (readValue(evEvent, logHome, output, logs) != 0) return -1;
    evEvent.Debug(findTag, "innodb_log_group_home_dir = [%s]", logs.c_str());
  }
  found["innodb_log_group_home_dir"] = logs;
  return 0;
}

int GetMySqlInfo::FindAllDatabasePaths(std::map<std::string, std::string>& found) {
  return orrery::mysql::guarded(evEvent, findTag, [&] {
    found.clear();
    std::string output, directory;
    if (askForPath(dataDir.statement, output) != 0) return -1;
    if (readValue(evEvent, dataDir, output, directory) != 0) return -1;
    found["datadir"] = directory;
    evEvent.Debug(findTag, "datadir = [%s]", directory.c_str());

    output.clear();
    if (askForPath(paths::innoDbSupport, output) != 0) return -1;
    // Kept: the opposite of library mode's test. InnoDB's paths are read where the server says that it has none, and
    // the whole output is compared, so the line feed that clients put behind a "NO" stands for another answer. Agents
    // of command mode count on a map without InnoDB's paths; `findFurtherPaths` names those that matter.
    if (output == "NO" && findInnoDbPaths(found) != 0) return -1;

    if (ulInstanceId != 0 && setDataPathsToARDB(directory) < 0) {
      evEvent.Debug(findTag, "Faild while setting datadir paths to AR");
      return -1;
    }
    return 0;
  });
}
