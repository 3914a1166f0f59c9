#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/LibMySqlProcess.h"
#include "orrery/platform/testing/test_backend.h"

#include "support/children.h"
#include "support/compressed_clock.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

using LibMySqlProcess::MySqlChildProcess;

class BackgroundProcess : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(hasNoChildren()); }

  /// A shell's command line; the script holds no double quotes.
  static std::string shell(const std::string& script) { return "/bin/sh -c \"" + script + "\""; }
  static int start(MySqlChildProcess& child, const std::string& command) {
    return child.Initialize(command, "", "") != 0 ? -2 : child.DZ_CreateProcess(false, false, false, true);
  }
  /// Starts it and waits for it.
  static bool runsToItsEnd(MySqlChildProcess& child, const std::string& script) {
    return start(child, shell(script)) == 0 && child.BeginWait() == 0 && ends(child);
  }
  static bool ends(const MySqlChildProcess& child) {
    return waitUntil([&] { return child.isComplete(); }, std::chrono::seconds(60));
  }
  static std::string lastError(const MySqlChildProcess& child) {
    std::string line = "untouched";
    if (child.ReadLastErr(line, "ERROR:") == 0) return line;
    EXPECT_EQ(line, "untouched");
    return "none";
  }
  /// The number that a script wrote into a file.
  pid_t numberIn(const std::string& file) const {
    std::string text;
    EXPECT_TRUE(waitUntil([&] {
      text = std::filesystem::exists(file) ? readFile(file) : "";
      return !text.empty() && text.back() == '\n';
    }));
    return static_cast<pid_t>(std::stol(text));
  }
  /// Whether a process has ended, reaped by whoever collects orphans here or not.
  static bool isGone(pid_t pid) {
    const std::string file = "/proc/" + std::to_string(pid) + "/stat";
    try {
      const std::string stat = readFile(file);
      return stat.compare(stat.rfind(')') + 2, 1, "Z") == 0;
    } catch (const std::exception&) {
      return true;
    }
  }

  platform::testing::TestBackend backend_;
  platform::ScopedServices installed_{withCompressedClock(backend_.services())};
  TemporaryDirectory folder_;
  const std::string file_ = folder_ / "file";
};

TEST_F(BackgroundProcess, EndAndLastErrorLineAreKept) {
  const struct {
    const char* script;
    bool failed;
    const char* error;
  } cases[] = {
      {"exit 0", false, "none"},
      {"exit 3", true, "none"},
      {"kill -KILL $$", true, "none"},
      {"echo ERROR: one >&2; echo an ERROR: two >&2; exit 1", true, "ERROR: one"},
      {"printf 'ERROR: one\\nERROR: two\\r\\nrest\\n' >&2", false, "ERROR: two"},
      {"printf 'ERROR: one\\nERROR: open' >&2", false, "ERROR: open"},
      {"printf 'ERROR: one\\nERROR: two\\n\\nno ERROR: three\\n' >&2", false, "ERROR: two"},
      {"echo >&2; sleep 0.05; printf 'a\\nERROR: second portion\\n\\n' >&2", false, "ERROR: second portion"},
      {"echo ERROR: on standard output", false, "none"},
      {"printf ERR >&2; sleep 0.05; printf 'OR: in two parts\\n' >&2", false, "ERROR: in two parts"},
  };
  for (const auto& row : cases) {
    MySqlChildProcess child;
    ASSERT_TRUE(runsToItsEnd(child, row.script)) << row.script;
    EXPECT_EQ(child.isFailed(), row.failed) << row.script;
    EXPECT_EQ(lastError(child), row.error) << row.script;
  }
}

