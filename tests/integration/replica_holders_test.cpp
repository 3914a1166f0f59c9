// Eight processes hold and release one replica at random, and some die. Whoever looks under the lock finds that the
// counter is above 0 exactly while replication stands, and never above the number of those who may hold it.

#include <signal.h>

#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "orrery/platform/DZFile.h"
#include "orrery/platform/instance_properties.h"

#include "replication/counter.h"
#include "replication/instance_lock.h"
#include "support/backend_test.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::readFile;

constexpr int processes = 8;
constexpr int roundsEach = 50;

class ReplicaHolders : public orrery::test::BackendTest {
 protected:
  /// Holders one after the other until their rounds are done: a new one takes the place of one that died.
  void runSlot(int slot) {
    int done = 0;
    for (unsigned int life = 0; done < roundsEach; ++life) {
      const auto result =
          orrery::test::runProgram({ORRERY_REPLICA_HOLDER, folder_.path(), server_, std::to_string(roundsEach - done),
                                    std::to_string(1000 * (slot + 1) + static_cast<int>(life))},
                                   {.environment = {"TMPDIR=" + folder_.path()}});  // what the dead leave goes with it
      std::istringstream lines(result.output);
      int rounds = 0;
      bool isDead = false;
      for (std::string line; std::getline(lines, line);) {
        rounds += line == "round" ? 1 : 0;
        isDead = isDead || line.starts_with("dead");
        // One that died while it held the replica, or waited to let it go, stays counted.
        if (line == "dead holding") ++deadHolds_;
        if (line == "dead waiting to stop") ++deadWaiters_;
      }
      done += rounds;
      EXPECT_TRUE(isDead ? result.signal == SIGKILL : result.exitStatus == 0)
          << "exit status " << result.exitStatus << ", signal " << result.signal << ": " << result.errors;
      if (HasFailure()) return;
    }
  }

  /// What everybody may rely on, looked at under the lock.
  void look() {
    // The testing clock does not wait: one try, and whoever comes too late looks again later.
    DZFile probe;
    if (!probe.open(files_.lock, DZFile::modeReadWrite) || probe.lock(DZFile::lockExclusive, 0) <= 0) return;
    if (!probe.isNamedBy(files_.lock)) return;
    const auto reading = orrery::mysql::readCounter(files_.counter);
    ASSERT_EQ(reading.outcome, orrery::mysql::CounterReading::Outcome::read);
    EXPECT_EQ(reading.count > 0, readFile(server_) == "stopped") << "count " << reading.count;
    ++looks_;
  }

  const orrery::test::TemporaryDirectory folder_;
  const std::string server_ = folder_ / "server";
  orrery::mysql::InstanceFiles files_;
  std::atomic<int> deadHolds_{0};
  std::atomic<int> deadWaiters_{0};
  int looks_ = 0;
};

TEST_F(ReplicaHolders, CounterAndReplicaAgreeWithWhoLives) {
  orrery::test::writeFile(server_, "running", 0666);
  backend_.setTemporary(folder_.path());
  const auto id = backend_.addInstance("replica", {{property::saUser, "agent"}, {property::socketFile, server_}});
  files_ = orrery::mysql::InstanceFiles(folder_.path(), id);

  std::atomic<int> working{processes};
  std::vector<std::thread> slots;
  for (int slot = 0; slot < processes; ++slot) {
    slots.emplace_back([&, slot] {
      runSlot(slot);
      --working;
    });
  }
  while (working > 0) {
    look();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (std::thread& slot : slots) slot.join();
  ASSERT_FALSE(HasFailure());

  const auto dead = static_cast<unsigned int>(deadHolds_);
  EXPECT_EQ(readFile(files_.counter), std::to_string(dead)) << "every hold that was not released, and no other";
  EXPECT_EQ(readFile(server_), dead > 0 ? "stopped" : "running");
  EXPECT_GT(dead, 0U) << "nobody died, so nothing was proved of it";
  EXPECT_GT(looks_, 100);
  RecordProperty("died_holding", static_cast<int>(dead));
  RecordProperty("died_waiting", deadWaiters_);
}

}  // namespace
