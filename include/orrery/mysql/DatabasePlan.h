#pragma once

#include <list>
#include <string>

/// What one backup would do about databases. Names carry a "/" before them, as in every list of databases.
namespace orrery::mysql {

struct DatabasePlan {
  std::list<std::string> server;      ///< what the server has, without the schemas that are never listed
  std::list<std::string> discovered;  ///< on the server, in no subclient's content; would be added to this one
  std::list<std::string> vanished;    ///< in this subclient's content by discovery, not on the server; would be removed
  std::list<std::string> missing;     ///< put into this subclient's content by people, not on the server
  std::list<std::string> valid;       ///< what the backup would protect
};

}  // namespace orrery::mysql
