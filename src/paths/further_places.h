#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "orrery/mysql/FurtherPath.h"
#include "orrery/platform/EvEvent.h"

namespace orrery::mysql::paths {

/// Gathers the places outside a data directory. Paths are compared and reported without links, "." and "..", by whole
/// names: "/data2" does not lie in "/data".
class FurtherPlaces {
 public:
  FurtherPlaces(const EvEvent& log, const char* tag) noexcept : log_(log), tag_(tag) {}

  /// To be called first. -1, logged, for a directory that is not on this machine.
  int setDataDirectory(const std::string& path);
  const std::string& dataDirectory() const noexcept { return dataDirectory_; }

  /// Paths that are not absolute count from the data directory. Passed over is what lies in it, in a covered directory
  /// or in a directory of the same kind, and what is known already.
  void addDirectory(std::string_view kind, const std::string& path, const std::string& note);
  void addFile(std::string_view kind, const std::string& path, const std::string& note);
  /// The same for a path without links. For directories alone `isDirectory` tells that what lies in it is meant too.
  void addPhysical(std::string_view kind, const std::string& physical, const std::string& note, bool isDirectory);
  /// What lies in this directory, a path without links, is protected with it, whatever it is.
  void cover(const std::string& physical) { covered_.insert(physical); }
  bool isCovered(const std::string& physical) const { return liesIn(covered_, physical); }

  /// What was gathered, in the order of kinds and paths.
  std::vector<FurtherPath> take();

 private:
  static bool liesIn(const std::set<std::string>& directories, std::string_view path);
  const std::string& physicalDirectory(const std::string& path);

  const EvEvent& log_;
  const char* tag_;
  std::string dataDirectory_;
  std::set<std::string> covered_;
  std::map<std::string, std::set<std::string>, std::less<>> directoriesOfKind_;
  std::map<std::string, std::string> physical_;  // directories that were asked for, so that each is resolved once
  std::map<std::pair<std::size_t, std::string>, std::string> places_;  // place of the kind and path; the note
};

/// Looks for links in the data directory and in the databases' directories: what moves databases and tables elsewhere.
/// Reads every directory once and asks for nothing but the links. -1, logged, when a directory or a link cannot be
/// read.
int addLinks(FurtherPlaces& places, const EvEvent& log, const char* tag);

}  // namespace orrery::mysql::paths
