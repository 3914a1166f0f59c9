// The counter for those who look after it: backups that died stay counted.

#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "replication/counter.h"
#include "replication/instance_lock.h"
#include "session/guarded.h"

using orrery::mysql::CounterReading;
using orrery::mysql::CounterWriting;
using orrery::mysql::guarded;
using orrery::mysql::InstanceFiles;
using orrery::mysql::InstanceLock;

namespace {

/// The count, or -1 when it cannot be read, which is logged.
int countOrTell(const EvEvent& log, const char* tag, const std::string& counter, unsigned int& count) {
  const CounterReading reading = orrery::mysql::readCounter(counter);
  switch (reading.outcome) {
    case CounterReading::Outcome::read:
      count = reading.count;
      return 0;
    case CounterReading::Outcome::notOpened:
      orrery::mysql::tellNotOpened(log, tag, counter, reading.error);
      return -1;
    case CounterReading::Outcome::notRead:
      orrery::mysql::tellNotRead(log, tag, reading.error);
      return -1;
  }
  return -1;
}

}  // namespace

int GetMySqlInfo::ReadRunningBackups(unsigned int& count) {
  constexpr const char* tag = "GetMySqlInfo::ReadRunningBackups";
  return guarded(evEvent, tag, [&] {
    InstanceFiles files;
    if (findInstanceFiles(tag, files) != 0) return -1;
    InstanceLock lock(evEvent, tag, files.lock);
    if (!lock.openOrTell() || !lock.acquire()) return -1;
    const int rc = countOrTell(evEvent, tag, files.counter, count);
    lock.release();
    return rc;
  });
}

int GetMySqlInfoExt::ReleaseStaleBackups(unsigned int counted, unsigned int living) {
  constexpr const char* tag = "GetMySqlInfoExt::ReleaseStaleBackups";
  return guarded(evEvent, tag, [&] {
    InstanceFiles files;
    if (findInstanceFiles(tag, files) != 0) return -1;
    InstanceLock lock(evEvent, tag, files.lock);
    if (!lock.openOrTell() || !lock.acquire()) return -1;
    const int rc = releaseStale(tag, lock, files.counter, counted, living);
    lock.release();
    return rc;
  });
}

/// Under the lock.
int GetMySqlInfoExt::releaseStale(const char* tag, const InstanceLock& lock, const std::string& counter,
                                  unsigned int counted, unsigned int living) {
  constexpr int countedOtherwise = 1;
  unsigned int count = 0;
  if (countOrTell(evEvent, tag, counter, count) != 0) return -1;
  if (count != counted) {
    evEvent.Debug(tag, "the counter holds %u backups by now, not %u; nothing is changed", count, counted);
    return countedOtherwise;
  }
  if (living >= count) return 0;
  if (living == 0) {
    if (startReplication(tag) != 0) return -1;
    watchReplicationResume(tag, lock);
  }
  evEvent.Debug(tag, "lowering the counter of running backups from %u to %u", count, living);
  const CounterWriting writing = orrery::mysql::writeCounter(counter, living);
  if (writing.outcome == CounterWriting::Outcome::written) return 0;
  if (writing.outcome == CounterWriting::Outcome::notOpened) {
    orrery::mysql::tellNotOpened(evEvent, tag, counter, writing.error);
  } else {
    orrery::mysql::tellNotWritten(evEvent, tag, writing);
  }
  return -1;
}
