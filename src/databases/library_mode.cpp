// Databases of a server over the connection of library mode.

#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "access/library_forward.h"
#include "databases/lists.h"

namespace databases = orrery::mysql::databases;
using orrery::mysql::noConnection;
using orrery::mysql::noConnectionBare;

namespace {

constexpr const char* propertiesFailed = "GetDBProperties Failed...";

}  // namespace

int GetMySqlInfoExt::FetchDBList(std::list<std::string>& databases) {
  constexpr const char* tag = "GetMySqlInfoExt::FetchDBList";
  std::list<std::string> names;
  return forward(
      tag, noConnection,
      [&](MySqlInterface& server) {
        if (server.FetchDBList(names) != 0) return -1;
        for (const std::string& name : names) evEvent.DebugLvl(tag, 6, "db:%s", name.c_str());
        databases::removeVirtualSchemas(names);
        evEvent.Debug(tag, databases::twoSchemasRemoved);
        // Kept: the provider of a cloud database owns these three. Command mode leaves them in the list.
        if (IsCloudDBInstance(ulClientId)) {
          names.remove_if([](const std::string& name) { return name == "mysql" || name == "innodb" || name == "sys"; });
          evEvent.Debug(tag, "Removed mysql database");
        }
        databases::prefix(names);
        databases.splice(databases.end(), names);
        evEvent.Debug(tag, databases::listIsComplete);
        return 0;
      },
      [&](const char* text, int code) { evEvent.Debug(tag, "FetchDBList failed [%d:%s]", code, text); });
}

int GetMySqlInfoExt::CheckDBPresence(std::string db, bool& present) {
  constexpr const char* tag = "GetMySqlInfoExt::CheckDBPresence";
  // Kept: one line feed and no more, the one that a line of a list ends in. Command mode removes them all.
  if (!db.empty() && db.back() == '\n') db.pop_back();
  bool found = false;
  const int result = forward(
      tag, noConnectionBare, [&](MySqlInterface& server) { return server.CheckDBExistence(db, found); },
      [&](const char*, int) {
        evEvent.Debug(tag,
                      "Checking DB Presence Failed...Probably connection to Server not present or Querying Server "
                      "failed");
      });
  if (result != 0) return result;
  present = found;
  if (found) {
    evEvent.Debug(tag, "Database Found...[ %s ] ", db.c_str());
  } else {
    evEvent.Debug(tag, "Database Not Found...[ %s ] ", db.c_str());
  }
  return 0;
}

int GetMySqlInfoExt::getDBProps(std::string db, std::string& createTime, unsigned long long& size) {
  constexpr const char* tag = "GetMySqlInfoExt::getDBProps";
  const int result = forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.GetDBProperties(db, size, createTime); },
      [&](const char*, int) { evEvent.Debug(tag, "%s", propertiesFailed); });
  if (result == 0) evEvent.Debug(tag, "Got DB [ %s ] creation time : %s ", db.c_str(), createTime.c_str());
  return result;
}

int GetMySqlInfoExt::isUsesInnoDBEngine(std::string db, bool& innoDbOnly) {
  constexpr const char* tag = "GetMySqlInfoExt::isUsesInnoDBEngine";
  if (!bInitialized) {
    evEvent.Debug(tag, "object not initialized before calling this function.");
    return -1;
  }
  return forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.isUsesInnoDBEngine(db, innoDbOnly); },
      // Kept: the words of another request.
      [&](const char*, int) { evEvent.Debug(tag, "%s", propertiesFailed); });
}
