// Requests made of one statement each.

#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/FXString.h"

#include "access/identifiers.h"
#include "client/log_target.h"
#include "client/rows.h"
#include "databases/lists.h"
#include "replication/status.h"
#include "session/guarded.h"

namespace databases = orrery::mysql::databases;
using orrery::mysql::Carrier;
using orrery::mysql::guarded;
using orrery::mysql::Quoting;
using orrery::mysql::readReplicationStatus;
using orrery::mysql::Rows;
using orrery::mysql::saysLess;

namespace {

using Texts = std::list<std::string>;

std::optional<std::string> reasonToRefuse(const char* what, const std::string& name, Quoting quoting) {
  return orrery::mysql::reasonToRefuse(what, name, quoting, Carrier::connection);
}

/// A number of the client library's own (errmsg.h): there is no connection. Other numbers come from a server that is.
bool isClientError(int number) {
  return number >= 2000 && number < 3000;
}

std::string inBackTicks(const std::string& name) {
  return "`" + name + "`";
}

}  // namespace

int MySqlInterface::refuse(const char* tag, const std::string& reason) {
  EvEvent().Error(tag, "refused, nothing was sent: %s", reason.c_str());
  return fail(-1, reason);
}

int MySqlInterface::firstRow(const std::string& statement, std::size_t columns, Texts& row) {
  Rows rows(*this);
  if (runKnown(statement, rows.result()) != 0 || rows.next(row) != 0) return -1;
  if (!row.empty() && row.size() < columns) return fail(-1, "the server's row has fewer columns than expected");
  return 0;
}

int MySqlInterface::oneRow(const char* tag, const std::string& statement, std::size_t columns, Texts& row) {
  if (firstRow(statement, columns, row) != 0) return -1;
  if (!row.empty()) return 0;
  m_log->line("[ %s ] mysql_fetch_row() Failed: Expected One Row...", tag);
  return fail(-1, "the server returned no row for " + statement);
}

int MySqlInterface::firstColumn(const std::string& statement, Texts& values) {
  Rows rows(*this);
  if (runKnown(statement, rows.result()) != 0) return -1;
  Texts found;
  for (Texts row;;) {
    if (rows.next(row) != 0) return -1;
    if (row.empty()) break;
    found.splice(found.end(), row, row.begin());
  }
  values.splice(values.end(), found);
  return 0;
}

int MySqlInterface::QueryVariable(std::string name, std::string& value) {
  constexpr const char* tag = "MySqlInterface::QueryVariable";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("variable name", name, Quoting::singleQuotes)) return refuse(tag, *reason);
    Texts row;
    if (oneRow(tag, "SHOW VARIABLES LIKE '" + name + "'", 2, row) != 0) return -1;
    value = *std::next(row.begin());
    return 0;
  });
}

int MySqlInterface::GetLogBinStatus(bool& on) {
  return guarded(EvEvent(), "MySqlInterface::GetLogBinStatus", [&] {
    std::string value;
    if (QueryVariable("log_bin", value) != 0) return -1;
    on = value == "ON";
    return 0;
  });
}

int MySqlInterface::GetMaxAllowedPacket(long long& size) {
  return guarded(EvEvent(), "MySqlInterface::GetMaxAllowedPacket", [&] {
    std::string value;
    if (QueryVariable("max_allowed_packet", value) != 0) return -1;
    char* end = nullptr;
    const long long number = std::strtoll(value.c_str(), &end, 10);
    if (end == value.c_str()) return fail(-1, "max_allowed_packet is no number: " + value);
    size = number;
    return 0;
  });
}

int MySqlInterface::GetDataDir(std::string& path) {
  return guarded(EvEvent(), "MySqlInterface::GetDataDir", [&] { return QueryVariable("datadir", path); });
}

int MySqlInterface::GetLogBinPath(std::string& path) {
  return guarded(EvEvent(), "MySqlInterface::GetLogBinPath", [&] {
    std::string value;
    if (QueryVariable("log_bin_basename", value) != 0) return -1;
    path = FXPath::SplitParentPath(value);
    return 0;
  });
}

int MySqlInterface::FetchMasterInfo(std::string& info) {
  constexpr const char* tag = "MySqlInterface::FetchMasterInfo";
  return guarded(EvEvent(), tag, [&] {
    Texts row;
    if (oneRow(tag, "SHOW MASTER STATUS", 2, row) != 0) return -1;
    info = row.front() + ":" + *std::next(row.begin());
    return 0;
  });
}

