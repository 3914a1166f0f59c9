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
int GetMySqlInfo::isXtrabackupPossible() {
  return notBuiltYet("GetMySqlInfo::isXtrabackupPossible");
}
