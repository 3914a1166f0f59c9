// Databases of a server through its clients.

#include <algorithm>
#include <cstdio>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "access/client_output.h"
#include "access/identifiers.h"
#include "databases/lists.h"
#include "session/guarded.h"

namespace databases = orrery::mysql::databases;
using orrery::mysql::guarded;
using orrery::mysql::Quoting;
using orrery::mysql::reasonToRefuse;

namespace {

/// Reads the one row of a database's size and age. A sum over views alone is no number: they take no room.
void readSizeAndTime(const std::string& row, unsigned long long& size, std::string& createTime) {
  const std::size_t tab = row.find('\t');
  if (tab != std::string::npos && tab + 1 < row.size()) {
    createTime = row.substr(tab + 1, row.find('\t', tab + 1) - tab - 1);
    createTime.erase(std::remove(createTime.begin(), createTime.end(), '\n'), createTime.end());
  }
  long long bytes = 0;  // of the first field alone: a number's reader would pass over the tab behind an empty one
  size = std::sscanf(row.substr(0, tab).c_str(), "%lld", &bytes) == 1 ? static_cast<unsigned long long>(bytes) : 0;
}

}  // namespace

int GetMySqlInfo::FetchDBList(std::list<std::string>& databases) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::FetchDBList";
  return guarded(evEvent, tag, [&] {
    std::string output;
    if (runQuery(tag, "SHOW DATABASES", output) != 0) {
      evEvent.Debug(tag, "failed...");
      return -1;
    }
    std::list<std::string> names;
    MakeListFromBuffer(output, names);
    // The same names as over a connection, or a database would count as gone after a change of mode.
    for (std::string& name : names) name = orrery::mysql::unescapeValue(name);
    // Kept: mysql, sys and innodb stay, of a cloud database too; only library mode removes them there.
    databases::removeVirtualSchemas(names);
    evEvent.Debug(tag, databases::twoSchemasRemoved);
    databases::prefix(names);
    databases.splice(databases.end(), names);
    evEvent.Debug(tag, databases::listIsComplete);
    return 0;
  });
}

int GetMySqlInfo::CheckDBPresence(std::string& db, bool& present) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::CheckDBPresence";
  return guarded(evEvent, tag, [&] {
    db.erase(std::remove(db.begin(), db.end(), '\n'), db.end());
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    // Kept: the name is sent as a pattern that matches itself alone, since "_" and "%" are escaped first. Over a
    // connection a_b finds axb too.
    db = SpecialCharactersCheck(db);
    std::string output;
    if (runQuery(tag, databases::presenceOf(db), output) != 0) {
      evEvent.Debug(tag, "failed...");
      return -1;
    }
    // Kept: any output counts. To an empty name the server answers with all databases, so it is present.
    present = !output.empty();
    return 0;
  });
}

int GetMySqlInfo::getDBProps(std::string db, std::string& createTime, unsigned long long& size) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::getDBProps";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    db = SpecialCharactersCheck(db);
    std::string output;
    // Kept: a database whose tables cannot be listed counts as empty, which is no error.
    if (runQuery(tag, databases::tablesOf(db), output) == -1 || output.empty()) {
      size = 0;
      createTime = "0";
      return 0;
    }
    if (runQuery(tag, databases::sizeOf(db), output) != 0) {
      evEvent.Debug(tag, "GetMySqlInfo::getDBProps() failed...");
      return -1;
    }
    readSizeAndTime(output, size, createTime);
    return 0;
  });
}

int GetMySqlInfo::isUsesInnoDBEngine(std::string db, bool& innoDbOnly) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::isUsesInnoDBEngine";
  return guarded(evEvent, tag, [&] {
    innoDbOnly = false;
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    std::string output;
    // Kept: tables of the engine MEMORY count here, but not over a connection.
    if (runQuery(tag,
                 "SELECT * from (" + databases::enginesOf(db) + ") AS innertable WHERE innertable.ENGINE <> 'InnoDB' ",
                 output) != 0) {
      evEvent.Debug(tag, "failed");
      return -1;
    }
    innoDbOnly = output.empty();
    return 0;
  });
}
