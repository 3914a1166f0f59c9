// Library mode: the simple requests.

#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/services.h"

#include "access/library_forward.h"
#include "access/version_text.h"

using orrery::mysql::guarded;
using orrery::mysql::noConnection;
using orrery::mysql::noConnectionBare;

namespace {

constexpr int noSuchDatabase = 1008;  // ER_DB_DROP_EXISTS in the servers' lists of error messages
constexpr int pauseBetweenDrops = 5000;
constexpr std::uint32_t readLockLost = 0x570000F0;

}  // namespace

int GetMySqlInfoExt::PingServer() {
  constexpr const char* tag = "GetMySqlInfoExt::PingServer";
  return forward(
      tag, noConnectionBare, [](MySqlInterface& server) { return server.PingServer(); },
      [&](const char* text, int code) { evEvent.Debug(tag, "PingServer failed. [%d:%s]", code, text); });
}

int GetMySqlInfoExt::QueryVariable(std::string name, std::string& value) {
  constexpr const char* tag = "GetMySqlInfoExt::QueryVariable";
  return forward(
      tag, noConnectionBare, [&](MySqlInterface& server) { return server.QueryVariable(name, value); },
      [&](const char* text, int code) { evEvent.Debug(tag, "cannot query variable [%d:%s]", code, text); });
}

int GetMySqlInfoExt::GetMaxAllowedPacket(long long& size) {
  constexpr const char* tag = "GetMySqlInfoExt::GetMaxAllowedPacket";
  return forward(
      tag, noConnectionBare, [&](MySqlInterface& server) { return server.GetMaxAllowedPacket(size); },
      [&](const char*, int) { evEvent.Debug(tag, "Failed to fetch MaxAllowedPacket"); });
}

int GetMySqlInfoExt::CreateDB(std::string db) {
  constexpr const char* tag = "GetMySqlInfoExt::CreateDB";
  const int result = forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.CreateDB(db); },
      [&](const char*, int) { evEvent.Debug(tag, "CreateDB failed : [ %s ]", db.c_str()); });
  if (result == 0) evEvent.Debug(tag, "CreateDB Succeeded : [ %s ]", db.c_str());
  return result;
}

int GetMySqlInfoExt::createDatabaseUsingSchema(std::string schema) {
  constexpr const char* tag = "GetMySqlInfoExt::createDatabaseUsingSchema";
  return forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.createDatabaseUsingSchema(schema); },
      [&](const char*, int) { evEvent.Debug(tag, "createDatabaseUsingSchema failed : [ %s ]", schema.c_str()); });
}

int GetMySqlInfoExt::createTableUsingSchema(std::string db, std::string schema) {
  constexpr const char* tag = "GetMySqlInfoExt::createTableUsingSchema";
  return forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.createTableUsingSchema(db, schema); },
      [&](const char*, int) { evEvent.Debug(tag, "createTableUsingSchema failed : [ %s ]", db.c_str()); });
}

int GetMySqlInfoExt::discardTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "GetMySqlInfoExt::discardTableSpace";
  return forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.discardTableSpace(db, table); },
      [&](const char*, int) { evEvent.Debug(tag, "discardTableSpace failed : [ %s.%s ]", db.c_str(), table.c_str()); });
}

int GetMySqlInfoExt::importTableSpace(std::string db, std::string table) {
  constexpr const char* tag = "GetMySqlInfoExt::importTableSpace";
  return forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.importTableSpace(db, table); },
      [&](const char*, int) { evEvent.Debug(tag, "importTableSpace failed : [ %s.%s ]", db.c_str(), table.c_str()); });
}

int GetMySqlInfoExt::QuiesceDB() {
  constexpr const char* tag = "GetMySqlInfoExt::QuiesceDB";
  const int result = forward(
      tag, noConnection,
      [&](MySqlInterface& server) {
        evEvent.Debug(tag, "Running command [FLUSH TABLES WITH READ LOCK]");
        return server.QuiesceDB();
      },
      [&](const char* text, int code) { evEvent.Debug(tag, "Failing to QuiesceDB[%d:%s]", code, text); });
  if (result == 0) evEvent.Debug(tag, "Running command [FLUSH TABLES WITH READ LOCK] successful.");
  return result;
}

int GetMySqlInfoExt::UnQuiesceDB() {
  constexpr const char* tag = "GetMySqlInfoExt::UnQuiesceDB";
  const int result = forward(
      tag, noConnection,
      [&](MySqlInterface& server) {
        evEvent.Debug(tag, "Running command [UNLOCK TABLES]");
        const int rc = server.UnQuiesceDB();
        if (server.readLockWasLost()) tellOfLostReadLock(tag);
        return rc;
      },
      [&](const char* text, int code) { evEvent.Debug(tag, "UnQuiesceDB failed. [%d:%s]", code, text); });
  if (result == 0) evEvent.Debug(tag, "Running command [UNLOCK TABLES] successful.");
  return result;
}

