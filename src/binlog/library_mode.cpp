// Binary logs over the connection of library mode.

#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "access/library_forward.h"

using orrery::mysql::guarded;
using orrery::mysql::noConnectionBare;

int GetMySqlInfoExt::GetLogBinPath(std::string& path) {
  constexpr const char* tag = "GetMySqlInfoExt::GetLogBinPath";
  return forward(
      tag, noConnectionBare, [&](MySqlInterface& server) { return server.GetLogBinPath(path); },
      [&](const char*, int) { evEvent.Debug(tag, "Failed to fetch GetLogBinPath"); });
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
