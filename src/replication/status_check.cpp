// What both modes make of a replica's status row, and who else may have stopped replication.

#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DZPlatformInfo.h"

#include "replication/counter.h"
#include "replication/instance_lock.h"
#include "replication/status.h"
#include "session/guarded.h"

using orrery::mysql::CounterReading;
using orrery::mysql::guarded;
using orrery::mysql::InstanceFiles;
using orrery::mysql::InstanceLock;
using orrery::mysql::ReplicationStatus;

namespace {

constexpr int heldByBackups = 99;

void tellFilters(const EvEvent& log, const char* tag, const ReplicationStatus& row) {
  const auto& filters = row.filters;
  log.Debug(tag, "This slave found to be not doing replication of entire server.");
  if (!filters[0].empty()) log.Debug(tag, "Replicate_Do_DB = [%s]", filters[0].c_str());
  if (!filters[1].empty()) log.Debug(tag, "Replicate_Ignore_DB = [%s]", filters[1].c_str());
  if (!filters[2].empty()) log.Debug(tag, "Replicate_Do_Table = [%s]", filters[2].c_str());
  if (!filters[3].empty()) log.Debug(tag, "Replicate_Ignore_Table = [%s] ", filters[3].c_str());
  if (!filters[4].empty()) log.Debug(tag, "Replicate_Wild_Do_table = [%s]", filters[4].c_str());
  if (!filters[5].empty()) log.Debug(tag, "Replicate_Wild_Ignore_Table = [%s]", filters[5].c_str());
}

void tellWhyItStands(const EvEvent& log, const char* tag, const ReplicationStatus& row) {
  log.Debug(tag, "Replication threads on slave are not in running state");
  log.Debug(tag, " Last_Errno = [%s]", row.lastErrno.c_str());
  // Kept: the bracket stays open; people search their logs for the text as it is.
  log.Debug(tag, "Last_Error = [%s", row.lastError.c_str());
  if (!row.ioState.empty()) log.Debug(tag, "Slave_IO_State = [%s]", row.ioState.c_str());
  if (!row.lastIoErrno.empty()) log.Debug(tag, "Last_IO_Errno = [%s]", row.lastIoErrno.c_str());
  if (!row.lastIoError.empty()) log.Debug(tag, "Last_IO_Error = [%s]", row.lastIoError.c_str());
  if (!row.lastSqlErrno.empty()) log.Debug(tag, "Last_SQL_Errno = [%s]", row.lastSqlErrno.c_str());
  if (!row.lastSqlError.empty()) log.Debug(tag, "Last_SQL_Error = [%s]", row.lastSqlError.c_str());
}

}  // namespace

int GetMySqlInfo::ProcessReplicationStatusOutput(std::list<std::string>& values, bool& running, bool& partial,
                                                 int& status, std::string&) {
  constexpr const char* tag = "GetMySqlInfo::ProcessReplicationStatusOutput";
  return guarded(evEvent, tag, [&] {
    running = false;
    if (values.empty()) {
      evEvent.Debug(tag, "Status list is empty. Cannot get replication status.");
      return -1;
    }
    const ReplicationStatus row = orrery::mysql::readReplicationStatus(values);
    if (!row.oddity.empty()) {
      evEvent.Debug(tag, "the status row is not as a server's row is: %s", row.oddity.c_str());
    }
    if (!row.isRow) return -1;
    keepReplicationFields(row);
    if (row.runs()) {
      evEvent.Debug(tag, "Great!... Replication is running fine.");
      running = true;
      partial = row.isFiltered();
      if (partial) tellFilters(evEvent, tag, row);
      return 0;
    }
    tellWhyItStands(evEvent, tag, row);
    return checkParallelBackups(tag, status);
  });
}

void GetMySqlInfo::keepReplicationFields(const ReplicationStatus& row) {
  replicaFetches_ = row.ioWorks;
  replicaApplies_ = row.sqlRuns;
  strSessionString2 = row.relayMasterLogFile;
  strSessionString3 = row.execMasterLogPos;
  strSessionString4 = row.filters[0];
  strSessionString5 = row.filters[1];
  strSessionString6 = row.filters[2];
  strSessionString7 = row.filters[3];
  strSessionString8 = row.filters[4];
  strSessionString9 = row.filters[5];
}

int GetMySqlInfo::findInstanceFiles(const char* tag, InstanceFiles& files) {
  DZPI_Base platform;
  const char* const directory = platform.getOrreryTempDirectory();
  if (directory == nullptr) {
    evEvent.Debug(tag, "DZPI_Base::getOrreryTempDirectory() returned NULL");
    return -1;
  }
  if (pMySqlInstance == nullptr) {
    evEvent.Debug(tag, "mysqlInst is NULL.");
    return -1;
  }
  files = InstanceFiles(directory, pMySqlInstance->getInstanceId());
  strReplicationFile = files.lock;
  return 0;
}

/// Replication stands; backups may have stopped it, this session's own among them.
int GetMySqlInfo::checkParallelBackups(const char* tag, int& status) {
  InstanceFiles files;
  if (findInstanceFiles(tag, files) != 0) return -1;
  evEvent.DebugLvl(tag, 10, "Using Lock_File [%s]", files.lock.c_str());
  if (heldLock_ != nullptr) {
    lookForParallelBackups(tag, files.counter, status);
    return 0;
  }
  InstanceLock lock(evEvent, tag, files.lock);
  if (!lock.openOrTell() || !lock.acquire({.obtained = "Obtained lock on file"})) return -1;
  lookForParallelBackups(tag, files.counter, status);
  lock.release();
  return 0;
}

void GetMySqlInfo::lookForParallelBackups(const char* tag, const std::string& counter, int& status) {
  const CounterReading reading = orrery::mysql::readCounter(counter);
  if (reading.outcome != CounterReading::Outcome::read) {
    // Kept: a counter that cannot be read stops no backup here. A replica that stands is then told as it is.
    if (reading.outcome == CounterReading::Outcome::notOpened) {
      orrery::mysql::tellNotOpened(evEvent, tag, counter, reading.error);
    } else {
      orrery::mysql::tellNotRead(evEvent, tag, reading.error);
    }
    evEvent.Debug(tag, "considers no other backups running");
    return;
  }
  evEvent.DebugLvl(tag, 7, "DZFile::read() returned [%d]", static_cast<int>(reading.bytes));
  if (reading.bytes == 0) evEvent.DebugLvl(tag, 6, "Reached EOF while reading backup count file");
  evEvent.DebugLvl(tag, 3, " present parallel backup count [%u]", reading.count);
  if (reading.count == 0) {
    evEvent.Debug(tag, "No other backups found running...");
    return;
  }
  evEvent.DebugLvl(
      tag, 3,
      "Though the proxy is OFFLINE, this will be considered ONLINE because\t\t\t\t\t\t\t\t\t\tthe replication "
      "is stopped by same/another proxy backup running parallely..");
  status = heldByBackups;
}
