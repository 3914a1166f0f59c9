#include "outside_paths.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <system_error>

#include "data_paths.h"
#include "failure.h"

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

/// What cannot be looked at is taken by its words.
std::filesystem::path resolved(const std::string& path) {
  std::error_code error;
  std::filesystem::path whole = std::filesystem::weakly_canonical(path, error);
  if (error) whole = std::filesystem::path(path).lexically_normal();
  return whole.has_filename() ? whole : whole.parent_path();
}

bool lies(const std::filesystem::path& path, const std::filesystem::path& above) {
  const auto ends = std::mismatch(above.begin(), above.end(), path.begin(), path.end());
  return ends.first == above.end();
}

}  // namespace

std::vector<std::string> outsidePaths(ServerSession& server) {
  DataPaths found = readDataPaths(server);
  addFurtherPaths(server, found);
  const std::filesystem::path directory = resolved(found.dataDirectory);
  std::set<std::string> outside;
  for (const DataPath& path : found.paths)
    if (isOfBackup(path) && !lies(resolved(path.path), directory)) outside.insert(path.path);
  return {outside.begin(), outside.end()};
}

void noteOutsidePaths(Context& context, ServerSession& server, long long job) {
  std::string text;
  for (const std::string& path : outsidePaths(server)) text += path + "\n";
  if (text.empty()) return;
  require(context.services().jobs->writeTaskOption(job, outsidePathsOption, text),
          "the places outside the data directory are not noted");
}

std::vector<std::string> notedOutsidePaths(Context& context, long long job) {
  std::optional<std::string> text;
  const platform::Status status = context.services().jobs->readTaskOption(job, outsidePathsOption, text);
  if (status.code == platform::statusNotFound) return {};
  require(status, "the places outside the data directory are not known");
  std::vector<std::string> paths;
  std::istringstream lines(text.value_or(""));
  for (std::string line; std::getline(lines, line);) paths.push_back(line);
  return paths;
}

}  // namespace orrery::tool
