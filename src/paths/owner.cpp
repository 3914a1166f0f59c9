// Whose the data are, and the property of an instance that keeps the data directory and its owner:
// "datadir:PATH;usergroup:USER#GROUP;".

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/FXString.h"

#include "paths/data_files.h"
#include "session/guarded.h"

using orrery::mysql::guarded;
namespace paths = orrery::mysql::paths;

namespace {

constexpr const char* ownerIs = "usergroup of datadir=[%s]";
constexpr std::size_t largestEntry = std::size_t{16} * 1024 * 1024;  // groups may have very many members

/// The name of a user or a group; nothing, with errno, without an entry. errno is 0 when the database could be asked
/// and has none.
template <class Entry, class Id>
std::optional<std::string> nameOf(Id id, int (*lookUp)(Id, Entry*, char*, std::size_t, Entry**), char* Entry::*name) {
  std::vector<char> buffer(1024);
  for (;;) {
    Entry entry{};
    Entry* found = nullptr;
    const int error = lookUp(id, &entry, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error == ERANGE && buffer.size() < largestEntry) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (found != nullptr) return entry.*name;
    errno = error;
    return std::nullopt;
  }
}

/// Ids as they have always been written: as signed numbers.
std::string decimal(unsigned id) {
  return std::to_string(static_cast<int>(id));
}

std::string withoutLastSlash(std::string path) {
  if (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

int GetMySqlInfo::getUserGroupOfPath(std::string path, std::string& owner) {
  constexpr const char* tag = "GetMySqlInfo::getUserGroupOfPath";
  return guarded(evEvent, tag, [&] {
    path = withoutLastSlash(path);
    evEvent.Debug(tag, "find out user:group details for [%s]", path.c_str());
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
      evEvent.Debug(tag, "failed to stat on datadir:rc=%d", errno);
      return -1;
    }
    auto user = nameOf(info.st_uid, getpwuid_r, &passwd::pw_name);
    std::optional<std::string> group;
    if (!user) {
      // Kept: without a user the group is not looked up, and both are numbers; a group without an entry fails below.
      // Containers often have users that the host does not know, and a restore gives files back to numbers as well.
      evEvent.Debug(tag, "could not fetch group details. getpwuid  received error %d", errno);
      user = decimal(info.st_uid);
      group = decimal(info.st_gid);
    } else {
      group = nameOf(info.st_gid, getgrgid_r, &::group::gr_name);
      if (!group) {
        evEvent.Debug(tag, "could not fetch group details. getgrgid received error %d", errno);
        return -1;
      }
    }
    owner = "usergroup:" + *user + "#" + *group + ";";
    evEvent.Debug(tag, ownerIs, owner.c_str());
    return 0;
  });
}

int GetMySqlInfo::setDataPathsToARDB(std::string path) {
  constexpr const char* tag = "GetMySqlInfo::setDataPathsToARDB";
  return guarded(evEvent, tag, [&] {
    std::string value;
    if (path == "./" || path == ".\\") {
      evEvent.DebugLvl(tag, 6, "variable [datadir] points to [%s], it will be same as datapath", path.c_str());
    } else {
      value = "datadir:" + withoutLastSlash(path) + ";";
    }
    std::string owner;
    if (!IsCloudDBInstance(ulClientId) && getUserGroupOfPath(path, owner) < 0) {
      evEvent.Debug(tag, "%s", paths::ownerUnknown);
      return -1;
    }
    evEvent.Debug(tag, ownerIs, owner.c_str());
    value += owner;
    if (MySqlInstance(ulInstanceId).setMySqlDataDir(value) != 0) {
      evEvent.Debug(tag, "Failed to set the datadir details to AR, MySqlInstance::setMySqlDataDir failed.");
      return -1;
    }
    return 0;
  });
}

int GetMySqlInfo::getDataDir(MySqlInstance* instance, std::string& dataDir) {
  constexpr const char* tag = "GetMySqlInfo::getDataDir";
  return guarded(evEvent, tag, [&] {
    if (instance == nullptr) {
      evEvent.Debug(tag, "MySqlInst is null.");
      return -1;
    }
    if (const int rc = instance->getMySqlDataDir(dataDir); rc != 0) {
      evEvent.Debug(tag, "the instance's data directory cannot be read, error %d", rc);
      return -1;
    }
    // Kept: the field's key is not looked at. A property that begins with the owner, as that of a data directory "./"
    // does, gives USER#GROUP.
    const std::string field = dataDir.substr(0, dataDir.find(';'));
    const std::size_t colon = field.find(':');
    dataDir = colon == std::string::npos ? field : field.substr(colon + 1);
    return 0;
  });
}

void GetMySqlInfo::extractDataDir(const std::string& property, std::string& dataDir, std::string& user,
                                  std::string& group) {
  guarded(EvEvent(), "GetMySqlInfo::extractDataDir", [&] {
    for (const std::string& field : FXString::Split(property, ';')) {
      const auto parts = FXString::Split(field, ':');
      // Nothing is escaped in the property: a path with a ":" of its own, or a name with a "#", cannot be read back.
      if (parts.size() != 2) continue;
      if (parts[0] == "datadir") dataDir = parts[1];
      if (parts[0] != "usergroup") continue;
      const auto names = FXString::Split(parts[1], '#');
      if (names.size() != 2) continue;
      user = names[0];
      group = names[1];
    }
    EvDebug::debugLvl(0, "Extracted MySql dataDir[%s], user[%s], group[%s] from [%s]", dataDir.c_str(), user.c_str(),
                      group.c_str(), property.c_str());
    return 0;
  });
}
