// Binary logs over the connection of library mode.

#include <cstdlib>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "access/library_forward.h"
#include "binlog/catalogue.h"

namespace binlog = orrery::mysql::binlog;
using orrery::mysql::guarded;
using orrery::mysql::noConnection;
using orrery::mysql::noConnectionBare;

namespace {

constexpr const char* findLogsTag = "GetMySqlInfoExt::FindMasterLogs";
constexpr const char* stateIsUnknown = "checking bin log status failed";
constexpr const char* listFailed = "Failed to get Master log list";

/// The number behind a name's own last dot; a name without one has none.
void readNumber(const std::string& name, long* number) {
  const std::size_t dot = name.rfind('.');
  if (number != nullptr && dot != std::string::npos) *number = std::strtol(name.c_str() + dot + 1, nullptr, 10);
}

}  // namespace

int GetMySqlInfoExt::FindBinLogStatus() {
  constexpr const char* tag = "GetMySqlInfoExt::GetBinLogStatus";
  // A cloud database counts as one without binary logs, so that backups of them are never attempted there.
  if (IsCloudDBInstance(ulClientId)) {
    iSessionMode = binlog::off;
    return iSessionMode;
  }
  bool isOn = false;
  const int rc = forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.GetLogBinStatus(isOn); },
      [&](const char*, int) {
        evEvent.Debug(tag, "MySqlInterface::GetLogBinStatus failed...");
        iSessionMode = binlog::unknown;
      });
  if (rc != 0) return -1;
  iSessionMode = isOn ? binlog::on : binlog::off;
  evEvent.Debug(tag, binlog::stateIsRead, isOn ? "ON" : "OFF");
  return iSessionMode;
}

int GetMySqlInfoExt::GetLogBinPath(std::string& path) {
  constexpr const char* tag = "GetMySqlInfoExt::GetLogBinPath";
  return forward(
      tag, noConnectionBare, [&](MySqlInterface& server) { return server.GetLogBinPath(path); },
      [&](const char*, int) { evEvent.Debug(tag, "Failed to fetch GetLogBinPath"); });
}

/// Lists the logs of a server that writes some; `listed` tells whether it does.
int GetMySqlInfoExt::listMasterLogs(std::list<std::string>& logs, bool flushAfter, bool& listed) {
  return guarded(evEvent, findLogsTag, [&] {
    listed = false;
    if (m_Conn == nullptr) return withoutConnection(findLogsTag, noConnectionBare);
    if (FindBinLogStatus() < 0) {
      evEvent.Debug(findLogsTag, "%s", stateIsUnknown);
      return -1;
    }
    if (iSessionMode != binlog::on) return 0;
    if (m_Conn->FindMasterLogs(logs, flushAfter) != 0) {
      evEvent.Debug(findLogsTag, "%s", listFailed);
      return keepConnectionError();
    }
    listed = true;
    return 0;
  });
}

int GetMySqlInfoExt::FindMasterLogs(std::list<std::string>& logs, bool flushAfter) {
  bool listed = false;
  return listMasterLogs(logs, flushAfter, listed);
}

int GetMySqlInfoExt::FindMasterLogs(std::list<std::string>& logs, long* first, long* last) {
  bool listed = false;
  if (listMasterLogs(logs, false, listed) != 0) return -1;
  if (!listed) return 0;
  evEvent.Debug(findLogsTag, binlog::fillingNumbers);
  if (logs.empty()) {
    evEvent.Debug(findLogsTag, binlog::listIsEmpty);
    return 0;
  }
  readNumber(logs.front(), first);
  readNumber(logs.back(), last);
  return 0;
}

int GetMySqlInfoExt::LastLogName() {
  constexpr const char* tag = "GetMySqlInfoExt::LastLogName";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    if (FindBinLogStatus() < 0) {
      evEvent.Debug(tag, "%s", stateIsUnknown);
      return -1;
    }
    if (iSessionMode == binlog::on && m_Conn->GetLastLogName(strMasterLogFile) != 0) {
      evEvent.Debug(tag, "GetLastLogName failed...");
      return keepConnectionError();
    }
    // Kept: at the last dot; command mode cuts at the first one.
    strLogBaseName = strMasterLogFile.substr(0, strMasterLogFile.rfind('.'));
    evEvent.Debug(tag, "LogName: [ %s ] and LogPrefix: [ %s ]", strMasterLogFile.c_str(), strLogBaseName.c_str());
    return 0;
  });
}

int GetMySqlInfoExt::FetchMasterInfo(std::string& info) {
  constexpr const char* tag = "GetMySqlInfoExt::FetchMasterInfo";
  const int result = forward(
      tag, noConnection, [&](MySqlInterface& server) { return server.FetchMasterInfo(info); },
      [&](const char* text, int code) { evEvent.Debug(tag, "FetchMasterInfo failed [%d:%s]", code, text); });
  if (result == 0) evEvent.Debug(tag, "Fetch Master Info succeeded: %s ", info.c_str());
  return result;
}

int GetMySqlInfoExt::FlushLogs() {
  constexpr const char* tag = "GetMySqlInfoExt::FlushLogs";
  if (IsCloudDBInstance(ulClientId)) return 0;
  return forward(
      tag, noConnectionBare,
      [&](MySqlInterface& server) {
        evEvent.Debug(tag, "Trying to flush Logs...");
        return server.FlushLogs();
      },
      [&](const char*, int) { evEvent.Debug(tag, "Failed to Flush Logs"); });
}

int GetMySqlInfoExt::PurgeLogsTo(std::string file) {
  constexpr const char* tag = "GetMySqlInfoExt::PurgeLogsTo";
  return forward(
      tag, noConnectionBare,
      [&](MySqlInterface& server) {
        evEvent.Debug(tag, "Trying to Purge Logs...");
        return server.PurgeLogsTo(file);
      },
      [&](const char*, int) { evEvent.Debug(tag, "Failed to purge logs"); });
}
