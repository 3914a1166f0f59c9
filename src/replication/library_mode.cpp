// Library mode: the replication status, and the replica that parallel backups share.

#include <list>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "access/library_forward.h"
#include "replication/counter.h"
#include "replication/instance_lock.h"
#include "session/guarded.h"
#include "session/kept_error.h"

using orrery::mysql::CounterReading;
using orrery::mysql::CounterWriting;
using orrery::mysql::guarded;
using orrery::mysql::InstanceFiles;
using orrery::mysql::InstanceLock;

namespace {

constexpr const char* statusTag = "GetMySqlInfoExt::getReplicationStatus";
constexpr const char* stopTag = "GetMySqlInfoExt::StopSlave";
constexpr const char* startTag = "GetMySqlInfoExt::StartSlave";

constexpr int notAReplica = 100;
constexpr std::uint32_t replicationDidNotResume = 0x5700004e;
constexpr int mostStatusChecks = 3;
constexpr int betweenStatusChecks = 1000;  // milliseconds
constexpr int mostUndoAttempts = 5;
constexpr int betweenUndoAttempts = 2000;  // milliseconds

/// Errors of a connection that was lost behind the statement (CR_SERVER_GONE_ERROR, CR_SERVER_LOST and its later form).
bool mayHaveReachedTheServer(int error) {
  return error == 2006 || error == 2013 || error == 2055;
}

/// Lets the session know of its own lock while it asks for the replication status.
class [[nodiscard]] LockInUse {
 public:
  LockInUse(const InstanceLock*& held, const InstanceLock& lock) : held_(held) { held_ = &lock; }
  ~LockInUse() { held_ = nullptr; }
  LockInUse(const LockInUse&) = delete;
  LockInUse& operator=(const LockInUse&) = delete;

 private:
  const InstanceLock*& held_;
};

}  // namespace

int GetMySqlInfoExt::getReplicationStatus(bool& running, bool& partial, int& status, std::string& text) {
  running = false;  // whatever fails, nothing runs that was not seen to
  return guarded(evEvent, statusTag, [&] {
    if (!bInitialized) {
      evEvent.Debug(statusTag, "ERROR: object not initialized before calling this function.");
      return -1;
    }
    if (m_Conn == nullptr) return withoutConnection(statusTag, orrery::mysql::noConnection);
    std::list<std::string> values;
    const int rc = m_Conn->GetReplicationStatus(values);
    if (rc == notAReplica) {
      evEvent.Debug(statusTag, "This is not master slave setup.");
      return notAReplica;
    }
    if (rc != 0) {
      evEvent.Error(statusTag, "Getting Slave status failed...[%d]", rc);
      return keepConnectionError();
    }
    if (ProcessReplicationStatusOutput(values, running, partial, status, text) == 0) return 0;
    evEvent.Debug(statusTag, "failed...");
    return -1;
  });
}

int GetMySqlInfoExt::StopSlave() {
  return guarded(evEvent, stopTag, [&] {
    if (!bInitialized) {
      evEvent.Debug(stopTag, "object not initialized before calling this function.");
      return -1;
    }
    InstanceFiles files;
    if (findInstanceFiles(stopTag, files) != 0) return -1;
    evEvent.DebugLvl(stopTag, 3, "opening lock file");
    InstanceLock lock(evEvent, stopTag, files.lock);
    if (!lock.openOrTell()) return -1;
    const Step step = lock.acquire() ? holdReplica(lock, files.counter) : Step::failed;
    if (step == Step::brokenOff) return -1;
    evEvent.DebugLvl(stopTag, 3, "unlocking lockfile...");
    lock.release();
    return step == Step::done ? 0 : -1;
  });
}

