#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orrery::mysql::paths {

// Statements and lines of both modes; people search logs for the lines.
inline constexpr char innoDbSupport[] = "select support  from information_schema.engines where engine='InnoDB';";
inline constexpr char ownerUnknown[] = "failed to get user and group of datadir";

/// One file of `innodb_data_file_path`.
struct DataFile {
  std::string piece;  ///< as it stands in the value, with the ";" that ends it
  std::string name;   ///< what stands before the first ":"; the whole piece when it has none
  bool closed;        ///< ended by a ";", not by the end of the value
  bool sized;         ///< has a ":"

  /// Whether the path map names it: a file without a directory lies in the data directory.
  bool hasDirectory() const { return name.find('/') != std::string::npos; }
};

/// The files that begin before position `bound` of an `innodb_data_file_path` value.
std::vector<DataFile> dataFilesBefore(const std::string& value, std::int64_t bound);

/// As command mode reads a value. Kept: nothing begins at the last position, so a last piece of one character does not
/// count; nobody has such a file, and the two modes are known to differ there.
std::vector<DataFile> dataFilesOfCommandMode(const std::string& value);
/// As library mode reads it, up to the last position. Kept: positions are 32-bit signed numbers, so a value that is
/// longer than they reach has no files.
std::vector<DataFile> dataFilesOfLibraryMode(const std::string& value);

}  // namespace orrery::mysql::paths
