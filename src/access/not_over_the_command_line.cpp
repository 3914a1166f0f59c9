// Requests that command mode answers without asking the server. Callers rely on these answers as they are.

#include "orrery/mysql/MySqlHelperClasses.h"

namespace {

int notSupported(const EvEvent& event, const char* tag) {
  event.Debug(tag, "We dont support this for mysql CommandLine");
  return -1;
}

}  // namespace

int GetMySqlInfo::fillDatabaseInfo(std::string, IdxMetadata::MySqlDbInfo*) {
  return notSupported(evEvent, "<<FALLBACK>> GetMySqlInfo::fillDatabaseInfo");
}

int GetMySqlInfo::fillTableInfoForDataBase(std::string, std::vector<std::string>*) {
  return notSupported(evEvent, "<<FALLBACK>> GetMySqlInfo::fillTableInfoForDataBase");
}

int GetMySqlInfo::setIdentifiedWithAsHex(const std::string&) {
  return notOverClients("<<FALLBACK>> GetMySqlInfo::setIdentifiedWithAsHex");
}
int GetMySqlInfo::getUsers(std::vector<std::string>&) {
  return notOverClients("<<FALLBACK>> GetMySqlInfo::getUsers");
}
int GetMySqlInfo::getCreateUserQuery(const std::string&, std::string&) {
  return notOverClients("<<FALLBACK>> GetMySqlInfo::getCreateUserQuery");
}
int GetMySqlInfo::getGrantQueries(const std::string&, std::vector<std::string>&) {
  return notOverClients("<<FALLBACK>> GetMySqlInfo::getGrantQueries");
}
/// Every request would log in anew, so a setting of the session would be gone, and a client's output is no place for
/// passwords' digests.
int GetMySqlInfo::notOverClients(const char* tag) {
  iErrorCode = -1;
  strErrorString = "accounts are read over a client library only, in library mode";
  evEvent.Error(tag, "%s", strErrorString.c_str());
  return -1;
}

// Kept: command mode does not look. Callers treat a table as whole, a version as unknown.
int GetMySqlInfo::isPartitionedTable(std::string, std::string) {
  return 0;
}
bool GetMySqlInfo::isMySQL8orMore() {
  return false;
}
int GetMySqlInfo::isVersionGreaterThan(int, int, bool&, bool&) {
  return -1;
}

int GetMySqlInfo::recoverTable(std::string, std::string, std::string, std::string) {
  evEvent.Debug("<<FALLBACK>> GetMySqlInfo::recoverTable", "recovery of one table is not offered");
  return -1;
}