int MySqlInterface::GetLastLogName(std::string& name) {
  constexpr const char* tag = "MySqlInterface::GetLastLogName";
  return guarded(EvEvent(), tag, [&] {
    Texts row;
    if (firstRow("SHOW MASTER STATUS", 1, row) != 0) return -1;
    if (row.empty()) {
      m_log->line("[ %s ] mysql_fetch_row() failed...", tag);
      return fail(-1, "the server names no current binary log: binary logging is off");
    }
    name = row.front();
    return 0;
  });
}

int MySqlInterface::FindMasterLogs(Texts& logs, bool flushAfter) {
  constexpr const char* tag = "MySqlInterface::FindMasterLogs";
  return guarded(EvEvent(), tag, [&] {
    if (firstColumn("SHOW MASTER LOGS", logs) != 0) {
      m_log->line("[ %s ] mysql_fetch_row() failed : Couldn't retrieve all rows", tag);
      return -1;
    }
    // Kept in this order: what is listed before the rotation is complete after it.
    return flushAfter ? FlushLogs() : 0;
  });
}

int MySqlInterface::FetchDBList(Texts& databases) {
  constexpr const char* tag = "MySqlInterface::FetchDBList";
  return guarded(EvEvent(), tag, [&] {
    if (firstColumn("SHOW DATABASES", databases) == 0) return 0;
    m_log->line("[ %s ] mysql_fetch_row() Failed: Couldn't retrieve all Rows...", tag);
    return -1;
  });
}

int MySqlInterface::CheckDBExistence(std::string db, bool& found) {
  constexpr const char* tag = "MySqlInterface::CheckDBExistence";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    Texts row;
    if (firstRow(databases::presenceOf(db), 1, row) != 0) return -1;
    found = !row.empty();
    if (found) {
      m_log->line("[ %s ] Found Database << %s >> On the Server", tag, db.c_str());
    } else {
      m_log->line("[ %s ] Database << %s >> Not found on the Server", tag, db.c_str());
    }
    return 0;
  });
}

int MySqlInterface::GetDBProperties(std::string db, unsigned long long& size, std::string& created) {
  constexpr const char* tag = "MySqlInterface::GetDBProperties";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    Texts row;
    if (firstRow(databases::tablesOf(db), 1, row) != 0) return -1;
    if (row.empty()) {
      size = 0;
      created = "0";
      return 0;
    }
    if (oneRow(tag, databases::sizeOf(db), 2, row) != 0) return -1;
    size = std::strtoull(row.front().c_str(), nullptr, 10);  // NULL, for views alone, counts as 0
    created = *std::next(row.begin());
    return 0;
  });
}

int MySqlInterface::isUsesInnoDBEngine(std::string db, bool& innoDbOnly) {
  constexpr const char* tag = "MySqlInterface::isUsesInnoDBEngine";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::escaped)) return refuse(tag, *reason);
    Texts row;
    if (firstRow(databases::enginesOf(db) + " AND `TABLE_TYPE`!='VIEW' AND `ENGINE` NOT IN ('InnoDB','MEMORY') LIMIT 1",
                 1, row) != 0) {
      return -1;
    }
    innoDbOnly = row.empty();
    if (innoDbOnly) {
      m_log->line(" Database [ %s ] has InnoDB tables.", db.c_str());
    } else {
      m_log->line(" Database [ %s ] has non-InnoDB tables as well.", db.c_str());
    }
    return 0;
  });
}

int MySqlInterface::GetReplicationStatus(Texts& values) {
  constexpr int notAReplica = 100;
  return guarded(EvEvent(), "MySqlInterface::GetReplicationStatus", [&] {
    Rows rows(*this);
    if (runKnown("SHOW SLAVE STATUS", rows.result()) != 0) return -1;
    Texts worst;
    for (Texts row;;) {
      if (rows.next(row) != 0) return -1;
      if (row.empty()) break;
      // A server with several sources has a row for each, and replicates as well as the worst of them.
      if (worst.empty() || saysLess(readReplicationStatus(row), readReplicationStatus(worst))) worst.swap(row);
    }
    if (worst.empty()) return notAReplica;
    values.splice(values.end(), worst);
    return 0;
  });
}

int MySqlInterface::CreateDB(std::string db) {
  constexpr const char* tag = "MySqlInterface::CreateDB";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::backTicks)) return refuse(tag, *reason);
    return RunQuery("CREATE DATABASE IF NOT EXISTS " + inBackTicks(db), nullptr);
  });
}

