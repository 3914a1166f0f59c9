// What becomes of counter and replica when the disk is full and when a holder is killed at any moment.

#include "replication/counter.h"

#include "replication/replica_fixture.h"

namespace {

using orrery::test::FullDisk;
using orrery::test::killedAtSystemCall;
using ReplicationCounter = orrery::test::ReplicaTest;

class OnAFullDisk : public ReplicationCounter {
 protected:
  // The played server keeps its state in a file, which a full disk would hit as well.
  std::unique_ptr<GetMySqlInfoExt> sessionInMemory() {
    const auto id = backend_.addInstance("in memory", {{orrery::platform::property::saUser, "agent"},
                                                       {orrery::platform::property::socketFile, "memory"}});
    files_ = orrery::mysql::InstanceFiles(backend_.temporary(), id);
    auto session = std::make_unique<GetMySqlInfoExt>();
    EXPECT_EQ(session->Init(static_cast<long>(id)), 0);
    return session;
  }
};

TEST_F(OnAFullDisk, FirstStopFailsAndCanBeUndone) {
  const auto one = sessionInMemory();
  {
    const FullDisk full;
    EXPECT_EQ(one->StopSlave(), -1);
  }
  EXPECT_TRUE(logged("DZFile::write() returned error 27"));
  EXPECT_FALSE(logged("unlocking lockfile...")) << "broken off";
  EXPECT_FALSE(exists(files_.lock)) << "the stop that succeeded deletes it all the same";
  EXPECT_EQ(counter(), "") << "nobody is counted";
  EXPECT_FALSE(statusOf(*one).running);
  EXPECT_TRUE(one->bSlaveStoppedBySession) << "replication was stopped, so it may be started";
  EXPECT_EQ(one->StartSlave(), 0);
  EXPECT_TRUE(statusOf(*one).running);
  EXPECT_EQ(counter(), "0");
}

TEST_F(OnAFullDisk, OthersHoldsAreNotLost) {
  const auto one = sessionInMemory();
  setCounter("2");
  {
    const FullDisk full;
    EXPECT_EQ(one->StopSlave(), -1);
    EXPECT_EQ(one->StartSlave(), 0) << "it holds nothing";
    EXPECT_EQ(counter(), "2");
    one->bSlaveStoppedBySession = true;
    EXPECT_EQ(one->StartSlave(), -1) << "one of the two cannot leave";
  }
  EXPECT_EQ(counter(), "2");
  EXPECT_EQ(orrery::mysql::writeCounter(files_.counter, 1).outcome, orrery::mysql::CounterWriting::Outcome::written);
  EXPECT_THAT(backend_.leftovers(), testing::Not(testing::Contains(testing::HasSubstr(".new"))));
}

TEST_F(OnAFullDisk, LastStartLeavesNoCount) {
  const auto one = sessionInMemory();
  ASSERT_EQ(one->StopSlave(), 0);
  {
    const FullDisk full;
    EXPECT_EQ(one->StartSlave(), -1);
  }
  EXPECT_TRUE(statusOf(*one).running);
  EXPECT_EQ(counter(), "none") << "a count of 1 would let the next backup read a running replica";
}

/// Kills an operation at its nth system call, for every n, from the same beginning.
template <class Begin, class Body, class Check>
void killEverywhere(Begin begin, Body body, Check check) {
  int n = 1;
  for (;; ++n) {
    begin();
    const bool killed = killedAtSystemCall(n, body);
    check("killed at system call " + std::to_string(n));
    if (!killed || testing::Test::HasFailure()) break;
  }
  EXPECT_GT(n, 10) << "the operation makes more calls than that";
}

TEST_F(ReplicationCounter, HolderKilledAnywhereLeavesOneOfTheTwoCounts) {
  const auto one = session();
  bool sawOld = false;
  bool sawNew = false;
  const auto stop = [&] { ::_exit(one->StopSlave() == 0 ? 0 : 1); };
  killEverywhere([&] { setCounter("9"); }, stop,
                 [&](const std::string& when) {
                   sawOld = sawOld || counter() == "9";
                   sawNew = sawNew || counter() == "10";
                   EXPECT_TRUE(counter() == "9" || counter() == "10") << when << ": " << counter();
                   orrery::mysql::InstanceLock next(one->evEvent, "next", files_.lock);
                   EXPECT_TRUE(next.open() && next.acquire()) << when << ": what it left is no obstacle";
                 });
  EXPECT_TRUE(sawOld && sawNew);
  one->bSlaveStoppedBySession = true;
  const auto start = [&] { ::_exit(one->StartSlave() == 0 ? 0 : 1); };
  killEverywhere([&] { setCounter("10"); }, start,
                 [&](const std::string& when) {
                   EXPECT_TRUE(counter() == "9" || counter() == "10") << when << ": " << counter();
                   EXPECT_EQ(server(), "running") << when << ": nobody stopped or started anything";
                 });
}

TEST_F(ReplicationCounter, FirstHolderKilledAnywhereIsCountedOnlyWhenReplicationStands) {
  const auto one = session();
  const auto begin = [&] {
    setServer("running");
    setCounter("0");
  };
  killEverywhere(
      begin, [&] { ::_exit(one->StopSlave() == 0 ? 0 : 1); },
      [&](const std::string& when) {
        EXPECT_TRUE(counter() == "0" || counter() == "1") << when << ": " << counter();
        EXPECT_TRUE(counter() == "0" || server() == "stopped") << when;
        EXPECT_TRUE(counter() == "1" || server() == "running" || exists(files_.lock))
            << when << ": others may pass only when the count is written";
        const auto next = session();
        EXPECT_EQ(next->StopSlave(), 0) << when;
        EXPECT_EQ(server(), "stopped") << when << ": the next holder gets what it asks for";
      });
}

}  // namespace
