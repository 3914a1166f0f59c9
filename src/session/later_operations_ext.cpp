// Requests of library mode that this build does not offer yet. They are overridden all the same: what the base does in
// their place would go past the connection.

#include "orrery/mysql/MySqlHelperClassesExt.h"

int GetMySqlInfoExt::checkInnoDbFilePerTable(std::string, bool&) {
  return notBuiltYet("GetMySqlInfoExt::checkInnoDbFilePerTable");
}
int GetMySqlInfoExt::setIdentifiedWithAsHex(const std::string&) {
  return notBuiltYet("GetMySqlInfoExt::setIdentifiedWithAsHex");
}
int GetMySqlInfoExt::getUsers(std::vector<std::string>&) {
  return notBuiltYet("GetMySqlInfoExt::getUsers");
}
int GetMySqlInfoExt::getCreateUserQuery(const std::string&, std::string&) {
  return notBuiltYet("GetMySqlInfoExt::getCreateUserQuery");
}
int GetMySqlInfoExt::getGrantQueries(const std::string&, std::vector<std::string>&) {
  return notBuiltYet("GetMySqlInfoExt::getGrantQueries");
}
int GetMySqlInfoExt::fillDatabaseInfo(std::string, IdxMetadata::MySqlDbInfo*) {
  return notBuiltYet("GetMySqlInfoExt::fillDatabaseInfo");
}
int GetMySqlInfoExt::fillTableInfoForDataBase(std::string, std::vector<std::string>*) {
  return notBuiltYet("GetMySqlInfoExt::fillTableInfoForDataBase");
}
int GetMySqlInfoExt::isXtrabackupPossible() {
  return notBuiltYet("GetMySqlInfoExt::isXtrabackupPossible");
}
int GetMySqlInfoExt::isPartitionedTable(std::string, std::string) {
  return notBuiltYet("GetMySqlInfoExt::isPartitionedTable");
}
