#include "outside_paths.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>

#include "data_paths.h"
#include "failure.h"
#include "posix.h"

namespace orrery::tool {
namespace {

constexpr std::uint32_t outsidePathsOption = 0x4F520002;

bool isDataFile(const std::string& name) {
  static constexpr const char* begins[] = {"ibdata", "ib_logfile", "undo", "aria_log"};
  return std::any_of(std::begin(begins), std::end(begins),
                     [&](const char* begin) { return name.starts_with(begin); }) ||
         name.ends_with(".ibd") || name.ends_with(".isl");
}

bool isOfBackup(const DataPath& path) {
  static const std::set<std::string> stays{"data_directory", "data_directory_link", "binary_log", "relay_log"};
  if (stays.count(path.kind) != 0) return false;
  const std::string name = std::filesystem::path(path.path).filename();
  // Links to sockets, logs and certificates are of kind file; temporary tables come and go.
  return !name.starts_with("#sql") && (path.kind != "file" || isDataFile(name));
}

}  // namespace

std::vector<std::string> outsidePaths(ServerSession& server) {
  DataPaths found = readDataPaths(server);
  addFurtherPaths(server, found);
  const std::filesystem::path directory = resolvedPath(found.dataDirectory);
  std::set<std::string> outside;
  for (const DataPath& path : found.paths)
    if (isOfBackup(path) && !isWithin(resolvedPath(path.path), directory)) outside.insert(path.path);
  return {outside.begin(), outside.end()};
}

void noteOutsidePaths(Context& context, ServerSession& server, long long job) {
  std::string text;
  for (const std::string& path : outsidePaths(server)) text += path + "\n";
  require(context.services().jobs->writeTaskOption(job, outsidePathsOption, text),
          "the places outside the data directory are not noted");
}

std::optional<std::vector<std::string>> notedOutsidePaths(Context& context, long long job) {
  std::optional<std::string> text;
  const platform::Status status = context.services().jobs->readTaskOption(job, outsidePathsOption, text);
  if (status.code != platform::statusNotFound) require(status, "the places outside the data directory are not known");
  if (!text) return {};
  std::vector<std::string> paths;
  std::istringstream lines(*text);
  for (std::string line; std::getline(lines, line);) paths.push_back(line);
  return paths;
}

}  // namespace orrery::tool
