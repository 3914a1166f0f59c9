#include <sys/stat.h>

#include <functional>
#include <numeric>
#include <utility>

#include "orrery/platform/DZFile.h"

#include "replication/replica_fixture.h"

namespace {

using orrery::platform::Status;
using orrery::test::inChild;
using testing::ElementsAre;
using testing::IsEmpty;
using ReplicationProtocol = orrery::test::ReplicaTest;

constexpr std::uint32_t didNotResume = 0x5700004E;

TEST_F(ReplicationProtocol, FirstHolderStopsTheReplicaAndTheLastStartsIt) {
  keepStatements();
  const auto first = session();
  const auto second = session();
  EXPECT_EQ(first->StopSlave(), 0);
  EXPECT_EQ(server() + counter(), "stopped1");
  EXPECT_FALSE(exists(files_.lock)) << "the first holder deletes it";
  EXPECT_EQ(first->strReplicationFile, files_.lock);
  EXPECT_EQ(second->StopSlave(), 0);
  EXPECT_EQ(counter(), "2");
  EXPECT_TRUE(exists(files_.lock));
  EXPECT_TRUE(first->bSlaveStoppedBySession && second->bSlaveStoppedBySession);
  EXPECT_EQ(statements(), "STOP SLAVE\n") << "the second has nothing to stop";

  EXPECT_EQ(first->StartSlave(), 0);
  EXPECT_EQ(server() + counter(), "stopped1");
  EXPECT_EQ(second->StartSlave(), 0);
  EXPECT_EQ(server() + counter(), "running0");
  EXPECT_FALSE(second->bSlaveStoppedBySession);
  EXPECT_EQ(statements(), "STOP SLAVE\nSTART SLAVE\nSHOW SLAVE STATUS\n");
  EXPECT_THAT(backend_.sleeps(), IsEmpty());
  EXPECT_THAT(backend_.events(), IsEmpty());
}

TEST_F(ReplicationProtocol, FlagOfOneWhoLeavesBeforeTheLastStays) {
  const auto first = session();
  const auto second = session();
  ASSERT_EQ(first->StopSlave() + second->StopSlave(), 0);
  EXPECT_EQ(first->StartSlave(), 0);
  EXPECT_TRUE(first->bSlaveStoppedBySession);
  EXPECT_EQ(first->StartSlave(), 0) << "so it may count down once more";
  EXPECT_EQ(server() + counter(), "running0");
}

TEST_F(ReplicationProtocol, ReplicaHeldByOthersCountsAsOnline) {
  const auto holder = session();
  ASSERT_EQ(holder->StopSlave(), 0);
  const auto other = session();
  const Answer held = statusOf(*other);
  EXPECT_EQ(held.result, 0);
  EXPECT_FALSE(held.running);
  EXPECT_TRUE(held.partial) << "as it was";
  EXPECT_EQ(held.status, 99);
  EXPECT_EQ(counter(), "1") << "it only reads";
  ASSERT_EQ(holder->StartSlave(), 0);
  setServer("stopped");
  EXPECT_EQ(statusOf(*other).status, 7) << "nobody holds it";
  EXPECT_TRUE(logged("No other backups found running..."));
  setServer("running");
  const Answer running = statusOf(*other);
  EXPECT_TRUE(running.result == 0 && running.running && !running.partial && running.status == 7);
}

// What the counter file may hold, and what each operation makes of it.
TEST_F(ReplicationProtocol, CountersOfEveryKind) {
  const struct {
    const char* text;  // null: no file
    int status;        // of a stopped replica
    const char* afterStop;
    bool stops;
  } table[] = {
      {nullptr, 7, "1", true},       {"", 7, "1", true},     {"0", 7, "1", true},          {"1", 99, "2", false},
      {"12", 99, "13", false},       {"9", 99, "10", false}, {"text", 7, "1", true},       {"-3", 7, "1", true},
      {"3 backups", 99, "4", false}, {" 7", 99, "8", false}, {"12345", 99, "1235", false},
  };
  for (const auto& row : table) {
    const std::string what = row.text == nullptr ? "none" : row.text;
    ::unlink(files_.counter.c_str());
    if (row.text != nullptr) setCounter(row.text);
    setServer("stopped");
    const auto one = session();
    EXPECT_EQ(statusOf(*one).status, row.status) << what;
    setServer("running");
    EXPECT_EQ(one->StopSlave(), 0) << what;
    EXPECT_EQ(counter(), row.afterStop) << what;
    EXPECT_EQ(server(), row.stops ? "stopped" : "running") << what;
  }
}

TEST_F(ReplicationProtocol, CounterThatCannotBeUsedFailsOnlyTheStop) {
  const struct {
    const char* what;
    const char* text;
    bool isPipe;
  } table[] = {{"a folder", "opening [%] failed with error 21 by DZFile::open call", false},
               {"a pipe", "DZFile::read() returned error 11", true}};
  for (const auto& row : table) {
    std::filesystem::remove_all(files_.counter);
    ASSERT_EQ(row.isPipe ? ::mkfifo(files_.counter.c_str(), 0600) : ::mkdir(files_.counter.c_str(), 0700), 0);
    std::string text = row.text;
    if (text.find('%') != std::string::npos) text.replace(text.find('%'), 1, files_.counter);
    const auto one = session();

    setServer("stopped");
    backend_.log().clear();
    const Answer answer = statusOf(*one);
    EXPECT_TRUE(answer.result == 0 && answer.status == 7) << row.what;
    EXPECT_TRUE(logged(text) && logged("considers no other backups running")) << row.what;

    setServer("running");
    EXPECT_EQ(one->StopSlave(), -1) << row.what;
    EXPECT_EQ(server(), "running") << row.what;
    EXPECT_FALSE(one->bSlaveStoppedBySession);

    setServer("stopped");
    one->bSlaveStoppedBySession = true;
    EXPECT_EQ(one->StartSlave(), 0) << row.what << ": the end of a backup does not fail for it";
    EXPECT_EQ(server(), "stopped") << row.what;
    EXPECT_TRUE(one->bSlaveStoppedBySession);
  }
}

TEST_F(ReplicationProtocol, FullCounterTakesNoMore) {
  setCounter("9999");
  const auto one = session();
  EXPECT_EQ(one->StopSlave(), -1) << "a fifth digit would not be read";
  EXPECT_EQ(counter(), "9999");
  EXPECT_FALSE(one->bSlaveStoppedBySession);
}

// The lock file cannot be opened: something else has its name.
TEST_F(ReplicationProtocol, LockFileThatCannotBeOpenedFailsAllThree) {
  ASSERT_EQ(::mkdir(files_.lock.c_str(), 0700), 0);
  const auto one = session();
  EXPECT_EQ(one->StopSlave(), -1);
  EXPECT_TRUE(logged("DZFile::open() returned error for opening [" + files_.lock + "]file ;error 21"));
  one->bSlaveStoppedBySession = true;
  EXPECT_EQ(one->StartSlave(), -1);
  EXPECT_TRUE(logged("DZFile::open() returned error for opening [" + files_.lock + "] file error 21"));
  setServer("stopped");
  EXPECT_EQ(statusOf(*one).result, -1);
}

TEST_F(ReplicationProtocol, LockHeldByAnotherProcessIsWaitedForFiveTimesTwoMinutes) {
  const auto one = session();
  one->bSlaveStoppedBySession = true;
  setServer("stopped");
  const std::vector<std::function<int()>> operations = {
      [&] { return one->StopSlave(); }, [&] { return one->StartSlave(); }, [&] { return statusOf(*one).result; }};
  DZFile holder;
  ASSERT_TRUE(holder.open(files_.lock, DZFile::modeReadWrite) && holder.lock(DZFile::lockExclusive, 0) > 0);
  for (const auto& operation : operations) {
    EXPECT_EQ(inChild([&] {
                if (operation() != -1) return 1;
                const auto sleeps = backend_.sleeps();
                if (std::accumulate(sleeps.begin(), sleeps.end(), std::int64_t{0}) != 600000) return 2;
                const auto texts = backend_.log().texts();
                const auto again = "Some other process holds the lock, trying again...";
                if (std::count(texts.begin(), texts.end(), again) != 5) return 3;
                return logged(
                           "Another process holding the lock is not releasing it.. waited for 10 minutes and "
                           "exiting..")
                           ? 0
                           : 4;
              }),
              0);
  }
  EXPECT_EQ(server() + counter(), "stoppednone");
}

// One who waited on a file that has been deleted since must not go on beside one who locked its successor.
TEST_F(ReplicationProtocol, LockOfADeletedFileIsNotTakenForTheInstances) {
  EvEvent log;
  orrery::mysql::InstanceLock waiting(log, "waiting", files_.lock);
  ASSERT_TRUE(waiting.open());
  ASSERT_EQ(session()->StopSlave(), 0) << "deletes the file that is open";
  orrery::mysql::InstanceLock next(log, "next", files_.lock);
  ASSERT_TRUE(next.open() && next.acquire());
  EXPECT_FALSE(waiting.acquire()) << "it must find the new file and its holder";
  next.release();
  orrery::mysql::InstanceLock late(log, "late", files_.lock);
  ASSERT_TRUE(late.open() && late.acquire()) << "and a name that nobody holds is free";
}

TEST_F(ReplicationProtocol, ServerThatRefusesToStopLeavesNothingCounted) {
  setServerMode("refusing");
  const auto one = session();
  EXPECT_EQ(one->StopSlave(), -1);
  EXPECT_TRUE(logged("Couldn't stop slave..."));
  EXPECT_EQ(one->iErrorCode, 1227);
  EXPECT_EQ(counter(), "") << "made, and empty";
  EXPECT_FALSE(one->bSlaveStoppedBySession);
}

TEST_F(ReplicationProtocol, ServerThatRefusesToStartIsACriticalEventAndStaysCounted) {
  const auto one = session();
  ASSERT_EQ(one->StopSlave(), 0);
  setServerMode("refusing");
  EXPECT_EQ(one->StartSlave(), -1);
  EXPECT_TRUE(logged("Couldn't start slave"));
  EXPECT_EQ(counter(), "1");
  EXPECT_TRUE(one->bSlaveStoppedBySession) << "so that it can try again";
  ASSERT_EQ(backend_.events().size(), 1U);
  EXPECT_EQ(backend_.events().front().code, didNotResume);
  EXPECT_EQ(backend_.events().front().severity, orrery::platform::Severity::critical);
  setServerMode("");
  EXPECT_EQ(one->StartSlave(), 0);
  EXPECT_EQ(server() + counter(), "running0");
}

// While it waits for replication to resume, the session holds the lock that the status check would wait for.
TEST_F(ReplicationProtocol, ReplicaThatDoesNotResumeIsToldAndLetGo) {
  const auto one = session();
  ASSERT_EQ(one->StopSlave(), 0);
  setServerMode("stuck");
  EXPECT_EQ(one->StartSlave(), 0);
  EXPECT_THAT(backend_.sleeps(), ElementsAre(1000, 1000, 1000));
  EXPECT_TRUE(logged("status check attempt 0") && logged("status check attempt 2"));
  EXPECT_FALSE(logged("status check attempt 3"));
  EXPECT_TRUE(logged("slave has not resumed replication within wait time."));
  ASSERT_EQ(backend_.events().size(), 1U);
  EXPECT_EQ(backend_.events().front().code, didNotResume);
  EXPECT_EQ(counter(), "0");
  EXPECT_FALSE(one->bSlaveStoppedBySession);
  EXPECT_EQ(statusOf(*one).status, 7) << "afterwards it locks again";
}

TEST_F(ReplicationProtocol, SessionThatNeverStoppedTheReplicaTouchesNothing) {
  keepStatements();
  EXPECT_EQ(session()->StartSlave(), 0);
  EXPECT_TRUE(logged("The Slave is not stopped by the backup operation. We won't attempt to start it."));
  EXPECT_FALSE(exists(files_.lock) || exists(files_.counter));
  EXPECT_EQ(statements(), "");
}

TEST_F(ReplicationProtocol, WhatIsMissingIsRefused) {
  GetMySqlInfoExt fresh;
  fresh.bSlaveStoppedBySession = true;
  EXPECT_EQ(fresh.StopSlave(), -1);
  EXPECT_EQ(fresh.StartSlave(), -1);
  EXPECT_TRUE(statusOf(fresh).result == -1 && !statusOf(fresh).running);
  EXPECT_TRUE(logged("ERROR: object not initialized before calling this function."));
  const auto one = session();
  one->bSlaveStoppedBySession = true;
  MySqlInstance* const entity = std::exchange(one->pMySqlInstance, nullptr);
  EXPECT_EQ(one->StopSlave(), -1);
  EXPECT_EQ(one->StartSlave(), -1);
  EXPECT_TRUE(logged("mysqlInst is NULL."));
  one->pMySqlInstance = entity;
  backend_.failures().failAlways("Directories::temporary", Status::failure("no"));
  EXPECT_EQ(one->StopSlave(), -1);
  EXPECT_EQ(one->StartSlave(), -1);
  setServer("stopped");
  EXPECT_EQ(statusOf(*one).result, -1);
  EXPECT_TRUE(logged("DZPI_Base::getOrreryTempDirectory() returned NULL"));
}

TEST_F(ReplicationProtocol, LaterServersAreGivenTheTextsThatTheyKnow) {
  setServerMode("later");
  keepStatements();
  const auto one = session();
  EXPECT_TRUE(statusOf(*one).running);
  EXPECT_EQ(one->StopSlave() + one->StartSlave(), 0);
  EXPECT_EQ(statements(),
            "SHOW SLAVE STATUS\nSHOW REPLICA STATUS\nSTOP SLAVE\nSTOP REPLICA\nSTART SLAVE\nSTART REPLICA\n"
            "SHOW REPLICA STATUS\n");
}

TEST_F(ReplicationProtocol, ReplicaOneOfWhoseSourcesStandsDoesNotRun) {
  setServerMode("sources");
  EXPECT_FALSE(statusOf(*session()).running);
}

TEST_F(ReplicationProtocol, ListThatTellsNothingIsRefused) {
  const auto one = session();
  bool running = true;
  bool partial = true;
  int status = 7;
  std::string text;
  std::list<std::string> none;
  EXPECT_EQ(one->ProcessReplicationStatusOutput(none, running, partial, status, text), -1);
  EXPECT_FALSE(running);
  EXPECT_TRUE(logged("Status list is empty. Cannot get replication status."));
  running = true;
  std::list<std::string> shortList(9, "Yes");
  EXPECT_EQ(one->ProcessReplicationStatusOutput(shortList, running, partial, status, text), -1);
  EXPECT_FALSE(running);
  EXPECT_TRUE(partial && status == 7);
}

}  // namespace
