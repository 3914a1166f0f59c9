// Tables of one database, and what creates them.

#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/CAscii85.h"

#include "access/identifiers.h"
#include "access/library_forward.h"
#include "metadata/answer.h"
#include "metadata/watch.h"

namespace metadata = orrery::mysql::metadata;
using metadata::Answer;
using metadata::column;
using metadata::noMemory;
using metadata::Request;
using metadata::Texts;
using orrery::mysql::guarded;
using orrery::mysql::noConnection;
using orrery::mysql::quoteIdentifier;

namespace {

constexpr const char* notInitialized = "object not initialized before calling this function.";

struct Table {
  std::string name;
  std::string engine;
};

/// Runs a statement of which a row is expected, and logs when there is none.
int runForRows(const Request& request, Answer& answer, const std::string& statement) {
  if (answer.run(statement) != 0) return -1;
  if (answer.rows() != 0) return 0;
  request.log().Debug(request.tag, "[%s] query returned no rows.", statement.c_str());
  return request.fail("the server returned no row for " + statement);
}

/// The one row of a statement.
int fetchRow(const Request& request, const std::string& statement, std::size_t columns, Texts& row) {
  Answer answer(request, noMemory);
  return runForRows(request, answer, statement) == 0 && answer.next(row, columns) == 0 ? 0 : -1;
}

int findDefaultEngine(const Request& request, std::string& engine) {
  Answer answer(request, noMemory);
  if (runForRows(request, answer, "show engines") != 0) return -1;
  for (Texts row;;) {
    if (answer.next(row, 2) != 0) return -1;
    if (row.empty()) return 0;
    if (column(row, 1) != "DEFAULT") continue;
    engine = std::move(row.front());
    request.log().DebugLvl(request.tag, 9, "Got the default engine [%s]", engine.c_str());
    return 0;
  }
}

/// Kept: "AND" stands right behind the name's quote, where every server reads it.
int listTables(const Request& request, const std::string& db, std::vector<Table>& tables) {
  const std::string statement = orrery::mysql::behind(
                                    "SELECT `TABLE_SCHEMA` ,`TABLE_NAME` ,`ENGINE` FROM "
                                    "`INFORMATION_SCHEMA`.`TABLES` WHERE `TABLE_SCHEMA`='",
                                    orrery::mysql::quoteText(db)) +
                                "AND `TABLE_TYPE`!='VIEW'";
  Answer answer(request, noMemory);
  if (answer.run(statement) != 0) return -1;
  if (answer.rows() == 0) {
    request.log().Debug(request.tag, "[%s] query returned no rows. No tables in the database", statement.c_str());
    return 0;
  }
  tables.reserve(answer.rows());
  return answer.forEachRow(3, [&](Texts& row) {
    tables.push_back({std::move(column(row, 1)), std::move(column(row, 2))});
    request.log().DebugLvl(request.tag, 9, "table = %s ; engine = %s", tables.back().name.c_str(),
                           tables.back().engine.c_str());
  });
}

/// Makes one table's record in `bytes`, whose memory is used again.
int fetchRecord(const Request& request, const std::string& quotedDb, const Table& table, std::string& bytes) {
  Texts row;
  if (fetchRow(request, "show create table " + quotedDb + "." + quoteIdentifier(table.name), 2, row) != 0) return -1;
  if (row.empty()) return request.fail("the server has no creation statement for a table");
  const std::string statement = std::move(column(row, 1));
  IdxMetadata::MySqlMetaData record;
  std::string encoded;
  const CKyError error = CAscii85::Encode(statement.data(), statement.size(), encoded);
  if (error.isError()) {
    // Kept: the table is recorded all the same, so that a restore knows of it.
    request.log().Debug(request.tag, "CAscii85::Encode failed. error=%s\n", error.text().c_str());
  } else {
    record.setstring(1, std::move(encoded));
  }
  record.setstring(4, table.name);
  record.setstring(5, table.engine);
  request.log().DebugLvl(request.tag, 9, "table = [%s] createcommand =[%s], engine = [%s]", table.name.c_str(),
                         statement.c_str(), table.engine.c_str());
  bytes.clear();
  record.serialize(bytes);
  return 0;
}

}  // namespace