int MySqlInterface::DropDB(std::string db) {
  constexpr const char* tag = "MySqlInterface::DropDB";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::backTicks)) return refuse(tag, *reason);
    if (RunQuery("DROP DATABASE " + inBackTicks(db), nullptr) != 0) return -1;
    if (m_database == db) m_database.clear();
    return 0;
  });
}

int MySqlInterface::StartSlave() {
  return guarded(EvEvent(), "MySqlInterface::StartSlave", [&] { return runKnown("START SLAVE", nullptr); });
}

int MySqlInterface::StopSlave() {
  return guarded(EvEvent(), "MySqlInterface::StopSlave", [&] { return runKnown("STOP SLAVE", nullptr); });
}

int MySqlInterface::ResetMaster() {
  return guarded(EvEvent(), "MySqlInterface::ResetMaster", [&] { return runKnown("RESET MASTER", nullptr); });
}

int MySqlInterface::FlushLogs() {
  return guarded(EvEvent(), "MySqlInterface::FlushLogs", [&] { return RunQuery("FLUSH LOGS", nullptr); });
}

int MySqlInterface::PurgeLogsTo(std::string file) {
  constexpr const char* tag = "MySqlInterface::PurgeLogsTo";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("binary log's name", file, Quoting::singleQuotes)) {
      return refuse(tag, *reason);
    }
    return RunQuery("PURGE BINARY LOGS TO '" + file + "'", nullptr);
  });
}

// The lock goes with its connection, and libraries make a lost connection again in silence. A variable of the
// connection, set before the lock is taken, is there exactly as long as the connection is.
int MySqlInterface::QuiesceDB() {
  return guarded(EvEvent(), "MySqlInterface::QuiesceDB", [&] {
    m_readLockWasLost = false;
    m_holdsReadLock = false;
    if (RunQuery("SET @orrery_read_lock=1", nullptr) != 0) return -1;
    if (RunQuery("FLUSH TABLES WITH READ LOCK", nullptr) != 0) return -1;
    m_holdsReadLock = true;
    return 0;
  });
}

int MySqlInterface::UnQuiesceDB() {
  return guarded(EvEvent(), "MySqlInterface::UnQuiesceDB", [&] {
    m_readLockWasLost = false;
    if (m_holdsReadLock) {
      Texts row;
      if (firstRow("SELECT @orrery_read_lock", 1, row) == 0) {
        m_readLockWasLost = row.empty() || row.front() != "1";
      } else {
        m_readLockWasLost = isClientError(getLastError());
      }
      m_holdsReadLock = false;
    }
    return RunQuery("UNLOCK TABLES", nullptr);
  });
}

int MySqlInterface::FlushPrivileges() {
  return guarded(EvEvent(), "MySqlInterface::FlushPrivileges", [&] { return RunQuery("FLUSH PRIVILEGES", nullptr); });
}

int MySqlInterface::createDatabaseUsingSchema(std::string schema) {
  return RunQuery(std::move(schema), nullptr);
}

int MySqlInterface::runInDatabase(const char* tag, const std::string& db, const std::string& statement) {
  if (UseDatabase(db) != 0) {
    m_log->line("[%s] Failed to create the database", tag);
    return -1;
  }
  return RunQuery(statement, nullptr);
}

int MySqlInterface::createTableUsingSchema(std::string db, std::string schema) {
  constexpr const char* tag = "MySqlInterface::createTableUsingSchema";
  return guarded(EvEvent(), tag, [&] { return runInDatabase(tag, db, schema); });
}

int MySqlInterface::discardTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "MySqlInterface::discardTableSpace";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("table name", table, Quoting::backTicks)) return refuse(tag, *reason);
    return runInDatabase(tag, db, "ALTER TABLE " + inBackTicks(table) + " DISCARD TABLESPACE");
  });
}

int MySqlInterface::importTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "MySqlInterface::importTableSpace";
  return guarded(EvEvent(), tag, [&] {
    if (const auto reason = reasonToRefuse("table name", table, Quoting::backTicks)) return refuse(tag, *reason);
    return runInDatabase(tag, db, "ALTER TABLE " + inBackTicks(table) + " IMPORT TABLESPACE");
  });
}

std::string MySqlInterface::SpecialCharactersCheck(std::string text) {
  return orrery::mysql::escapeForLike(text);
}
