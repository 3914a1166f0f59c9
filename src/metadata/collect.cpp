// What all databases of a server hold, and how the server is set.

#include <string>
#include <unordered_set>
#include <utility>

#include "access/library_forward.h"
#include "metadata/answer.h"
#include "metadata/watch.h"

namespace metadata = orrery::mysql::metadata;
using metadata::Answer;
using metadata::column;
using metadata::noMemory;
using metadata::Request;
using metadata::Texts;
using metadata::Watch;
using orrery::mysql::guarded;

namespace {

/// All databases in one statement. Kept: the catalogue's route leaves the records of databases without a name of their
/// own and passes over none; the route below differs in both. Sequences and system-versioned tables are of other types.
int collectFromCatalogue(const Request& request, ClMySqlMetaData& metadata) {
  const std::string statement = "SELECT  TABLE_SCHEMA ,TABLE_NAME ,ENGINE FROM TABLES WHERE TABLE_TYPE=\"BASE TABLE\"";
  Answer answer(request, noMemory);
  if (answer.run(statement) != 0) return -1;
  if (answer.rows() == 0) {
    request.log().Debug(request.tag, "[%s] query returned no rows.", statement.c_str());
    return request.fail("the server's catalogue holds no table");
  }
  return answer.forEachRow(3, [&](Texts& row) {
    std::string& db = row.front();
    std::string& table = column(row, 1);
    std::string& engine = column(row, 2);
    request.log().DebugLvl(request.tag, 9, "dbname = %s ;table = %s ; engine = %s", db.c_str(), table.c_str(),
                           engine.c_str());
    metadata.databases[std::move(db)].tables.insert_or_assign(table, TblInfo{table, std::move(engine)});
  });
}

int listBaseTables(const Request& request, std::unordered_set<std::string>& names) {
  const std::string statement = "SHOW FULL TABLES WHERE TABLE_TYPE LIKE 'BASE TABLE'";
  Answer answer(request, noMemory);
  if (answer.run(statement) != 0) return -1;
  if (answer.rows() == 0) {
    request.log().Debug(request.tag, "[%s] query returned zero rows", statement.c_str());
    request.log().Debug(request.tag, "WARNING: The database contain NO BASE TABLES with given user privileges");
    return 0;
  }
  return answer.forEachRow(1, [&](Texts& row) { names.insert(std::move(row.front())); });
}

/// Those tables of the current database, `db`, that are base tables.
int readTableStatus(const Request& request, const std::string& db, const std::unordered_set<std::string>& baseTables,
                    ClMySqlDbInfo& record) {
  const auto& say = request.log();
  const char* const tag = request.tag;
  const std::string statement = "SHOW TABLE STATUS";
  Answer answer(request, noMemory);
  if (answer.send(statement) != 0) {
    if (answer.hasMemory()) {
      say.Debug(tag, "[%s] query execution failed for %s database:%s", statement.c_str(), db.c_str(), request.error());
    }
    return request.keepError();
  }
  if (answer.rows() == 0) {
    say.Debug(tag, "for [%s] database query '%s' returned zero rows", db.c_str(), statement.c_str());
    say.Debug(tag, "Previous SHOW FULL TABLES query returned non-zero set.");
    // Kept: the misspelling, by which people find the line in logs.
    say.Debug(tag, "Tableis of this database might got dropped meanwhile.");
    say.Debug(tag, "Considering the database as empty.");
    return 0;
  }
  record.name = db;
  return answer.forEachRow(2, [&](Texts& row) {
    std::string& table = row.front();
    if (baseTables.count(table) != 0) {
      record.tables.insert_or_assign(table, TblInfo{table, std::move(column(row, 1))});
    } else {
      say.DebugLvl(tag, 3, "[%s] is not a BASE TABLE", table.c_str());
    }
  });
}

/// One database. What earlier collections left in its record stays; a database without base tables gets none.
int collectDatabase(const Request& request, const std::string& db, ClMySqlMetaData& metadata, std::size_t& tables) {
  if (request.server.UseDatabase(db) != 0) {
    request.log().Debug(request.tag, "cannot connect to database %s to collect table list:%s", db.c_str(),
                        request.error());
    return request.keepError();
  }
  std::unordered_set<std::string> baseTables;
  if (listBaseTables(request, baseTables) != 0) return -1;
  if (baseTables.empty()) return 0;
  ClMySqlDbInfo record;
  if (readTableStatus(request, db, baseTables, record) != 0) return -1;
  if (record.name.empty()) return 0;
  tables = record.tables.size();
  ClMySqlDbInfo& known = metadata.databases[db];
  record.tables.merge(known.tables);
  known = std::move(record);
  return 0;
}

int collectFromDatabases(const Request& request, const metadata::TableWatcher& watcher, ClMySqlMetaData& metadata) {
  const auto& say = request.log();
  say.Debug(request.tag, "connection to information_schema database failed.");
  say.Debug(request.tag, "we will run 'show table status' on for each database to collect metadata");
  Texts databases;
  if (request.server.FetchDBList(databases) != 0) {
    say.Debug(request.tag, "could not get database list as part of metadata collection.");
    return request.keepError();
  }
  Watch watch(request, watcher);
  for (const std::string& db : databases) {
    if (db == "information_schema" || db == "performance_schema") {
      say.Debug(request.tag, "skipping [%s] from metadata", db.c_str());
      continue;
    }
    if (const int result = watch.beforeTable(db); result != 0) return result;
    std::size_t tables = 0;
    if (collectDatabase(request, db, metadata, tables) != 0) return -1;
    watch.done(tables);
  }
  return 0;
}

int collectVariables(const Request& request, std::map<std::string, std::string>& configuration) {
  Answer answer(request, "new QueryResult() failed. insufficient memory");
  if (answer.run("SHOW VARIABLES;") != 0) return -1;
  if (answer.rows() == 0) {
    request.log().Debug(request.tag, "SHOW VARIABLES query returned zero rows");
    return request.fail("the server lists no variables");
  }
  return answer.forEachRow(2, [&](Texts& row) {
    std::string& value = configuration[row.front()];
    value = std::move(column(row, 1));
    request.log().DebugLvl(request.tag, 6, "[%s]=[%s]", row.front().c_str(), value.c_str());
  });
}

void dump(const Request& request, const ClMySqlMetaData& metadata) {
  const auto& say = request.log();
  const char* const tag = request.tag;
  say.DebugLvl(tag, 3, "Metadata details:");
  for (const auto& [db, record] : metadata.databases) {
    say.DebugLvl(tag, 6, " database :%s", db.c_str());
    for (const auto& [name, table] : record.tables) {
      say.DebugLvl(tag, 6, "Table Name = %s Table Engine =%s", name.c_str(), table.engine.c_str());
    }
  }
  say.DebugLvl(tag, 3, "configuration parameters:");
  for (const auto& [name, value] : metadata.configuration) {
    if (value.empty()) {
      say.DebugLvl(tag, 3, "[%s]", name.c_str());
    } else {
      say.DebugLvl(tag, 3, "[%s=%s]", name.c_str(), value.c_str());
    }
  }
}

}  // namespace

int GetMySqlInfoExt::CollectMetadata(ClMySqlMetaData& metadata) {
  constexpr const char* tag = "GetMySqlInfoExt::CollectMetadata";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, "No valid connection to database found. m_Conn is NULL");
    const Request request{*this, *m_Conn, tag};
    const bool hasCatalogue = m_Conn->UseDatabase("information_schema") == 0;
    const int result = hasCatalogue ? collectFromCatalogue(request, metadata)
                                    : collectFromDatabases(request, m_tableWatcher, metadata);
    if (result != 0) return result;
    if (collectVariables(request, metadata.configuration) != 0) return -1;
    dump(request, metadata);
    return 0;
  });
}
