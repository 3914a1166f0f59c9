// What holds over many runs: nothing is left behind, and neither a lock nor a child of another thread stops
// one.

#include <pwd.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/home.h"
#include "orrery/platform/testing/test_backend.h"

#include "support/children.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::platform::ScopedServices;
using orrery::platform::testing::TestBackend;
using orrery::test::openDescriptors;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int manyRuns = 500;
constexpr int runsUnderLoad = 100;
#else
constexpr int manyRuns = 10000;
constexpr int runsUnderLoad = 1000;
#endif

void runOnce(GetMySqlInfo* session) {
  MySqlChildProcess child;
  ASSERT_EQ(child.Initialize("/bin/true", session), 0);
  ASSERT_EQ(child.DZ_CreateProcess(true, false, false), 0);
  char byte[2];
  long length = sizeof(byte);
  ASSERT_EQ(child.ReadBuf(byte, &length), 0);
  ASSERT_EQ(child.Wait(0), 0);
}

long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return 0;
}

TEST(ManyRuns, LeaveNoZombieDescriptorOrMemoryBehind) {
  TestBackend backend;
  const ScopedServices installed(backend.services());
  backend.log().setThreshold(-1);
  GetMySqlInfo session;
  for (int i = 0; i < manyRuns / 10; ++i) runOnce(&session);
  const std::size_t descriptors = openDescriptors();
  const long resident = residentKilobytes();
  for (int i = 0; i < manyRuns; ++i) runOnce(&session);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_LT(residentKilobytes() - resident, 4096);
  EXPECT_TRUE(orrery::test::hasNoChildren());
}

// Until exec the account may stop its child; another thread's children must start all the same. The child here stops
// itself in a routine of its own.
TEST(BorrowedMemory, StoppedChildHoldsUpNobodyElse) {
  const TestBackend backend;
  const ScopedServices installed(backend.services());
  // Shared, for builds in which the child works on a copy.
  void* shared = mmap(nullptr, sizeof(std::atomic<pid_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& stopped = *new (shared) std::atomic<pid_t>(0);
  std::thread victim([&] {
    DzProcess child;
    char text[50];
    const auto stopItself = [](void* pid) {
      *static_cast<std::atomic<pid_t>*>(pid) = getpid();
      kill(getpid(), SIGSTOP);
      _exit(0);
    };
    child.Fork(stopItself, &stopped, text, sizeof(text), DzProcess::ChildMemory::borrowed);
    int status = 0;
    child.WaitForProcessToEnd(status, text, sizeof(text), -1);
  });
  const bool isStopped = orrery::test::waitUntil([&] { return stopped != 0; });
  DzProcess other;
  char text[50];
  int status = -1;
  EXPECT_EQ(other.Fork([](void*) { _exit(0); }, nullptr, text, sizeof(text), DzProcess::ChildMemory::borrowed), 1);
  EXPECT_EQ(other.WaitForProcessToEnd(status, text, sizeof(text), -1), 1);
  EXPECT_EQ(orrery::test::inChild([&] {
              DzProcess inCopy;
              return inCopy.Fork([](void*) { _exit(0); }, nullptr, text, sizeof(text),
                                 DzProcess::ChildMemory::borrowed);
            }),
            1)
      << "nor a copy of the process";
  EXPECT_TRUE(isStopped);
  if (stopped != 0) kill(stopped, SIGCONT);
  victim.join();
  munmap(shared, sizeof(std::atomic<pid_t>));
}

/// Threads that hold the locks of the allocator, the log and the name service most of the time.
class Load {
 public:
  Load() {
    threads_.emplace_back([this] {
      while (!ended_) {
        std::vector<std::string> texts;
        for (std::size_t i = 1; i < 200; ++i) texts.emplace_back(i * 37, 'x');
      }
    });
    threads_.emplace_back([this] {
      const EvEvent event;
      while (!ended_) event.Debug("Load", "a line of some length for the log: %d", 12345);
    });
    threads_.emplace_back([this] {
      while (!ended_) {
        passwd entry{};
        passwd* found = nullptr;
        char buffer[4096];
        getpwnam_r("mysql", &entry, buffer, sizeof(buffer), &found);
      }
    });
  }
  ~Load() {
    ended_ = true;
    for (auto& thread : threads_) thread.join();
  }

 private:
  std::atomic<bool> ended_{false};
  std::vector<std::thread> threads_;
};

class UnderLoad : public testing::TestWithParam<DzProcess::ChildMemory> {};

TEST_P(UnderLoad, ChildrenNeverHangAndLogWithoutALock) {
  const orrery::test::TemporaryDirectory place;
  ASSERT_TRUE(orrery::platform::createHome(place / "home", "c").ok());
  std::shared_ptr<const orrery::platform::Services> services;
  ASSERT_TRUE(orrery::platform::openHome(place / "home", services).ok());
  const ScopedServices installed(services);
  {
    const Load load;
    for (int i = 0; i < runsUnderLoad; ++i) {
      DzProcess process;
      char text[50];
      const auto routine = [](void*) {
        EvEvent().Error("Child", "a line from between fork and exec, number %d", 7);
        _exit(0);
      };
      ASSERT_EQ(process.Fork(routine, nullptr, text, sizeof(text), GetParam()), 1);
      int status = -1;
      ASSERT_EQ(process.WaitForProcessToEnd(status, text, sizeof(text), -1), 1);
      ASSERT_EQ(status, 0);
    }
  }
  std::size_t whole = 0;
  for (const auto& file : std::filesystem::directory_iterator(place / "home/log")) {
    std::ifstream log(file.path());
    for (std::string line; std::getline(log, line);) {
      whole += line.find("a line from between fork and exec, number 7") != std::string::npos ? 1 : 0;
    }
  }
  EXPECT_EQ(whole, static_cast<std::size_t>(runsUnderLoad));
}

INSTANTIATE_TEST_SUITE_P(Memory, UnderLoad,
                         testing::Values(DzProcess::ChildMemory::copied, DzProcess::ChildMemory::borrowed));

}  // namespace
