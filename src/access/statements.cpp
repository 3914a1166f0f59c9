// The simple statements of command mode.

#include <algorithm>
#include <cstdio>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "access/dialect.h"
#include "access/identifiers.h"
#include "session/guarded.h"

using orrery::mysql::guarded;
using orrery::mysql::Quoting;
using orrery::mysql::reasonToRefuse;

namespace {

std::string inBackTicks(const std::string& name) {
  return "`" + name + "`";
}

}  // namespace

int GetMySqlInfo::runStatement(const char* tag, const std::string& statement) {
  std::string output;
  return runQuery(tag, statement, output);
}

int GetMySqlInfo::runQuery(const char* tag, const std::string& statement, std::string& output) {
  evEvent.Debug(tag, "running [%s]", statement.c_str());
  if (executeMySqlCommand(statement, output, false) == 0) return 0;
  evEvent.Debug(tag, "failed [%d:%s]", iErrorCode, strErrorString.c_str());
  return -1;
}

int GetMySqlInfo::CreateDB(std::string db) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::CreateDB";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::backTicks)) return refuse(tag, *reason);
    return runStatement(tag, "CREATE DATABASE IF NOT EXISTS " + inBackTicks(db));
  });
}

int GetMySqlInfo::DropDB(std::string db) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::DropDB";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::backTicks)) return refuse(tag, *reason);
    return runStatement(tag, "DROP DATABASE " + inBackTicks(db));
  });
}

int GetMySqlInfo::StartSlave() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::StartSlave";
  return guarded(evEvent, tag, [&] { return runStatement(tag, "START SLAVE"); });
}

int GetMySqlInfo::StopSlave() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::StopSlave";
  return guarded(evEvent, tag, [&] { return runStatement(tag, "STOP SLAVE"); });
}

int GetMySqlInfo::ResetMaster() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::ResetMaster";
  return guarded(evEvent, tag, [&] { return runStatement(tag, "RESET MASTER"); });
}

int GetMySqlInfo::UseDatabase(std::string db) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::UseDatabase";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("database name", db, Quoting::singleQuotes)) return refuse(tag, *reason);
    // Clients resolve escapes inside this request's quotes: they would check another database.
    if (db.find('\\') != std::string::npos) return refuse(tag, "the database name holds a backslash");
    // A client that does not know the quoted form is given the name between back-ticks.
    if (const auto reason = reasonToRefuse("database name", db, Quoting::backTicks)) return refuse(tag, *reason);
    return runStatement(tag, "use '" + db + "'");
  });
}

int GetMySqlInfo::setForeignKeyConstraint(int enabled) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::setForeignKeyConstraint";
  return guarded(evEvent, tag,
                 [&] { return runStatement(tag, "SET GLOBAL foreign_key_checks=" + std::to_string(enabled)); });
}

int GetMySqlInfo::createDatabaseUsingSchema(std::string schema) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::createDatabaseUsingSchema";
  return guarded(evEvent, tag, [&] { return runStatement(tag, schema); });
}

// Kept: the database is selected in a client of its own, which only proves that it can be reached; the statement then
// runs in a client without a default database. Callers pass names that the server resolves on its own.
int GetMySqlInfo::runTableStatement(const char* tag, const std::string& db, const std::string& statement) {
  if (UseDatabase(db) != 0) {
    evEvent.Debug(tag, " Failed to create the database [%s]", db.c_str());
    return -1;
  }
  return runStatement(tag, statement);
}

int GetMySqlInfo::createTableUsingSchema(std::string db, std::string schema) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::createTableUsingSchema";
  return guarded(evEvent, tag, [&] { return runTableStatement(tag, db, schema); });
}

int GetMySqlInfo::discardTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::discardTableSpace";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("table name", table, Quoting::backTicks)) return refuse(tag, *reason);
    return runTableStatement(tag, db, "ALTER TABLE " + inBackTicks(table) + " DISCARD TABLESPACE");
  });
}

int GetMySqlInfo::importTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::importTableSpace";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("table name", table, Quoting::backTicks)) return refuse(tag, *reason);
    return runTableStatement(tag, db, "ALTER TABLE " + inBackTicks(table) + " IMPORT TABLESPACE");
  });
}

int GetMySqlInfo::QueryVariable(std::string name, std::string& value) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::QueryVariable";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("variable name", name, Quoting::singleQuotes)) return refuse(tag, *reason);
    std::string output;
    if (runQuery(tag, "SHOW VARIABLES LIKE '" + name + "'", output) != 0) {
      evEvent.Debug(tag, "GetMySqlInfo::QueryVariable failed...");
      return -1;
    }
    // A variable that does not exist has no row: the whole, empty output is its value.
    const std::size_t tab = output.find('\t');
    value = tab == std::string::npos ? output : output.substr(tab + 1);
    value.erase(std::remove(value.begin(), value.end(), '\n'), value.end());
    evEvent.Debug(tag, " [%s] [%s] ", value.c_str(), output.c_str());
    return 0;
  });
}

int GetMySqlInfo::GetMaxAllowedPacket(long long& size) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::GetMaxAllowedPacket";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "start");
    std::string value;
    if (QueryVariable("max_allowed_packet", value) != 0) return -1;
    if (std::sscanf(value.c_str(), "%lld", &size) == 1) return 0;
    evEvent.Debug(tag, "max_allowed_packet is no number: [%s]", value.c_str());
    return -1;
  });
}

int GetMySqlInfo::getVersionFromServer(std::string& version) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::getVersionFromServer";
  return guarded(evEvent, tag, [&] {
    std::string output;
    if (runQuery(tag, "select @@version", output) != 0) {
      evEvent.Debug(tag, "GetMySqlInfo::getVersionFromServer() failed...");
      return -1;
    }
    version = output.substr(0, output.find('-'));
    return 0;
  });
}

int GetMySqlInfo::PingServer() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::PingServer";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "start");
    std::string output;
    if (executeMySqlCommand("mysqladmin ping", output, true) != 0) {
      evEvent.Debug(tag, "GetMySqlInfo::PingServer() failed...");
      return -1;
    }
    const std::string answer = output.substr(0, output.empty() ? 0 : output.size() - 1);
    if (orrery::mysql::Dialect::saysAlive(answer)) return 0;
    evEvent.Debug(tag, "the server is not reported alive: [%s] [%d:%s]", answer.c_str(), iErrorCode,
                  strErrorString.c_str());
    return -1;
  });
}
