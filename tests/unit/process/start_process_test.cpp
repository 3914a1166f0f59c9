#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/platform/DzProcess.h"

#include "support/backend_test.h"
#include "support/children.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

class StartProcess : public BackendTest {
 protected:
  ~StartProcess() override { EXPECT_TRUE(hasNoChildren()); }
  /// Runs a shell's text and gives what it wrote to its file "$out".
  std::string outcomeOf(const std::string& script) {
    const std::string out = place_ / "out";
    std::string reason;
    const std::string text = "out=" + out + ".part; " + script + "; mv $out " + out;
    EXPECT_EQ(DzProcess::StartProcess({"/bin/sh", "-c", text}, reason), 1) << reason;
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(out); }));
    return readFile(out);
  }

  TemporaryDirectory place_;
};

TEST_F(StartProcess, ProgramHasASessionOfItsOwnAndInheritsNoDescriptorAndNoSignalSetting) {
  const int inherited = open("/dev/null", O_RDONLY);  // a descriptor of the host that is not close-on-exec
  ASSERT_GE(inherited, 3);
  const auto before = signal(SIGPIPE, SIG_IGN);
  sigset_t blocked;
  sigset_t mask;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &mask);
  // In a subshell, so that the shell itself stays as it was started. Field 6 of its status is the session.
  const std::string seen = outcomeOf(
      "(for stream in 0 1 2; do readlink /proc/$$/fd/$stream; done; grep -E '^Sig(Blk|Ign)' /proc/$$/status; "
      "ls /proc/$$/fd; [ $(cut -d ' ' -f 6 /proc/$$/stat) != " +
      std::to_string(getsid(0)) + " ] && echo own) >$out");
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  signal(SIGPIPE, before);
  close(inherited);
  EXPECT_EQ(seen,
            "/dev/null\n/dev/null\n/dev/null\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n0\n1\n2\nown\n");
}

TEST_F(StartProcess, WhatCannotBeExecutedIsToldAndLeavesNothing) {
  const std::size_t open = openDescriptors();
  const struct {
    std::vector<std::string> arguments;
    const char* reason;
  } table[] = {
      {{}, "there is no program to start"},
      {{"/no/such/program", "-x"},
       "/no/such/program was not started, it cannot be executed: No such file or directory"},
      {{"/dev/null"}, "/dev/null was not started, it cannot be executed: Permission denied"},
      {{"/bin/true", std::string(200000, 'x')},
       "/bin/true was not started, it cannot be executed: Argument list too long"},
  };
  for (const auto& row : table) {
    std::string reason;
    EXPECT_EQ(DzProcess::StartProcess(row.arguments, reason), 0);
    EXPECT_EQ(reason, row.reason);
  }
  EXPECT_EQ(openDescriptors(), open);
}

TEST_F(StartProcess, SeveralThreadsStartAtTheSameTime) {
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      std::string reason;
      for (int turn = 0; turn < 10; ++turn) started += DzProcess::StartProcess({"/bin/true"}, reason);
      for (int turn = 0; turn < 10; ++turn) started += DzProcess::StartProcess({"/no/such"}, reason);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(started, 40);
}

}  // namespace
}  // namespace orrery::test
