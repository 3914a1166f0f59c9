#pragma once

#include <string>

/// Places outside a server's data directory that hold its data and that the map of data paths does not name.
namespace orrery::mysql {

struct FurtherPath {
  /// "undo", "doublewrite", "redo_log", "tablespace" (a file of InnoDB), "database" (a directory behind a link in the
  /// data directory), "table" (a file behind a link in a database's directory), "file" (any other behind a link in the
  /// data directory), "binary_log", "relay_log", "aria_log".
  std::string kind;
  std::string path;  ///< a file or directory, absolute, without links
  /// What it belongs to, for people: a tablespace's name, a link below the data directory, a variable; of logs with the
  /// variable's value, which is how their names begin. May be empty.
  std::string note;
};

}  // namespace orrery::mysql
