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

/// Every data path of a server, with its owner where it has one. Throws Failure.
DataPaths readDataPaths(ServerSession& server);

Json toJson(const DataPath& path);
/// Columns: kind, path, owner, origin.
Table toTable(const std::vector<DataPath>& paths);

}  // namespace orrery::tool
