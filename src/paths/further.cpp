// What holds a server's data outside its data directory and stands in no map of data paths.

#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/platform/FXString.h"

#include "paths/data_files.h"
#include "paths/further_places.h"
#include "paths/rows.h"
#include "session/guarded.h"
#include "session/kept_error.h"

namespace paths = orrery::mysql::paths;
using orrery::mysql::KeptError;

namespace {

constexpr const char* furtherTag = "GetMySqlInfo::findFurtherPaths";

using Variables = std::map<std::string, std::string>;

/// A variable that names a place. Directories stand before the files that may lie in them.
struct Place {
  const char* variable;
  const char* kind;
  enum { directory, prefix, file } form;
  bool inLibraryMap;  ///< library mode's map names it
};
constexpr Place places[] = {
    {"innodb_undo_directory", "undo", Place::directory, false},
    {"innodb_doublewrite_dir", "doublewrite", Place::directory, false},
    {"innodb_log_group_home_dir", "redo_log", Place::directory, true},
    {"log_bin_basename", "binary_log", Place::prefix, false},
    {"log_bin_index", "binary_log", Place::file, false},
    {"relay_log_basename", "relay_log", Place::prefix, false},
    {"relay_log_index", "relay_log", Place::file, false},
    {"relay_log_info_file", "relay_log", Place::file, false},
    {"aria_log_dir_path", "aria_log", Place::directory, false},
};
constexpr const char* others[] = {"datadir", "innodb_data_home_dir", "innodb_data_file_path"};

// Where servers list the files of their tablespaces, name, file and type: MariaDB from 10.6 on; earlier servers of both
// families; MySQL from 8.0 on.
struct TablespaceList {
  const char* rows;
  const char* file;
};
constexpr TablespaceList tablespaceLists[] = {
    {"select NAME, FILENAME, '' from information_schema.INNODB_SYS_TABLESPACES where", "FILENAME"},
    {"select '', PATH, '' from information_schema.INNODB_SYS_DATAFILES where", "PATH"},
    {"select TABLESPACE_NAME, FILE_NAME, FILE_TYPE from information_schema.FILES where ENGINE='InnoDB' and",
     "FILE_NAME"},
};

/// What lies below the data directory stays at the server, which may have very many of it.
std::string statementFor(const TablespaceList& list) {
  const std::string file = list.file;
  return std::string(list.rows) + " (" + file + " not like './%' or " + file + " like '%/../%')";
}

/// The server does not know the table or the column (ER_UNKNOWN_TABLE, ER_BAD_FIELD_ERROR).
bool meansUnknown(int error) {
  return error == 1109 || error == 1054;
}

std::string variablesStatement() {
  std::string names;
  for (const char* name : others) names += std::string(names.empty() ? "'" : ", '") + name + "'";
  for (const Place& place : places) names += std::string(", '") + place.variable + "'";
  return "show variables where Variable_name in (" + names + ")";
}

void addVariables(paths::FurtherPlaces& found, const EvEvent& log, const Variables& variables, bool libraryMode) {
  for (const Place& place : places) {
    const auto value = variables.find(place.variable);
    if (value == variables.end()) {
      log.Debug(furtherTag, "the server has no variable %s: passed over", place.variable);
      continue;
    }
    const std::string& path = value->second;
    if (path.empty() || (place.inLibraryMap && libraryMode)) continue;
    if (place.form == Place::directory) found.addDirectory(place.kind, path, place.variable);
    if (place.form == Place::file) found.addFile(place.kind, path, place.variable);
    // The names of the logs begin with it; their folder is often that of other things too.
    if (place.form == Place::prefix) {
      found.addDirectory(place.kind, FXPath::SplitParentPath(path), std::string(place.variable) + " " + path);
    }
  }
}

/// InnoDB's own files, which library mode's map names.
void addDataFiles(paths::FurtherPlaces& found, const Variables& variables) {
  const auto valueOf = [&](const char* name) {
    const auto value = variables.find(name);
    return value == variables.end() ? std::string() : value->second;
  };
  const std::string home = valueOf("innodb_data_home_dir");
  for (const paths::DataFile& file : paths::dataFilesOfLibraryMode(valueOf("innodb_data_file_path"))) {
    // The server joins them like this, absolute names as well.
    const std::string path = home.empty() ? file.name : home + "/" + file.name;
    if (file.sized) found.addFile("tablespace", path, "innodb_data_file_path");
  }
  // Without a directory of its own the doublewrite buffer lies beside the data files, where it is files at all.
  if (variables.count("innodb_doublewrite_dir") != 0 && valueOf("innodb_doublewrite_dir").empty() && !home.empty()) {
    found.addDirectory("doublewrite", home, "innodb_data_home_dir");
  }
}

void addTablespaces(paths::FurtherPlaces& found, const std::vector<paths::Row>& rows) {
  for (const paths::Row& row : rows) {
    if (row.size() != 3) continue;
    const std::string &name = row[0], &file = row[1], &type = row[2];
    // The system's files are told by their variables; temporary ones hold nothing that outlives the server.
    if (name == "innodb_system" || name == "innodb_temporary" || type == "TEMPORARY") continue;
    if (file.empty() || file == "NULL") continue;
    found.addFile(type == "UNDO LOG" ? "undo" : "tablespace", file, name);
  }
}

}  // namespace

int GetMySqlInfo::listTablespaces(std::vector<std::vector<std::string>>& rows) {
  for (const TablespaceList& list : tablespaceLists) {
    const std::string statement = statementFor(list);
    if (fetchRows(furtherTag, statement, rows) == 0) return 0;
    if (!meansUnknown(iErrorCode)) return -1;
    evEvent.Debug(furtherTag, "the server has no such list of tablespaces, passed over: %s", statement.c_str());
  }
  return 0;
}

int GetMySqlInfo::findFurtherPaths(std::vector<orrery::mysql::FurtherPath>& further) {
  return orrery::mysql::guarded(evEvent, furtherTag, [&] {
    const KeptError before(*this);
    const bool libraryMode = dynamic_cast<GetMySqlInfoExt*>(this) != nullptr;
    std::vector<paths::Row> rows;
    if (fetchRows(furtherTag, variablesStatement(), rows) != 0) return -1;
    Variables variables;
    for (const paths::Row& row : rows) {
      if (row.size() == 2) variables[row[0]] = row[1];
    }

    paths::FurtherPlaces found(evEvent, furtherTag);
    // A server that reports "./" keeps its data where the instance says.
    const std::string& reported = variables["datadir"];
    if (found.setDataDirectory(!reported.empty() && reported.front() == '/' ? reported : strDataPath) != 0) return -1;
    // First the links: what they lead to covers the tablespaces in it.
    if (paths::addLinks(found, evEvent, furtherTag) != 0) return -1;
    addVariables(found, evEvent, variables, libraryMode);
    if (!libraryMode) addDataFiles(found, variables);
    if (listTablespaces(rows) != 0) return -1;
    addTablespaces(found, rows);

    auto outside = found.take();
    further.insert(further.end(), std::make_move_iterator(outside.begin()), std::make_move_iterator(outside.end()));
    before.putBack();
    return 0;
  });
}
