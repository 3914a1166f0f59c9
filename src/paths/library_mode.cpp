// Data paths over the connection of library mode, with the links that lead out of the data directory.

#include <list>
#include <memory>
#include <new>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/DZFile.h"

#include "paths/data_files.h"
#include "paths/directory.h"
#include "session/guarded.h"

namespace paths = orrery::mysql::paths;

namespace {

constexpr const char* findTag = "GetMySqlInfoExt::FindAllDatabasePaths";

/// Tests one path; an error is logged and gives -1.
int isLink(const EvEvent& log, const std::string& path, bool& link) {
  const CKyError error = CKyPath::IsLink(path, link);
  if (!error.isError()) return 0;
  log.Error(findTag, "Failed to read if directory was link err [%s] ", error.text().c_str());
  return -1;
}

int resolve(const EvEvent& log, const std::string& link, std::string& physical) {
  const CKyError error = UnixSymbolicLink::getPhysicalPath(link, physical);
  if (!error.isError()) return 0;
  log.Error(findTag, "cannot tell where the link leads: %s", error.text().c_str());
  return -1;
}

}  // namespace

int GetMySqlInfoExt::findDataDirectoryLink(const std::string& directory) {
  std::string path = directory;
  // A name that ends in "/" is the directory behind the link, not the link.
  if (!path.empty() && path.back() == '/') path.pop_back();
  bool link = false;
  if (isLink(evEvent, path, link) != 0) return -1;
  if (!link) return 0;
  evEvent.Debug(findTag, "Link found ");
  std::string physical;
  if (resolve(evEvent, path, physical) != 0) return -1;
  evEvent.Debug(findTag, " Link path [%s] ", physical.c_str());
  m_dataPaths["datadirlink"] = physical;
  return 0;
}

int GetMySqlInfoExt::findDatabaseLinks(const std::string& directory) {
  // Kept: a data directory that cannot be opened is no failure here; agents of another account than the server's may
  // not read it.
  paths::Directory entries(directory);
  if (!entries.isOpen()) return 0;
  std::string links;
  while (const dirent* entry = entries.next()) {
    evEvent.DebugLvl(findTag, 5, " Directory [%s] ", entry->d_name);
    // Kept: no separator is put between; servers report their directory with a "/" at its end.
    const std::string path = directory + entry->d_name;
    bool link = false;
    if (isLink(evEvent, path, link) != 0) return -1;
    if (link) {
      evEvent.Debug(findTag, " Link found [%s] ", path.c_str());
      std::string physical;
      if (resolve(evEvent, path, physical) != 0) return -1;
      evEvent.DebugLvl(findTag, 5, " Read link [%s] ", physical.c_str());
      links += physical + ",";
    }
    evEvent.DebugLvl(findTag, 5, " %s", entry->d_name);
  }
  if (entries.error() != 0) {
    evEvent.Error(findTag, "the data directory [%s] cannot be read to its end, errno %d", directory.c_str(),
                  entries.error());
    return -1;
  }
  if (links.empty()) return 0;
  evEvent.Debug(findTag, " Links [%s] ", links.c_str());
  m_dataPaths["databaselinks"] = links;
  return 0;
}

int GetMySqlInfoExt::hasInnoDb(bool& available) {
  available = false;
  const auto release = [this](QueryResult* result) { m_Conn->FreeResultSet(result); };
  const std::unique_ptr<QueryResult, decltype(release)> result(new (std::nothrow) QueryResult, release);
  if (result == nullptr) {
    evEvent.Debug(findTag, "new QueryResult returned NULL. Insufficient memory");
    return -1;
  }
  if (m_Conn->RunQuery(paths::innoDbSupport, result.get()) != 0) {
    evEvent.Debug(findTag, "[%s] query execution failed:%s", paths::innoDbSupport, m_Conn->getLastErrorStr().c_str());
    return keepConnectionError();
  }
  if (result->rows == 0) return 0;
  evEvent.Debug(findTag, " innoDb Available [%ld] [%ld]", static_cast<long>(result->rows),
                static_cast<long>(result->fields));
  std::list<std::string> row;
  if (m_Conn->FetchNextRow(result.get(), row) != 0) {
    evEvent.Debug(findTag, "FetchNextRow failed:%s", m_Conn->getLastErrorStr().c_str());
    return keepConnectionError();
  }
  if (row.empty()) return 0;
  evEvent.Debug(findTag, " Row iterator [%s] ", row.front().c_str());
  // Kept: the opposite of command mode's test, which reads InnoDB's paths only where there is no InnoDB.
  available = row.front() != "NO";
  return 0;
}

int GetMySqlInfoExt::findInnoDbPaths() {
  std::string value;
  if (QueryVariable("innodb_data_home_dir", value) != 0) {
    evEvent.Debug(findTag, "cannot get 'innodb_data_home_dir' value from server.");
    return -1;
  }
  m_dataPaths["innodb_data_home_dir"] = value;
  if (QueryVariable("innodb_data_file_path", value) != 0) {
    evEvent.Debug(findTag, "cannot get 'innodb_data_file_path' value from server.");
    return -1;
  }
  for (const paths::DataFile& file : paths::dataFilesOfLibraryMode(value)) {
    if (file.hasDirectory()) m_dataPaths[file.name] = file.name;
  }
  if (QueryVariable("innodb_log_group_home_dir", value) != 0) {
    evEvent.Debug(findTag, "cannot get 'innodb_log_group_home_dir' value from server.");
    return -1;
  }
  m_dataPaths["innodb_log_group_home_dir"] = value;
  return 0;
}

int GetMySqlInfoExt::FindAllDatabasePaths() {
  return orrery::mysql::guarded(evEvent, findTag, [&] {
    m_dataPaths.clear();
    std::string directory;
    if (QueryVariable("datadir", directory) != 0) {
      evEvent.Debug(findTag, "cannot get 'datadir' value from server.");
      return -1;
    }
    m_dataPaths["datadir"] = directory;
    evEvent.Debug(findTag, " datadir [%s]", directory.c_str());
    if (findDataDirectoryLink(directory) != 0 || findDatabaseLinks(directory) != 0) return -1;

    bool innoDb = false;
    if (hasInnoDb(innoDb) != 0) return -1;
    if (innoDb && findInnoDbPaths() != 0) return -1;

    std::string owner;
    if (getUserGroupOfPath(directory, owner) != 0) {
      evEvent.Debug(findTag, "%s", paths::ownerUnknown);
      return -1;
    }
    // Kept: the property's text stays in the session and the path keeps its last "/"; command mode writes it to the
    // inventory, without that "/", without "./" and, for a cloud database, without an owner.
    m_dataPaths["datadirUserPath"] = "datadir:" + directory + ";" + owner;
    return 0;
  });
}
