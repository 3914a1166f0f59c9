#pragma once

/// What the ports of a TestBackend share.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orrery/platform/testing/test_backend.h"

namespace orrery::platform::testing {

struct Memory {
  Failures failures;
  LogCapture log;
  std::atomic<std::int64_t> now{TestBackend::firstTime};

  std::mutex mutex;  // of everything below

  std::optional<std::string> home, temporary, jobResults;
  std::map<std::string, std::map<std::string, std::string>> settings;
  std::vector<std::int64_t> sleeps;

  Id lastId = 0;  // ids are not shared between kinds, so that a test which confuses two kinds fails
  Id ownClient = 0;
  std::map<Id, Client> clients;
  std::map<Id, InstanceRecord> instances;
  std::map<Id, BackupSet> backupSets;
  std::map<Id, SubclientRecord> subclients;
  std::map<Id, std::map<std::pair<int, std::string>, ContentEntry>> content;  // by subclient

  struct Job {
    JobRecord record;
    std::vector<PendingCause> causes;
    std::map<std::uint32_t, std::string> options;
  };
  std::map<long long, Job> jobs;
  std::vector<Event> events;
  std::vector<Completion> completions;

  std::vector<std::pair<IndexKey, BrowsePath>> paths;
  struct Record {
    IndexKey key;
    std::string kind, name, bytes;
  };
  std::vector<Record> records;
  std::map<Id, ArchiveFile> archive;
  std::map<Id, ReplicaHolder> holders;
};

using SharedMemory = std::shared_ptr<Memory>;

std::shared_ptr<Inventory> makeInventory(SharedMemory memory);
std::shared_ptr<JobManager> makeJobManager(SharedMemory memory);
std::shared_ptr<EventSink> makeEventSink(SharedMemory memory);
std::shared_ptr<Index> makeIndex(SharedMemory memory);
std::shared_ptr<ArchiveManager> makeArchive(SharedMemory memory);
std::shared_ptr<LogSink> makeLog(SharedMemory memory);
std::shared_ptr<Settings> makeSettings(SharedMemory memory);
std::shared_ptr<Directories> makeDirectories(SharedMemory memory);
std::shared_ptr<PasswordVault> makeVault(SharedMemory memory);
std::shared_ptr<ProxyDirectory> makeProxies(SharedMemory memory);
std::shared_ptr<ReplicaHolders> makeHolders(SharedMemory memory);
std::shared_ptr<Clock> makeClock(SharedMemory memory);

/// Asks the failures first, then runs `body` under the lock. `body` returns a Status.
template <class Body>
Status attempt(Memory& memory, const char* call, const std::vector<std::string>& arguments, Body&& body) {
  if (Status status = memory.failures.check(call, arguments); !status.ok()) return status;
  const std::lock_guard lock(memory.mutex);
  return std::forward<Body>(body)();
}

}  // namespace orrery::platform::testing