/// Under the lock: stops replication for the first holder and counts one more.
GetMySqlInfoExt::Step GetMySqlInfoExt::holdReplica(InstanceLock& lock, const std::string& counter) {
  const CounterReading reading = orrery::mysql::readCounter(counter);
  if (reading.outcome == CounterReading::Outcome::notOpened) {
    orrery::mysql::tellNotOpened(evEvent, stopTag, counter, reading.error);
    return Step::failed;
  }
  if (reading.outcome == CounterReading::Outcome::notRead) {
    orrery::mysql::tellNotRead(evEvent, stopTag, reading.error);
    return Step::failed;
  }
  if (reading.bytes == 0) {
    evEvent.DebugLvl(stopTag, 3, "Reached EOF while reading backup count file");
  } else {
    evEvent.DebugLvl(stopTag, 7, "read [%s] string from file as RunningBkpUps", reading.text.c_str());
  }
  evEvent.DebugLvl(stopTag, 3, "bkpCount = %d", static_cast<int>(reading.count));
  if (reading.count >= orrery::mysql::mostBackups) {
    evEvent.Error(stopTag, "the counter holds %u backups and has no room for another", reading.count);
    return Step::failed;
  }
  const bool isFirst = reading.count == 0;
  if (isFirst) {
    if (stopReplication() != 0) return Step::failed;
    // Kept: the first one deletes the lock file; the next one makes it anew.
    lock.deleteFileAtEnd();
  }
  const bool heldBefore = bSlaveStoppedBySession;
  bSlaveStoppedBySession = true;
  evEvent.DebugLvl(stopTag, 3, "writing bkpCount = %d ", static_cast<int>(reading.count + 1));
  const CounterWriting writing = orrery::mysql::writeCounter(counter, reading.count + 1);
  if (writing.outcome == CounterWriting::Outcome::written) return Step::done;
  // One who was not counted must not be subtracted either; but who stopped replication may start it.
  if (!isFirst) bSlaveStoppedBySession = heldBefore;
  if (writing.outcome == CounterWriting::Outcome::notOpened) {
    orrery::mysql::tellNotOpened(evEvent, stopTag, counter, writing.error);
    return Step::failed;
  }
  orrery::mysql::tellNotWritten(evEvent, stopTag, writing);
  return Step::brokenOff;
}

int GetMySqlInfoExt::stopReplication() {
  if (m_Conn == nullptr) return withoutConnection(stopTag, orrery::mysql::noConnection);
  if (m_Conn->StopSlave() != 0) {
    evEvent.Error(stopTag, "Couldn't stop slave...");
    keepConnectionError();
    if (mayHaveReachedTheServer(iErrorCode)) undoStop();
    return -1;
  }
  evEvent.DebugLvl(stopTag, 3, "stop slave sql_thread return success.");
  return 0;
}

/// Under the lock, for a connection that was lost while the server stopped replication: it stands still then, and
/// nobody would be counted as holding it.
void GetMySqlInfoExt::undoStop() {
  const orrery::mysql::KeptError reason(*this);
  for (int attempt = 1; attempt <= mostUndoAttempts; ++attempt) {
    m_Conn->Disconnect();
    if (m_Conn->StartSlave() == 0) {
      evEvent.Debug(stopTag, "the connection was lost while replication was being stopped; it was started again");
      return reason.putBack();
    }
    orrery::platform::services().clock->sleep(betweenUndoAttempts);
  }
  evEvent.Error(stopTag, "the connection was lost while replication was being stopped, and it cannot be started again");
  evEvent.CriticalEvent(replicationDidNotResume);
  reason.putBack();
}

int GetMySqlInfoExt::StartSlave() {
  return guarded(evEvent, startTag, [&] {
    if (!bInitialized) {
      evEvent.Debug(startTag, "object not initialized before calling this function.");
      return -1;
    }
    if (!bSlaveStoppedBySession) {
      evEvent.Debug(startTag, "The Slave is not stopped by the backup operation. We won't attempt to start it.");
      return 0;
    }
    InstanceFiles files;
    if (findInstanceFiles(startTag, files) != 0) return -1;
    InstanceLock lock(evEvent, startTag, files.lock);
    if (!lock.open()) {
      // Kept: worded unlike the other operations.
      evEvent.Debug(startTag, "DZFile::open() returned error for opening [%s] file error %d", files.lock.c_str(),
                    lock.lastError());
      return -1;
    }
    if (!lock.acquire({.trying = "trying to lock..."})) return -1;
    const Step step = letReplicaGo(lock, files.counter);
    if (step == Step::brokenOff) return -1;
    // Kept: a counter that cannot be opened or read leaves replication and counter as they are, and is no failure of
    // the backup that ends here; the log tells.
    lock.release();
    return 0;
  });
}

