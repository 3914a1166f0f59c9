// A backup that holds the replica again and again, for the stress of its protocol.
// usage: orrery-replica-holder TEMPORARY-DIRECTORY SERVER ROUNDS SEED
// Each round: a pause, StopSlave, a pause, StartSlave. Now and then it kills itself, as a backup would die: while it
// holds the replica, or while it waits for the lock. It prints one line per round and one before it dies, each with one
// write. Exit status 3 when the replica was not held while it should be.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/platform/DZFile.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/testing/test_backend.h"

namespace {

namespace property = orrery::platform::property;
using orrery::platform::Clock;

void say(const std::string& line) {
  if (::write(STDOUT_FILENO, (line + "\n").c_str(), line.size() + 1) < 0) std::_Exit(4);
}

class Chance {
 public:
  explicit Chance(unsigned int seed) : engine_(seed) {}
  bool oneIn(int many) { return std::uniform_int_distribution<int>(1, many)(engine_) == 1; }
  void pause() {
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(engine_)));
  }
  void dieNowAndThen(int many, const std::string& where) {
    if (!oneIn(many)) return;
    say("dead " + where);
    ::raise(SIGKILL);
  }

 private:
  std::mt19937 engine_;
};

/// Real time; who waits for the lock may die of it.
class MortalClock final : public Clock {
 public:
  explicit MortalClock(Chance& chance) : chance_(chance) {}
  std::int64_t now() noexcept override {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
  void sleep(std::int64_t milliseconds) noexcept override {
    chance_.dieNowAndThen(200, where);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
  std::string where;

 private:
  Chance& chance_;
};

struct Files {
  std::string lock, counter;
};

/// Looked at under the lock, as those who look after the counter do: the more who want it, the harder the test.
bool isHeld(const std::string& server, const Files& files) {
  DZFile lock;
  if (!lock.open(files.lock, DZFile::modeReadWrite) || lock.lock(DZFile::lockExclusive, 120) <= 0) return false;
  std::string state;
  int count = 0;
  return std::ifstream(server) >> state && state == "stopped" && std::ifstream(files.counter) >> count && count > 0;
}

int holdAndRelease(const std::string& temporary, const std::string& server, int rounds, unsigned int seed) {
  Chance chance(seed);
  orrery::platform::testing::TestBackend backend;
  backend.setTemporary(temporary);
  backend.setSetting("MySQL", "sLibPath", ORRERY_STAND_IN_REPLICA);
  const auto clock = std::make_shared<MortalClock>(chance);
  auto services = std::make_shared<orrery::platform::Services>(*backend.services());
  services->clock = clock;
  const orrery::platform::ScopedServices installed(services);
  const auto id = backend.addInstance("replica", {{property::saUser, "agent"}, {property::socketFile, server}});
  const Files files{temporary + "/MySQLInstance_" + std::to_string(id) + "_LOCK",
                    temporary + "/Instance_" + std::to_string(id) + "_RunningBkpUps"};
  GetMySqlInfoExt session;
  if (session.Init(static_cast<long>(id)) != 0) return 2;
  // Those who die leave theirs; the folder belongs to the stress.
  session.DeleteConfFile();
  session.bInitialized = true;

  for (int i = 0; i < rounds; ++i) {
    chance.pause();
    clock->where = "waiting to stop";
    if (session.StopSlave() != 0) return 3;
    clock->where = "holding";
    if (!isHeld(server, files)) return 3;
    chance.dieNowAndThen(25, "holding");
    chance.pause();
    if (!isHeld(server, files)) return 3;
    if (session.StartSlave() != 0) return 3;
    session.bSlaveStoppedBySession = false;
    say("round");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  return holdAndRelease(argv[1], argv[2], std::atoi(argv[3]), static_cast<unsigned int>(std::atoi(argv[4])));
}
