#pragma once

#include <string>

/// Places outside a server's data directory that hold its data and that the map of data paths does not name.
namespace orrery::mysql {

struct FurtherPath {
  std::string
      kind;  ///< "undo", "doublewrite", "redo_log", "tablespace", "table", "binary_log", "relay_log", "aria_log"
  std::string path;  ///< a file or directory, absolute
  std::string note;  ///< what it belongs to, for people: a tablespace's name, a variable; may be empty
};

}  // namespace orrery::mysql
