// Operations of the interface that this build does not offer yet. They hold their slots, so that the table of
// operations never changes for callers, and fail with a log line that says so.

#include "orrery/mysql/MySqlHelperClasses.h"

int GetMySqlInfo::notBuiltYet(const char* operation) {
  evEvent.Error(operation, "not offered by this version of the library");
  iErrorCode = -1;
  strErrorString = std::string(operation) + " is not offered by this version of the library";
  return -1;
}

int GetMySqlInfo::checkInnoDbFilePerTable(std::string, bool&) {
  return notBuiltYet("GetMySqlInfo::checkInnoDbFilePerTable");
}
int GetMySqlInfo::setIdentifiedWithAsHex(const std::string&) {
  return notBuiltYet("GetMySqlInfo::setIdentifiedWithAsHex");
}
int GetMySqlInfo::getUsers(std::vector<std::string>&) {
  return notBuiltYet("GetMySqlInfo::getUsers");
}
int GetMySqlInfo::getCreateUserQuery(const std::string&, std::string&) {
  return notBuiltYet("GetMySqlInfo::getCreateUserQuery");
}
int GetMySqlInfo::getGrantQueries(const std::string&, std::vector<std::string>&) {
  return notBuiltYet("GetMySqlInfo::getGrantQueries");
}
int GetMySqlInfo::isXtrabackupPossible() {
  return notBuiltYet("GetMySqlInfo::isXtrabackupPossible");
}
