// Binary logs through the server's clients.

#include <cstdlib>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/FXString.h"

#include "access/identifiers.h"
#include "binlog/catalogue.h"
#include "session/guarded.h"

namespace binlog = orrery::mysql::binlog;
using orrery::mysql::guarded;
using orrery::mysql::Quoting;
using orrery::mysql::reasonToRefuse;

namespace {

constexpr const char* findLogsTag = " <<FALLBACK>> GetMySqlInfo::FindMasterLogs";
constexpr const char* stateIsUnknown = "GetMySqlInfo::FindBinLogStatus() failed";

/// The number behind a name's first `prefix` characters; false when the name has no more than those.
bool readNumber(const std::string& name, std::size_t prefix, long& number) {
  if (name.size() <= prefix) return false;
  number = std::strtol(name.c_str() + prefix, nullptr, 10);
  return true;
}

}  // namespace

int GetMySqlInfo::FindBinLogStatus() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::FindBinLogStatus";
  return guarded(evEvent, tag, [&]() -> int {
    std::string value;
    if (QueryVariable("log_bin", value) != 0) {
      iSessionMode = binlog::unknown;
      return -1;
    }
    iSessionMode = value.find("ON") == std::string::npos ? binlog::off : binlog::on;
    evEvent.Debug(tag, binlog::stateIsRead, value.c_str());
    return iSessionMode;
  });
}

int GetMySqlInfo::GetLogBinPath(std::string& path) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::GetLogBinPath";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "start");
    std::string value;
    if (QueryVariable("log_bin_basename", value) != 0) return -1;
    path = FXPath::SplitParentPath(value);
    return 0;
  });
}

int GetMySqlInfo::FindMasterLogs(std::list<std::string>& logs, bool flushAfter) {
  return guarded(evEvent, findLogsTag, [&] {
    if (FindBinLogStatus() < 0) {
      evEvent.Debug(findLogsTag, "%s", stateIsUnknown);
      return -1;
    }
    if (iSessionMode != binlog::on) return 0;
    std::string output;
    if (runQuery(findLogsTag, "SHOW MASTER LOGS", output) != 0) {
      evEvent.Debug(findLogsTag, "GetMySqlInfo::FindMasterLogs() failed...");
      return -1;
    }
    std::list<std::string> lines;
    MakeListFromBuffer(output, lines);
    for (std::string& line : lines) line.resize(binlog::firstColumnOf(line).size());
    logs.splice(logs.end(), lines);
    // Kept in this order: what is listed before the rotation is complete after it.
    return flushAfter ? FlushLogs() : 0;
  });
}

int GetMySqlInfo::FindMasterLogs(std::list<std::string>& logs, long* first, long* last) {
  return guarded(evEvent, findLogsTag, [&] {
    if (FindBinLogStatus() < 0) {
      evEvent.Debug(findLogsTag, "%s", stateIsUnknown);
      return -1;
    }
    if (iSessionMode != binlog::on) return 0;
    if (FindMasterLogs(logs, false) != 0) return -1;
    evEvent.Debug(findLogsTag, binlog::fillingNumbers);
    if (logs.empty()) {
      evEvent.Debug(findLogsTag, binlog::listIsEmpty);
      return 0;
    }
    const std::size_t dot = logs.front().rfind('.');
    if (dot == std::string::npos) return 0;
    // Kept: the place of the first name's dot serves for the last name too. All names of one server have one prefix.
    if (long number = 0; first != nullptr && readNumber(logs.front(), dot + 1, number)) *first = number;
    if (long number = 0; last != nullptr && readNumber(logs.back(), dot + 1, number)) *last = number;
    return 0;
  });
}

int GetMySqlInfo::LastLogName() {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::LastLogName";
  return guarded(evEvent, tag, [&] {
    std::string output;
    if (runQuery(tag, "SHOW MASTER STATUS", output) != 0) {
      evEvent.Debug(tag, "GetMySqlInfo::LastLogName() failed...");
      return -1;
    }
    strMasterLogFile = binlog::firstColumnOf(output);
    // Kept: the prefix ends at the first dot here and at the last one over a connection. Callers compare it with what
    // the same mode gave them earlier.
    strLogBaseName = strMasterLogFile.substr(0, strMasterLogFile.find('.'));
    evEvent.Debug(tag, "Last Log <%s>  Log Prefix <%s> ", strMasterLogFile.c_str(), strLogBaseName.c_str());
    return 0;
  });
}

int GetMySqlInfo::FlushLogs() {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::FlushLogs";
  return guarded(evEvent, tag, [&] { return IsCloudDBInstance(ulClientId) ? 0 : runStatement(tag, "FLUSH LOGS"); });
}

// Kept: no test for a cloud database, as there is for the rotation.
int GetMySqlInfo::PurgeLogsTo(std::string file) {
  constexpr const char* tag = " <<FALLBACK>> GetMySqlInfo::PurgeLogsTo";
  return guarded(evEvent, tag, [&] {
    if (const auto reason = reasonToRefuse("binary log's name", file, Quoting::singleQuotes)) {
      return refuse(tag, *reason);
    }
    return runStatement(tag, "PURGE BINARY LOGS TO '" + file + "'");
  });
}