int GetMySqlInfoExt::FetchTableList(std::string db, std::list<std::string>& tables) {
  constexpr const char* tag = "GetMySqlInfoExt::FetchTableList";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    const std::string use = "use " + quoteIdentifier(db) + ";";
    if (m_Conn->RunQuery(use, nullptr) != 0) {
      evEvent.Debug(tag, "[%s] failed:%s", use.c_str(), request.error());
      return request.keepError();
    }
    m_Conn->m_database = db;  // for a connection that has to be made again
    Answer answer(request, metadata::noMemoryBrief);
    if (answer.run("show full tables where Table_Type != 'VIEW';") != 0) return -1;
    if (answer.rows() == 0) {
      evEvent.Debug(tag, "no tables found.");
      return 0;
    }
    return answer.forEachRow(1, [&](Texts& row) { tables.splice(tables.end(), row, row.begin()); });
  });
}

int GetMySqlInfoExt::fillDatabaseInfo(std::string db, IdxMetadata::MySqlDbInfo* record) {
  constexpr const char* tag = "GetMySqlInfoExt::fillDatabaseInfo";
  return guarded(evEvent, tag, [&] {
    if (!bInitialized) return withoutConnection(tag, notInitialized);
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    if (record == nullptr) return request.fail("there is no record to fill");
    std::string engine;
    if (findDefaultEngine(request, engine) != 0) return -1;
    Texts row;
    if (fetchRow(request, "show create database " + quoteIdentifier(db), 2, row) != 0) return -1;
    if (row.empty()) return request.fail("the server has no creation statement for a database");
    record->setstring(3, std::move(engine));
    record->setstring(2, std::move(column(row, 1)));
    record->setstring(1, std::move(row.front()));
    evEvent.DebugLvl(tag, 5, "The database values are [%s] [%s] [%s]", record->getstring(1).c_str(),
                     record->getstring(2).c_str(), record->getstring(3).c_str());
    return 0;
  });
}

int GetMySqlInfoExt::collectTables(const std::string& db, ClMySqlDbInfo& tables) {
  constexpr const char* tag = "GetMySqlInfoExt::collectTables";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    std::vector<Table> listed;
    if (listTables({*this, *m_Conn, tag}, db, listed) != 0) return -1;
    for (Table& table : listed)
      tables.tables.insert_or_assign(table.name, TblInfo{table.name, std::move(table.engine)});
    return 0;
  });
}

int GetMySqlInfoExt::fillTableInfoForDataBase(std::string db, std::vector<std::string>* records) {
  constexpr const char* tag = "GetMySqlInfoExt::fillTableInfoForDataBase";
  return tableRecords(tag, db, [&](const std::string&, const std::string& bytes) {
    records->push_back(bytes);
    return true;
  });
}

int GetMySqlInfoExt::forEachTableRecord(
    const std::string& db, const std::function<bool(const std::string& table, const std::string& bytes)>& take) {
  return tableRecords("GetMySqlInfoExt::forEachTableRecord", db, take);
}

int GetMySqlInfoExt::tableRecords(const char* tag, const std::string& db,
                                  const std::function<bool(const std::string& table, const std::string& bytes)>& take) {
  return guarded(evEvent, tag, [&] {
    if (!bInitialized) return withoutConnection(tag, notInitialized);
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    std::vector<Table> tables;
    if (listTables(request, db, tables) != 0) return -1;
    const std::string quotedDb = quoteIdentifier(db);
    metadata::Watch watch(request, m_tableWatcher);
    std::string bytes;
    for (const Table& table : tables) {
      if (const int result = watch.beforeTable(db, table.name); result != 0) return result;
      if (fetchRecord(request, quotedDb, table, bytes) != 0) return -1;
      watch.done();
      if (!take(table.name, bytes)) return watch.stop(db);
    }
    return 0;
  });
}

void GetMySqlInfoExt::watchTables(
    std::function<bool(const std::string& db, const std::string& table, std::size_t tables)> watcher) {
  m_tableWatcher = std::move(watcher);
}