TEST_F(BackgroundProcess, FloodIsReadToItsEndAndKeptInPartWithTheLastErrorLine) {
  MySqlChildProcess child;
  ASSERT_TRUE(runsToItsEnd(child,
                           "echo first >&2; echo ERROR: lost >&2; yes it goes on and on | head -c 100000000 >&2; "
                           "echo >&2; echo WARNING: late >&2; exit 1"));
  EXPECT_EQ(lastError(child), "ERROR: lost");
  std::string line;
  EXPECT_EQ(child.ReadLastErr(line, "WARN"), 0);
  EXPECT_EQ(line, "WARNING: late");
  EXPECT_EQ(child.ReadLastErr(line, "firs"), 0);
  EXPECT_EQ(child.ReadLastErr(line, "second"), -1);
  backend_.log().clear();
  child.logBufferContent();
  EXPECT_TRUE(backend_.log().contains("stderr: first"));
  EXPECT_TRUE(backend_.log().contains("bytes are not kept"));
  EXPECT_LT(backend_.log().lines().size(), 40'000U);
}

TEST_F(BackgroundProcess, ChildThatEndsBeforeTheWaitBeginsLosesNothing) {
  MySqlChildProcess child;
  ASSERT_EQ(start(child, shell("echo ERROR: early >&2; exit 7")), 0);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(child.isComplete());
  ASSERT_EQ(child.BeginWait(), 0);
  ASSERT_TRUE(ends(child));
  EXPECT_TRUE(child.isFailed());
  EXPECT_EQ(lastError(child), "ERROR: early");
}

TEST_F(BackgroundProcess, GrandchildThatKeepsTheStreamsOpenHoldsNobodyUp) {
  MySqlChildProcess child;
  ASSERT_TRUE(runsToItsEnd(child, "sleep 600 & echo $! >" + file_ + "; echo ERROR: said >&2; exit 0"));
  EXPECT_FALSE(child.isFailed());
  EXPECT_EQ(lastError(child), "ERROR: said");
  const pid_t grandchild = numberIn(file_);
  EXPECT_FALSE(isGone(grandchild)) << "what a program leaves running by itself is its own";
  EXPECT_EQ(kill(grandchild, SIGKILL), 0);
}

TEST_F(BackgroundProcess, TerminateEndsTheWholeGroupAlsoWhenItIgnoresTheRequest) {
  const std::string deaf = "trap '' TERM; ";
  for (const std::string& head : {std::string(), deaf}) {
    std::filesystem::remove(file_);
    MySqlChildProcess child;
    ASSERT_EQ(start(child, shell(head + "sleep 600 & echo $! >" + file_ + "; while :; do sleep 0.05; done")), 0);
    ASSERT_EQ(child.BeginWait(), 0);
    const pid_t grandchild = numberIn(file_);
    EXPECT_EQ(child.Terminate(), 0);
    EXPECT_TRUE(child.isComplete());
    EXPECT_TRUE(child.isFailed());
    EXPECT_TRUE(waitUntil([&] { return isGone(grandchild); })) << head;
    EXPECT_EQ(backend_.log().contains("it is killed"), head == deaf);
    EXPECT_EQ(child.Terminate(), -1) << "its number may be another's now";
  }
}

TEST_F(BackgroundProcess, LastWordsOfAChildThatIsToEndAreRead) {
  MySqlChildProcess child;
  ASSERT_EQ(start(child, shell("trap 'echo ERROR: told to stop >&2; exit 0' TERM; echo $$ >" + file_ +
                               "; while :; do sleep 0.01; done")),
            0);
  ASSERT_EQ(child.BeginWait(), 0);
  numberIn(file_);
  EXPECT_EQ(child.Terminate(), 0);
  EXPECT_EQ(lastError(child), "ERROR: told to stop");
  EXPECT_FALSE(child.isFailed()) << "it ended as one that is done";
  child.markFailed();
  EXPECT_TRUE(child.isFailed());
}

TEST_F(BackgroundProcess, ObjectThatGoesLeavesNobodyBehind) {
  for (const bool waits : {false, true}) {
    std::filesystem::remove(file_);
    pid_t grandchild = 0;
    {
      MySqlChildProcess child;
      ASSERT_EQ(start(child, shell("trap '' TERM; sleep 600 & echo $! >" + file_ + "; wait")), 0);
      ASSERT_EQ(waits ? child.BeginWait() : 0, 0);
      grandchild = numberIn(file_);
    }
    EXPECT_TRUE(hasNoChildren());
    EXPECT_TRUE(waitUntil([&] { return isGone(grandchild); }));
  }
}

TEST_F(BackgroundProcess, TerminateAgainstAChildThatEndsByItselfSignalsNoStranger) {
  for (int i = 0; i < 30; ++i) {
    MySqlChildProcess child;
    ASSERT_EQ(start(child, "/bin/true"), 0);
    ASSERT_EQ(child.BeginWait(), 0);
    std::thread other([&] { child.Terminate(); });
    child.Terminate();
    other.join();
    EXPECT_TRUE(ends(child));
  }
}

TEST_F(BackgroundProcess, WhatCannotBeStartedIsToldAtOnce) {
  writeFile(file_, "no program");
  const std::string null("/bin/true\0x", 11);
  const struct {
    std::string command, user, group;
    int initialized;
  } cases[] = {
      {"", "", "", -1},
      {"   ", "", "", -1},
      {null, "", "", -1},
      {"/bin/true", "no_such_account", "", -1},
      {"/bin/true", "", "no_such_group", -1},
      {"true", "", "", 0},  // PATH is not searched
      {file_, "", "", 0},
      {folder_ / "missing", "", "", 0},
  };
  for (const auto& row : cases) {
    MySqlChildProcess child;
    EXPECT_EQ(child.Initialize(row.command, row.user, row.group), row.initialized) << row.command;
    EXPECT_EQ(child.DZ_CreateProcess(false, false, false, true), -1) << row.command;
    EXPECT_EQ(child.BeginWait() == 0 && !ends(child), false);
    EXPECT_EQ(child.Terminate(), -1) << row.command;
  }
  EXPECT_TRUE(backend_.log().contains("missing was not started, it cannot be executed: No such file or directory"));
}

/// Another action for SIGCHLD for the time of a scope.
class ChildSignal {
 public:
  ChildSignal(sighandler_t handler, int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    EXPECT_EQ(sigaction(SIGCHLD, &action, &before_), 0);
  }
  ~ChildSignal() { sigaction(SIGCHLD, &before_, nullptr); }
  ChildSignal(const ChildSignal&) = delete;
  ChildSignal& operator=(const ChildSignal&) = delete;

 private:
  struct sigaction before_ {};
};

TEST_F(BackgroundProcess, NothingIsStartedWhoseEndCouldNotBeTold) {
  for (const auto& [handler, flags] :
       {std::pair<sighandler_t, int>{SIG_IGN, 0}, std::pair<sighandler_t, int>{SIG_DFL, SA_NOCLDWAIT}}) {
    backend_.log().clear();
    const ChildSignal changed(handler, flags);
    MySqlChildProcess child;
    EXPECT_EQ(start(child, shell("echo >" + file_)), -1);
    EXPECT_TRUE(backend_.log().contains("this process ignores SIGCHLD"));
    EXPECT_FALSE(std::filesystem::exists(file_));
  }
}

TEST_F(BackgroundProcess, ChildThatAnotherReapedFailsAndItsNumberIsNotSignalled) {
  MySqlChildProcess child;
  ASSERT_EQ(start(child, shell("sleep 600 & echo $! >" + file_ + "; exit 0")), 0);
  const pid_t grandchild = numberIn(file_);  // of the group that has the number
  ASSERT_GT(waitpid(-1, nullptr, 0), 0);
  EXPECT_EQ(child.Terminate(), -1);
  ASSERT_EQ(child.BeginWait(), 0);
  ASSERT_TRUE(ends(child));
  EXPECT_TRUE(child.isFailed());
  EXPECT_FALSE(isGone(grandchild));
  EXPECT_EQ(kill(grandchild, SIGKILL), 0);
}

TEST_F(BackgroundProcess, ProgramEndsWhenItsStarterIsKilled) {
  for (const std::string user : {"", "nobody"}) {
    if (!user.empty() && geteuid() != 0) continue;  // only root can take another account
    std::filesystem::remove(file_);
    EXPECT_EQ(inChild([&] {
                MySqlChildProcess child;
                if (child.Initialize(shell("exec sleep 600"), user, "") != 0 || child.DZ_CreateProcess() != 0) return 1;
                int number = 0;
                for (const std::string& text : backend_.log().texts()) std::sscanf(text.c_str(), "process %d", &number);
                writeFile(file_, std::to_string(number) + "\n");
                return kill(getpid(), SIGKILL);
              }),
              -1);
    const pid_t program = numberIn(file_);
    ASSERT_GT(program, 1);
    EXPECT_TRUE(waitUntil([&] { return isGone(program); })) << user;
  }
}

TEST_F(BackgroundProcess, ProgramRunsAsAnotherAccountAndInheritsNoDescriptor) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take another account";
  const int open = dup(0);
  MySqlChildProcess child;
  ASSERT_EQ(child.Initialize(shell("id; id -G; ls -x /proc/self/fd; readlink /proc/self/fd/0"), "nobody", "daemon"), 0);
  ASSERT_EQ(child.DZ_CreateProcess(false, false, false, true), 0);
  ASSERT_EQ(child.BeginWait(), 0);
  ASSERT_TRUE(ends(child));
  close(open);
  EXPECT_FALSE(child.isFailed());
  backend_.log().clear();
  child.logBufferContent();
  EXPECT_EQ(backend_.log().entries().at(0).level, 8) << "of a success only who asks for it hears";
  const auto texts = backend_.log().texts();
  ASSERT_EQ(texts.size(), 4U);
  EXPECT_THAT(texts[0], ::testing::StartsWith("stdout: uid=65534(nobody) gid=1(daemon)"));
  EXPECT_EQ(texts[2].find('4'), std::string::npos) << texts[2];
  EXPECT_EQ(texts[3], "stdout: /dev/null");
}

TEST_F(BackgroundProcess, PreservedErrorsGoToTheJobsResults) {
  const platform::ScopedJob job(9);
  const std::filesystem::path results = backend_.directory() + "/results/DZ_JobResults/2/0/9";
  for (const bool preserve : {false, true}) {
    {
      MySqlChildProcess child;
      child.setPreserveError(preserve);
      ASSERT_TRUE(runsToItsEnd(child, "echo said >&2"));
    }
    ASSERT_EQ(std::filesystem::exists(results), preserve);
  }
  const auto file = *std::filesystem::directory_iterator(results);
  EXPECT_THAT(file.path().filename().string(), ::testing::StartsWith("MySqlErrors_"));
  EXPECT_EQ(readFile(file.path()), "said\n");
  EXPECT_EQ(file.status().permissions(), std::filesystem::perms(0600));
}

}  // namespace
}  // namespace orrery::test
