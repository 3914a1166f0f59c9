#pragma once

#include <list>
#include <string>
#include <utility>

#include "orrery/mysql/DatabasePlan.h"

namespace orrery::mysql {

/// What the subclients of one backup set hold, names as the management server keeps them.
struct DatabaseContent {
  std::list<std::string> own;                  ///< of the subclient that is backed up
  std::list<std::pair<std::string, int>> all;  ///< of all, this one's included; not 0: added by discovery
};

/// Spells the names of all subclients as the server's list does: entries of a cloud database's content may begin with a
/// backslash in place of the "/". Those of the own list stay as they are.
void spellLikeServer(DatabaseContent& content);

/// Compares the server's databases with the content, whose names `spellLikeServer` has seen where that is due. Touches
/// nothing else. In n log n for n names.
///
/// The new databases of a server that `discovers` are sorted. The lists of those that are gone are in the order of all
/// entries, and have a name as often as the entries have. The valid list is in the order of the own list, the new ones
/// behind it.
DatabasePlan reconcile(std::list<std::string> server, const DatabaseContent& content, bool discovers);

}  // namespace orrery::mysql
