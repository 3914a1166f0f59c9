// Which family a server is of, and how its version compares.

#include <cstdlib>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/platform/FXString.h"

#include "session/guarded.h"

using orrery::mysql::guarded;

namespace {

constexpr const char* mariaDbName = "mariadb";
constexpr bool ignoreCase = true;

}  // namespace

int GetMySqlInfo::isMariaDb(bool& mariaDb) {
  constexpr const char* tag = "GetMySqlInfo::isMariaDb";
  return guarded(evEvent, tag, [&] {
    mariaDb = false;
    std::string comment;
    if (QueryVariable("version_comment", comment) != 0) {
      evEvent.Debug(tag, "cannot get 'version_comment' value from server.");
      return -1;
    }
    if (FXString::Contains(comment, mariaDbName, ignoreCase) || FXString::Contains(comment, "mysql", ignoreCase)) {
      mariaDb = FXString::Contains(comment, mariaDbName, ignoreCase);
      evEvent.Debug(tag, "MariaDB: %s, told by the version comment [%s]", mariaDb ? "yes" : "no", comment.c_str());
      return 0;
    }
    // Packagers put a text of their own there ("Debian 12"), and the family stands in the version alone.
    std::string version;
    if (QueryVariable("version", version) != 0) {
      evEvent.Debug(tag, "cannot get 'version' value from server.");
      return -1;
    }
    mariaDb = FXString::Contains(version, mariaDbName, ignoreCase);
    evEvent.Debug(tag, "MariaDB: %s, told by the version [%s]: the version comment [%s] names no family",
                  mariaDb ? "yes" : "no", version.c_str(), comment.c_str());
    return 0;
  });
}

int GetMySqlInfo::updateMariaDbFlag() {
  constexpr const char* tag = "GetMySqlInfo::updateMariaDbFlag";
  return guarded(evEvent, tag, [&] {
    const auto instance = MySqlInstance::create(static_cast<long>(ulInstanceId));
    bool mariaDb = false;
    if (isMariaDb(mariaDb) != 0) {
      evEvent.Debug(tag, "MariaDB check failed.");
      return -1;
    }
    bool stored = false;
    if (instance == nullptr || instance->getIsMariaDB(stored) != 0) {
      evEvent.Debug(tag, "Failed to fetch MariaDB flag");
      return -1;
    }
    if (stored == mariaDb) return 0;
    evEvent.Debug(tag, "Setting MariaDB falg.");
    if (instance->setIsMariaDB(mariaDb) != 0) {
      evEvent.Debug(tag, "Failed to set MariaDB flag: %d", mariaDb ? 1 : 0);
      return -1;
    }
    return 0;
  });
}

bool GetMySqlInfoExt::isMySQL8orMore() {
  constexpr const char* tag = "GetMySqlInfoExt::isMySQL8orMore";
  constexpr int unknown = -1;
  return guarded(evEvent, tag, [&] {
           std::string version;
           if (getVersionFromServer(version) == -1) {
             evEvent.Debug(tag, "Failed to get source server version");
             return unknown;
           }
           bool mariaDb = false;
           if (isMariaDb(mariaDb) != 0) {
             evEvent.Debug(tag, "MariaDB check failed.");
             return unknown;
           }
           if (mariaDb) return 0;
           return std::atoi(version.c_str()) > 7 ? 1 : 0;
         }) == 1;
}

int GetMySqlInfoExt::isVersionGreaterThan(int major, int minor, bool& mariaDb, bool& greater) {
  constexpr const char* tag = "GetMySqlInfoExt::isVersionGreaterThen";
  return guarded(evEvent, tag, [&] {
    mariaDb = false;
    greater = false;
    std::string version;
    if (getVersionFromServer(version) != 0) {
      evEvent.Debug(tag, "Failed to check MySql version.");
      return -1;
    }
    const std::vector<std::string> parts = FXString::Split(version, '.');
    if (parts.size() < 2) {
      evEvent.Debug(tag, "Got improper MySql version [%s].", version.c_str());
      return -1;
    }
    const int serverMajor = std::atoi(parts[0].c_str());
    const int serverMinor = std::atoi(parts[1].c_str());
    greater = serverMajor > major || (serverMajor == major && serverMinor > minor);
    if (isMariaDb(mariaDb) != 0) {
      evEvent.Debug(tag, "MariaDB check failed.");
      return -1;
    }
    return 0;
  });
}
