#include "data_paths.h"

#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "server_session.h"

namespace orrery::tool {
namespace {

using PathMap = std::map<std::string, std::string>;

PathMap readMap(ServerSession& server) {
  PathMap map;
  server.run("the data paths are not known of", [&](GetMySqlInfo& session) {
    auto* const library = dynamic_cast<GetMySqlInfoExt*>(&session);
    if (library == nullptr) return session.FindAllDatabasePaths(map);
    // Servers make and remove files while their directory is read: one that is gone at its turn ends the reading.
    constexpr int mostAttempts = 5;
    int rc = -1;
    for (int attempt = 0; attempt < mostAttempts && rc != 0 && library->iErrorCode == 0; ++attempt)
      rc = library->FindAllDatabasePaths();
    map = library->dataPaths();
    return rc;
  });
  return map;
}

/// A variable's path; servers write some relative to their data directory.
std::string absolute(const std::string& dataDirectory, const std::string& path) {
  return (std::filesystem::path(dataDirectory) / path).lexically_normal().string();
}

std::string valueOf(const PathMap& map, const char* key) {
  const auto found = map.find(key);
  return found == map.end() ? std::string() : found->second;
}

/// The links' targets stand in one text, each with a comma behind it, and are found among the further paths.
std::vector<DataPath> pathsOfMap(const PathMap& map, const std::string& dataDirectory) {
  std::vector<DataPath> paths;
  const auto add = [&](const std::string& kind, const std::string& path) {
    if (!path.empty()) paths.push_back({kind, path, true, {}, {}, {}});
  };
  add("data_directory", dataDirectory);
  add("data_directory_link", valueOf(map, "datadirlink"));
  const std::string innoDbHome = valueOf(map, "innodb_data_home_dir");
  for (const auto& [key, value] : map) {
    if (key.starts_with("datadir") || key == "databaselinks") continue;
    if (key == value) {
      add("innodb_data_file", absolute(absolute(dataDirectory, innoDbHome), value));
    } else if (!value.empty()) {
      add(key, absolute(dataDirectory, value));
    }
  }
  return paths;
}

/// Takes "usergroup:USER#GROUP;" apart. A path that is not there, or of a group without a name, has no owner to show.
void readOwner(GetMySqlInfo& session, DataPath& path) {
  std::string field;
  if (session.getUserGroupOfPath(path.path, field) != 0) return;
  std::string none;
  std::string user;
  std::string group;
  GetMySqlInfo::extractDataDir(field, none, user, group);
  if (user.empty()) return;  // a name that the text cannot carry
  path.owner = user;
  path.group = group;
}

}  // namespace

DataPaths readDataPaths(ServerSession& server) {
  const PathMap map = readMap(server);
  DataPaths found;
  found.dataDirectory = valueOf(map, "datadir");
  found.paths = pathsOfMap(map, found.dataDirectory);
  for (DataPath& path : found.paths) readOwner(*server, path);
  return found;
}

void addFurtherPaths(ServerSession& server, DataPaths& paths) {
  std::vector<mysql::FurtherPath> further;
  server.run("the paths outside the data directory are not known of",
             [&](GetMySqlInfo& session) { return session.findFurtherPaths(further); });
  for (mysql::FurtherPath& path : further) {
    DataPath& added = paths.paths.emplace_back();
    added.kind = std::move(path.kind);
    added.path = std::move(path.path);
    added.note = std::move(path.note);
    readOwner(*server, added);
  }
}

Json toJson(const DataPath& path) {
  const auto textOrNull = [](const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); };
  Json document;
  document["kind"] = path.kind;
  document["path"] = path.path;
  document["owner"] = textOrNull(path.owner);
  document["group"] = textOrNull(path.group);
  document["origin"] = path.isOfMap ? "map" : "found";
  document["note"] = path.note.empty() ? Json(nullptr) : Json(path.note);
  return document;
}

Table toTable(const std::vector<DataPath>& paths) {
  Table table({"KIND", "PATH", "OWNER", "ORIGIN"});
  for (const DataPath& path : paths) {
    table.add({path.kind, path.path, path.owner ? *path.owner + ":" + path.group.value_or("") : "-",
               path.isOfMap ? "map" : (path.note.empty() ? "found" : "found: " + path.note)});
  }
  return table;
}

std::string noteDataDirectory(ServerSession& server) {
  const std::string directory = readDataPaths(server).dataDirectory;
  server.run("the data directory is not noted of",
             [&](GetMySqlInfo& session) { return session.setDataPathsToARDB(directory); });
  return directory;
}

bool isSameFolder(const std::string& one, const std::string& other) {
  std::error_code error;
  if (std::filesystem::equivalent(one, other, error)) return true;
  const auto plain = [](const std::string& path) { return std::filesystem::path(path + "/").lexically_normal(); };
  return plain(one) == plain(other);
}

}  // namespace orrery::tool
