// Requests of library mode that this build does not offer yet. They are overridden all the same: what the base does in
// their place would go past the connection.

#include "orrery/mysql/MySqlHelperClassesExt.h"

int GetMySqlInfoExt::checkInnoDbFilePerTable(std::string, bool&) {
  return notBuiltYet("GetMySqlInfoExt::checkInnoDbFilePerTable");
}
int GetMySqlInfoExt::isXtrabackupPossible() {
  return notBuiltYet("GetMySqlInfoExt::isXtrabackupPossible");
}
int GetMySqlInfoExt::isPartitionedTable(std::string, std::string) {
  return notBuiltYet("GetMySqlInfoExt::isPartitionedTable");
}