/// Under the lock: starts replication for the last holder and counts one less.
GetMySqlInfoExt::Step GetMySqlInfoExt::letReplicaGo(const InstanceLock& lock, const std::string& counter) {
  const CounterReading reading = orrery::mysql::readCounter(counter);
  if (reading.outcome == CounterReading::Outcome::notOpened) {
    orrery::mysql::tellNotOpened(evEvent, startTag, counter, reading.error);
    SetErrorStatus(-1, "the counter " + counter + " cannot be opened: " + orrery::platform::errorText(reading.error));
    return Step::failed;
  }
  if (reading.outcome == CounterReading::Outcome::notRead) {
    orrery::mysql::tellNotRead(evEvent, startTag, reading.error);
    SetErrorStatus(-1, "the counter " + counter + " cannot be read: " + orrery::platform::errorText(reading.error));
    return Step::failed;
  }
  evEvent.DebugLvl(startTag, 7, "DZFile::read() returned [%d]", static_cast<int>(reading.bytes));
  if (reading.bytes == 0) {
    evEvent.DebugLvl(startTag, 3, "Reached EOF while reading backup count");
  } else {
    evEvent.Debug(startTag, "[%s]", reading.text.c_str());
  }
  evEvent.DebugLvl(startTag, 3, " present parallel backup count [%u]", reading.count);
  const unsigned int left = reading.count > 0 ? reading.count - 1 : 0;
  if (left == 0) {
    if (startReplication(startTag) != 0) return Step::brokenOff;
    watchReplicationResume(startTag, lock);
    bSlaveStoppedBySession = false;
  }
  // Kept: while others hold the replica the flag stays, so a second call of this session would count down once more.
  evEvent.DebugLvl(startTag, 3, "writing [%d] to backup count file", static_cast<int>(left));
  const CounterWriting writing = orrery::mysql::writeCounter(counter, left);
  if (writing.outcome == CounterWriting::Outcome::written) return Step::done;
  SetErrorStatus(-1, "the counter " + counter + " cannot be written: " + orrery::platform::errorText(writing.error));
  if (writing.outcome == CounterWriting::Outcome::notOpened) {
    orrery::mysql::tellNotOpened(evEvent, startTag, counter, writing.error);
    return Step::failed;
  }
  orrery::mysql::tellNotWritten(evEvent, startTag, writing);
  return Step::brokenOff;
}

int GetMySqlInfoExt::startReplication(const char* tag) {
  if (m_Conn != nullptr && m_Conn->StartSlave() == 0) {
    evEvent.Debug(tag, "slave start command issued.");
    return 0;
  }
  evEvent.Error(tag, "Couldn't start slave");
  evEvent.CriticalEvent(replicationDidNotResume);
  return m_Conn == nullptr ? withoutConnection(tag, orrery::mysql::noConnection) : keepConnectionError();
}

void GetMySqlInfoExt::watchReplicationResume(const char* tag, const InstanceLock& lock) {
  const LockInUse inUse(heldLock_, lock);
  for (int attempt = 0; attempt < mostStatusChecks; ++attempt) {
    evEvent.Debug(tag, "status check attempt %d", attempt);
    bool running = false;
    bool partial = false;
    int status = 0;
    std::string text;
    if (getReplicationStatus(running, partial, status, text) != 0) {
      evEvent.DebugLvl(tag, 4, "WARN: failed while checking the status of slave ...");
    } else if (running) {
      evEvent.DebugLvl(tag, 4, "slave server is online now.");
      return;
    }
    orrery::platform::services().clock->sleep(betweenStatusChecks);
  }
  evEvent.Debug(tag, "slave has not resumed replication within wait time.");
  evEvent.CriticalEvent(replicationDidNotResume);
}
