#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/testing/test_backend.h"

#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::platform::ScopedServices;
using orrery::platform::testing::TestBackend;
using orrery::test::readFile;
using orrery::test::TemporaryDirectory;
using orrery::test::waitUntil;

class StartProcess : public testing::Test {
 protected:
  ~StartProcess() override {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left to be reaped";
    EXPECT_EQ(errno, ECHILD);
  }
  static std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
  }
  /// Runs a shell's text and gives what it wrote to its file "$out".
  std::string outcomeOf(const std::string& script) {
    const std::string out = place_ / "out";
    std::string reason;
    const std::string text = "out=" + out + ".part; " + script + "; mv $out " + out;
    EXPECT_EQ(DzProcess::StartProcess({"/bin/sh", "-c", text}, reason), 1) << reason;
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(out); }));
    return readFile(out);
  }

  TestBackend backend_;
  ScopedServices installed_{backend_.services()};
  TemporaryDirectory place_;
};

TEST_F(StartProcess, ProgramIsNobodysChildHereAndHasASessionOfItsOwn) {
  // Fields 4 and 6 of its status: parent and session.
  const std::string fields = outcomeOf("cut -d ' ' -f 4,6 /proc/$$/stat >$out");
  const std::size_t blank = fields.find(' ');
  EXPECT_NE(std::stoi(fields.substr(0, blank)), getpid());
  EXPECT_NE(std::stoi(fields.substr(blank)), getsid(0));
}

TEST_F(StartProcess, ProgramInheritsNoDescriptorAndNoSignalSetting) {
  const int inherited = open("/dev/null", O_RDONLY);  // a descriptor of the host that is not close-on-exec
  ASSERT_GE(inherited, 3);
  const auto before = signal(SIGPIPE, SIG_IGN);
  sigset_t blocked;
  sigset_t mask;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &mask);
  // In a subshell, so that the shell itself stays as it was started.
  const std::string seen = outcomeOf(
      "(for stream in 0 1 2; do readlink /proc/$$/fd/$stream; done; grep -E '^Sig(Blk|Ign)' /proc/$$/status; "
      "ls /proc/$$/fd) >$out");
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  signal(SIGPIPE, before);
  close(inherited);
  EXPECT_EQ(seen, "/dev/null\n/dev/null\n/dev/null\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n0\n1\n2\n");
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

TEST_F(StartProcess, NoDescriptorLeftIsToldAtEveryStep) {
  std::vector<orrery::platform::OwnFd> filler;  // the limit counts numbers: no gap may be left below it
  while (filler.empty() || filler.back().get() < 40) filler.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  for (const rlim_t room : {0, 1, 2}) {
    const rlimit tight{static_cast<rlim_t>(filler.back().get()) + 1 + room, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    std::string reason;
    const int started = DzProcess::StartProcess({"/bin/true"}, reason);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(started, 0);
    EXPECT_EQ(reason, "/bin/true was not started, its streams cannot be made: Too many open files");
  }
}

TEST_F(StartProcess, WorksWithoutStandardStreams) {
  const std::string out = place_ / "out";
  const pid_t tester = fork();
  if (tester == 0) {
    for (const int fd : {0, 1, 2}) close(fd);
    std::string reason;
    const bool bad = DzProcess::StartProcess({"/no/such"}, reason) == 0 && reason.find("No such file") != reason.npos;
    const bool good = DzProcess::StartProcess({"/bin/sh", "-c", "readlink /proc/$$/fd/0 >" + out}, reason) == 1;
    _exit(bad && good ? 0 : 1);
  }
  int status = -1;
  waitpid(tester, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(out) && readFile(out) == "/dev/null\n"; }));
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
