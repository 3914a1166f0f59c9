#include "paths/further_places.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace orrery::mysql::paths {
namespace {

constexpr std::array<std::string_view, 10> kinds = {"undo",  "doublewrite", "redo_log",   "tablespace", "database",
                                                    "table", "file",        "binary_log", "relay_log",  "aria_log"};

std::size_t orderOf(std::string_view kind) {
  return static_cast<std::size_t>(std::find(kinds.begin(), kinds.end(), kind) - kinds.begin());
}

}  // namespace

int FurtherPlaces::setDataDirectory(const std::string& path) {
  std::error_code error;
  const fs::path physical = fs::path(path).is_absolute() ? fs::canonical(path, error) : fs::path();
  if (physical.empty() || error) {
    log_.Error(tag_, "the server's data directory [%s] is not on this machine: %s", path.c_str(),
               error ? error.message().c_str() : "its path is not absolute");
    return -1;
  }
  dataDirectory_ = physical.string();
  cover(dataDirectory_);
  return 0;
}

/// Whether the path is one of the directories or lies in one: its ancestors are looked up, one by one.
bool FurtherPlaces::liesIn(const std::set<std::string>& directories, std::string_view path) {
  if (directories.empty()) return false;
  std::string ancestor(path);
  while (directories.count(ancestor) == 0) {
    if (ancestor.size() <= 1) return false;
    const std::size_t slash = ancestor.rfind('/');
    if (slash == std::string::npos) return false;
    ancestor.resize(std::max<std::size_t>(slash, 1));
  }
  return true;
}

const std::string& FurtherPlaces::physicalDirectory(const std::string& path) {
  const auto [entry, isNew] = physical_.try_emplace(path);
  if (!isNew) return entry->second;
  const fs::path absolute = fs::path(dataDirectory_) / path;  // which is `path` when that is absolute
  std::error_code error;
  fs::path physical = fs::weakly_canonical(absolute, error);
  if (error) physical = absolute.lexically_normal();
  entry->second = physical.string();
  // A "/" at the end, which stays where the directory does not exist.
  if (entry->second.size() > 1 && entry->second.back() == '/') entry->second.pop_back();
  return entry->second;
}

void FurtherPlaces::addDirectory(std::string_view kind, const std::string& path, const std::string& note) {
  addPhysical(kind, physicalDirectory(path), note, true);
}

void FurtherPlaces::addFile(std::string_view kind, const std::string& path, const std::string& note) {
  const std::size_t slash = path.rfind('/');
  const bool hasDirectory = slash != std::string::npos;
  const std::string& directory = physicalDirectory(hasDirectory ? path.substr(0, slash + 1) : std::string());
  const std::string name = hasDirectory ? path.substr(slash + 1) : path;
  addPhysical(kind, directory == "/" ? "/" + name : directory + "/" + name, note, false);
}

void FurtherPlaces::addPhysical(std::string_view kind, const std::string& physical, const std::string& note,
                                bool isDirectory) {
  if (isCovered(physical)) return;
  const auto ofKind = directoriesOfKind_.try_emplace(std::string(kind)).first;
  if (liesIn(ofKind->second, physical)) return;
  if (isDirectory) ofKind->second.insert(physical);
  places_.try_emplace({orderOf(kind), physical}, note);
}

std::vector<FurtherPath> FurtherPlaces::take() {
  std::vector<FurtherPath> found;
  found.reserve(places_.size());
  for (auto& [place, note] : std::exchange(places_, {})) {
    // Found before the database's directory that covers it.
    if (kinds.at(place.first) != "database" && isCovered(place.second)) continue;
    found.push_back({std::string(kinds.at(place.first)), place.second, note});
  }
  return found;
}

}  // namespace orrery::mysql::paths
