#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context.h"

namespace orrery::tool {

class ServerSession;

/// One place that holds a server's data.
struct DataPath {
  std::string kind;
  std::string path;  ///< absolute where the data directory is known
  /// From the library's map of data paths; else found beside it, because current servers keep data there too.
  bool isOfMap = false;
  std::string note;  ///< what it belongs to; may be empty
  std::optional<std::string> owner;
  std::optional<std::string> group;
};

struct DataPaths {
  std::string dataDirectory;  ///< as the server tells it
  std::vector<DataPath> paths;
};

/// The paths of the library's map, with their owners where they have one. Throws Failure.
DataPaths readDataPaths(ServerSession& server);
/// Adds the places that the map does not name, linked databases among them. The data directory must be readable here.
/// Throws Failure.
void addFurtherPaths(ServerSession& server, DataPaths& paths);

Json toJson(const DataPath& path);
/// Columns: kind, path, owner, origin.
Table toTable(const std::vector<DataPath>& paths);

/// Keeps with the instance where its server has its data, and whose they are, for the time when no server can be asked;
/// the directory, as the server tells it. Throws Failure.
std::string noteDataDirectory(ServerSession& server);

/// Whether two paths are of one folder, by whatever links; a folder that is not there is known by its path.
bool isSameFolder(const std::string& one, const std::string& other);

}  // namespace orrery::tool