void GetMySqlInfoExt::tellOfLostReadLock(const char* tag) {
  evEvent.Error(
      tag,
      "the connection that held the read lock was lost: the server took writes since, and what was read under "
      "the lock may not belong together");
  evEvent << strSocketFile;
  evEvent.MajorEvent(readLockLost);
}

int GetMySqlInfoExt::FlushPrivileges() {
  constexpr const char* tag = "GetMySqlInfoExt::FlushPrivileges";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    // Kept: the session's last error stays as it was, here and in the two operations below.
    if (m_Conn->FlushPrivileges() != 0) {
      evEvent.Debug(tag, "Flush Privileges");
      return -1;
    }
    evEvent.Debug(tag, "Flush Privileges Succeeded");
    return 0;
  });
}

int GetMySqlInfoExt::setForeignKeyConstraint(int enabled) {
  constexpr const char* tag = "GetMySqlInfoExt::setForeignKeyConstraint";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    return m_Conn->RunQuery("SET foreign_key_checks=" + std::to_string(enabled), nullptr);
  });
}

int GetMySqlInfoExt::ResetMaster() {
  constexpr const char* tag = "GetMySqlInfoExt::ResetMaster";
  return guarded(evEvent, tag,
                 [&] { return m_Conn == nullptr ? withoutConnection(tag, noConnection) : m_Conn->ResetMaster(); });
}

int GetMySqlInfoExt::DropDB(std::string db) {
  constexpr const char* tag = "GetMySqlInfoExt::DropDB";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    long attempts = 0;
    if (m_platformInfo.getNumber("MySQL", "nRetryDropDB", attempts) && attempts != 0) {
      evEvent.Debug(tag, "MySQL/nRetryDropDB is set to %lu", static_cast<unsigned long>(attempts));
    }
    if (attempts < 1) attempts = 1;
    int error = 0;
    for (;;) {
      error = m_Conn->DropDB(db) == 0 ? 0 : m_Conn->getLastError();
      if (error == 0) break;
      evEvent.Debug(tag, "DropDB failed : [ %s ]", db.c_str());
      if (error == noSuchDatabase) {
        evEvent.Debug(tag, "Database [%s] does not exist. Ignoring the failure to drop db.", db.c_str());
        return 0;
      }
      // An error of the library's own, a refused name for one, will be the same the next time.
      if (--attempts == 0 || error == -1) break;
      orrery::platform::services().clock->sleep(pauseBetweenDrops);
    }
    if (error == 0) {
      evEvent.Debug(tag, "DropDB Succeeded : [ %s ]", db.c_str());
      return 0;
    }
    keepConnectionError();
    evEvent.Debug(tag, "DropDB of database [%s] failed. Error code [%d], error message [%s]", db.c_str(), iErrorCode,
                  strErrorString.c_str());
    return -1;
  });
}

int GetMySqlInfoExt::getVersionFromServer(std::string& version) {
  constexpr const char* tag = "GetMySqlInfoExt::GetVersionFromServer";
  return guarded(evEvent, tag, [&] {
    std::string text;
    if (IsCloudDBInstance(ulClientId) || strSocketFile.find(':') != std::string::npos) {
      if (QueryVariable("version", text) != 0) {
        evEvent.Debug(tag, "QueryVariable failed query 'version'");
        return -1;
      }
    } else {
      if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
      if (m_Conn->GetServerVersion(text) != 0) {
        evEvent.Debug(tag, "MySqlInterface::GetServerVersion Failed");
        return keepConnectionError();
      }
    }
    version = orrery::mysql::withoutSuffix(text);
    evEvent.Debug(tag, "Server version : %s", version.c_str());
    return 0;
  });
}

int GetMySqlInfoExt::runExeQuery(std::string query) {
  constexpr const char* tag = "GetMySqlInfoExt::runExeQuery";
  return guarded(evEvent, tag, [&] {
    evEvent.DebugLvl(tag, 5, "Executing query [%s]", query.c_str());
    // Kept: no test for a connection; callers have connected.
    if (m_Conn->RunQuery(query, nullptr) == 0) return 0;
    evEvent.Debug(tag, "[%s] query execution failed:%s", query.c_str(), m_Conn->getLastErrorStr().c_str());
    return keepConnectionError();
  });
}
