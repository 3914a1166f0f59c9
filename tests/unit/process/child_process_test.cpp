#include <fcntl.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/home.h"
#include "orrery/platform/posix.h"

#include "support/backend_test.h"
#include "support/children.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

using platform::ScopedServices;

/// A finished run.
struct Outcome {
  int waited = -1;
  int lastError = 0;
  std::string output;
  std::string errors;
};

class ChildProcess : public BackendTest {
 protected:
  std::string program(const std::string& script) {
    const std::string path = place_ / ("program" + std::to_string(++programs_));
    writeFile(path, "#!/bin/sh\n" + script + "\n", 0755);
    return path;
  }

  Outcome run(const std::string& command, GetMySqlInfo* session = nullptr, bool cleanEnvironment = false) {
    Outcome result;
    MySqlChildProcess child;
    EXPECT_EQ(child.Initialize(command, session), 0);
    EXPECT_EQ(child.DZ_CreateProcess(true, false, cleanEnvironment), 0);
    std::array<char, 4096> buffer{};
    for (long length = buffer.size(); child.ReadBuf(buffer.data(), &length) == 0 && length > 0;
         length = buffer.size()) {
      result.output.append(buffer.data(), static_cast<std::size_t>(length));
    }
    result.waited = child.Wait(30);
    result.lastError = child.GetLastErrNo();
    long length = buffer.size();
    if (child.ReadErrBuf(buffer.data(), &length) == 0) result.errors = buffer.data();
    return result;
  }

  static void start(MySqlChildProcess& child, const std::string& command) {
    ASSERT_EQ(child.Initialize(command, nullptr), 0);
    ASSERT_EQ(child.DZ_CreateProcess(true, false, false), 0);
  }

  /// What follows these words in a line of the log.
  std::string loggedBehind(const std::string& words) {
    for (const std::string& text : backend_.log().texts()) {
      if (text.rfind(words, 0) == 0) return text.substr(words.size());
    }
    return {};
  }

  TemporaryDirectory place_;

 private:
  int programs_ = 0;
};

// Kept: the argument of Wait has no meaning. Every run here waits "30" for a child that ends in its own time.
TEST_F(ChildProcess, GivesOutputErrorsAndExitCodeWhateverWaitIsGiven) {
  const Outcome good = run(program("echo \"$1|$2\"; echo oops >&2") + " a \"b  c\"");
  EXPECT_EQ(good.waited, 0);
  EXPECT_EQ(good.output, "a|b  c\n");
  EXPECT_EQ(good.errors, "oops\n");
  const Outcome bad = run(program("exit 7"));
  EXPECT_EQ(bad.waited, -1);
  EXPECT_EQ(bad.lastError, 7);
  EXPECT_TRUE(backend_.log().contains("Child exited with error: 7"));
}

TEST_F(ChildProcess, EndsAreToldApart) {
  const struct {
    const char* script;
    const char* line;
  } table[] = {
      {"exit 77", "Dup failed"},
      {"exit 79", "Exec failed"},
      {"exit 81", "Child exited with error: 81"},
      {"exit 83", "Env failed"},
      {"exit 3", "Exit status 0x300 (return 3 0x3)"},
      {"kill -TERM $$", "Child died after receiving signal 15"},
  };
  for (const auto& row : table) {
    backend_.log().clear();
    EXPECT_EQ(run(program(row.script)).waited, -1);
    EXPECT_TRUE(logged(row.line));
  }
}

TEST_F(ChildProcess, MissingProgramShowsInWaitAndInALineOfTheChild) {
  const std::string path = place_ / "lines";
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 3);
  backend_.log().forwardChildLines(file);
  const Outcome result = run("/no/such/program -x");
  backend_.log().forwardChildLines(-1);
  close(file);
  EXPECT_EQ(result.waited, -1);
  EXPECT_EQ(result.lastError, -1);
  EXPECT_TRUE(logged("Exec failed"));
  EXPECT_THAT(readFile(path), testing::HasSubstr("MySqlChildProcess::PostFork: Child exec failed, errno: 2\n"));
}

TEST_F(ChildProcess, SeesTheStandardStreamsOnly) {
  const int inherited = open("/dev/null", O_RDONLY);  // a descriptor of the host that is not close-on-exec
  ASSERT_GE(inherited, 3);
  const Outcome result = run("/bin/ls /proc/self/fd");
  close(inherited);
  EXPECT_EQ(result.output, "0\n1\n2\n3\n") << "3 is what ls itself opened to look";
}

TEST_F(ChildProcess, EnvironmentIsInheritedOrHoldsOneEntry) {
  setenv("ORRERY_TEST_MARK", "here", 1);
  EXPECT_THAT(run("/usr/bin/env").output, testing::HasSubstr("ORRERY_TEST_MARK=here\n"));
  EXPECT_EQ(run("/usr/bin/env", nullptr, true).output, "LD_LIBRARY_PATH=/lib64:/lib:/usr/lib:/usr/lib64\n");
}

TEST_F(ChildProcess, TakesInputAndSurvivesAChildThatDoesNot) {
  MySqlChildProcess child;
  start(child, "/bin/cat");
  std::string text(100000, 'x');
  std::string back;
  std::array<char, 4096> buffer{};
  for (std::size_t at = 0; at < text.size(); at += 10000) {
    ASSERT_EQ(child.WriteBuf(text.data() + at, 10000), 0);
    for (std::size_t before = back.size(); back.size() < before + 10000;) {
      long length = buffer.size();
      ASSERT_EQ(child.ReadBuf(buffer.data(), &length), 0);
      back.append(buffer.data(), static_cast<std::size_t>(length));
    }
  }
  EXPECT_EQ(back, text);
  EXPECT_EQ(child.Finalize(), 0);
  EXPECT_EQ(child.Wait(0), 0);

  MySqlChildProcess deaf;
  start(deaf, program("echo no >&2; exec <&-; exec >&-; exit 1"));
  long length = buffer.size();
  ASSERT_EQ(deaf.ReadBuf(buffer.data(), &length), 0);
  EXPECT_EQ(deaf.WriteBuf(text.data(), 10), -1) << "and SIGPIPE did not end this program";
  EXPECT_EQ(deaf.GetLastErrNo(), EPIPE);
  EXPECT_TRUE(logged("Error Stream: no\n"));
}

TEST_F(ChildProcess, SecondChildOfAnErrorFileDoesNotRecordIntoIt) {
  const std::string errFile = place_ / "errors";
  for (const char* word : {"first", "second"}) {
    MySqlChildProcess child;
    ASSERT_EQ(child.Initialize("/bin/true", nullptr), 0);
    std::string command = program(std::string("echo ") + word + " >&2");
    std::string user;
    int pw[2];
    int cw[2];
    ASSERT_EQ(pipe2(pw, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(cw, O_CLOEXEC), 0);
    MySqlChildParam param;
    child.SetPostForkParam(&param, command.data(), user.data(), pw, cw, false, errFile);
    DzProcess process;
    std::array<char, 100> text{};
    ASSERT_EQ(process.Fork(MySqlChildProcess::PostFork, &param, text.data(), text.size()), 1);
    int status = 0;
    EXPECT_EQ(process.WaitForProcessToEnd(status, text.data(), text.size(), -1), 1);
    for (int fd : {pw[0], pw[1], cw[0], cw[1]}) close(fd);
  }
  EXPECT_EQ(readFile(errFile), "first\n") << "kept: what the first child wrote stays as it is";
}

TEST_F(ChildProcess, ErrorFileIsNotReadThroughALink) {
  MySqlChildProcess child;
  const std::string secret = place_ / "secret";
  writeFile(secret, "hidden");
  ASSERT_EQ(child.Initialize("/bin/true", nullptr), 0);
  std::string errFile = loggedBehind("Error file [");
  errFile.pop_back();
  std::filesystem::create_symlink(secret, errFile);
  std::array<char, 100> buffer{};
  long length = buffer.size();
  EXPECT_EQ(child.ReadErrBuf(buffer.data(), &length), -1);
  EXPECT_STREQ(buffer.data(), "");
}

TEST_F(ChildProcess, FolderThatCannotBeMadeIsAFailure) {
  backend_.setJobResults("/dev/null");
  MySqlChildProcess child;
  EXPECT_EQ(child.Initialize("/bin/true", nullptr), -1);
  EXPECT_TRUE(backend_.log().contains("Unable to create log folder [/dev/null/DZ_JobResults/2/0/0], error=["));
}

// Kept: the texts of both failures name the same pipe.
TEST_F(ChildProcess, BothPipeFailuresNameTheSamePipeAndLeakNothing) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  // The limit counts numbers, not descriptors: from a gap-free start, each step leaves one more number.
  std::vector<platform::OwnFd> filler;
  while (filler.empty() || filler.back().get() < 40) filler.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const std::size_t open = openDescriptors();
  const char* const lines[] = {"pipe(m_filedesCW) call failed when creating m_phpipecw : errno=24",
                               "pipe(m_filedesPW) call failed when creating m_phpipecw : errno=24"};
  for (const rlim_t room : {0, 2}) {
    backend_.log().clear();
    MySqlChildProcess child;
    ASSERT_EQ(child.Initialize("/bin/true", nullptr), 0);
    const rlimit tight{static_cast<rlim_t>(filler.back().get()) + 1 + room, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    const int started = child.DZ_CreateProcess(true, false, false);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(started, -1);
    EXPECT_EQ(child.GetLastErrNo(), EMFILE);
    EXPECT_TRUE(logged(lines[room / 2]));
    EXPECT_EQ(openDescriptors(), open) << "not even before the object goes";
  }
}

TEST_F(ChildProcess, ErrorFileThatCannotBeMadeEndsTheChild) {
  MySqlChildProcess child;
  ASSERT_EQ(child.Initialize("/bin/true", nullptr), 0);
  std::filesystem::remove_all(backend_.directory() + "/results/DZ_JobResults");
  ASSERT_EQ(child.DZ_CreateProcess(true, false, false), 0);
  EXPECT_EQ(child.Wait(0), -1);
  EXPECT_TRUE(logged("Dup failed"));
}

TEST_F(ChildProcess, CallsInTheWrongOrderFailAndDoNoHarm) {
  MySqlChildProcess child;
  std::array<char, 10> buffer{};
  long length = buffer.size();
  EXPECT_EQ(child.ReadBuf(buffer.data(), &length), -1);
  EXPECT_EQ(child.WriteBuf(buffer.data(), 1), -1);
  EXPECT_EQ(child.ReadErrBuf(buffer.data(), &length), -1);
  EXPECT_EQ(child.Wait(0), -1);
  EXPECT_TRUE(logged("m_dzProcess is null, Child Process may not be Created...."));
  errno = ENOSPC;
  EXPECT_EQ(child.GetLastErr(), ENOSPC);
  EXPECT_EQ(child.GetLastErrNo(), ENOSPC);
}

TEST_F(ChildProcess, StartedWithoutStandardStreamsStillGetsItsOwn) {
  EXPECT_EQ(inChild([&] {
              for (int fd : {0, 1, 2}) close(fd);
              const Outcome result = run(program("echo out; echo err >&2"));
              return result.output == "out\n" && result.errors == "err\n" ? 0 : 1;
            }),
            0);
}

TEST_F(ChildProcess, IsEndedAndReapedWithItsObject) {
  std::int32_t pid = 0;
  {
    MySqlChildProcess child;
    start(child, "/bin/sleep 1000");
    pid = std::stoi(loggedBehind("Parent: child process pid= "));
    ASSERT_GT(pid, 0);
    ASSERT_EQ(kill(pid, 0), 0);
  }
  EXPECT_EQ(kill(pid, 0), -1);
  EXPECT_EQ(errno, ESRCH) << "not even a zombie";
}

TEST_F(ChildProcess, TerminatedIsToldBySignal) {
  MySqlChildProcess child;
  EXPECT_EQ(child.Terminate(), -1) << "nothing runs yet";
  start(child, "/bin/sleep 1000");
  EXPECT_EQ(child.Terminate(), 0);
  EXPECT_EQ(child.Wait(30), -1);
  EXPECT_TRUE(logged("Child died after receiving signal 9"));
  EXPECT_EQ(child.Terminate(), -1) << "its number may be another process's by now";
  EXPECT_EQ(child.Wait(0), -1);
}

/// An account of the system other than the one that runs the tests; the tests install it.
class AsAnotherAccount : public ChildProcess {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "ONLY ROOT can start programs as other accounts: run ./check as root";
    const passwd* entry = getpwnam("mysql");
    ASSERT_NE(entry, nullptr) << "scripts/packages.sh servers makes the account";
    uid_ = entry->pw_uid;
    session_.strUnixUser = "mysql";
  }
  GetMySqlInfo session_;
  uid_t uid_ = 0;
};

TEST_F(AsAnotherAccount, RunsAndWritesItsErrorFile) {
  const Outcome result = run(program("id -un; id -Gn; echo oops >&2"), &session_);
  EXPECT_EQ(result.output, "mysql\nmysql\n") << "with the account's groups and no other";
  EXPECT_EQ(result.errors, "oops\n");
  const std::string folder = backend_.directory() + "/results/DZ_JobResults/2/0/0";
  struct stat info {};
  ASSERT_EQ(stat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 0U);
  EXPECT_EQ(info.st_mode & 07777, 01730U) << "the account may create files there, others nothing";
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    ASSERT_EQ(stat(file.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, uid_) << "made by the child after it took the account";
  }
}

TEST_F(AsAnotherAccount, CannotReachWhatBelongsToTheAgentAndTheAgentKeepsItsAccountAndItsCoreDumps) {
  writeFile(place_ / "private", "x", 0600);
  EXPECT_THAT(run("/bin/cat " + (place_ / "private"), &session_).errors, testing::HasSubstr("Permission denied"));
  ASSERT_EQ(prctl(PR_GET_DUMPABLE), 1);
  EXPECT_EQ(run("/usr/bin/id -u", &session_).output, std::to_string(uid_) + "\n");
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
  EXPECT_EQ(geteuid(), 0U);
  EXPECT_NE(readFile("/proc/self/status").find("Uid:\t0\t0\t0\t0"), std::string::npos);
}

TEST_F(AsAnotherAccount, FolderServesTwoAccountsAtOnce) {
  // In a home of its own: whoever waits for the folder there waits for real.
  ASSERT_TRUE(platform::createHome(place_ / "home", "c").ok());
  std::shared_ptr<const platform::Services> services;
  ASSERT_TRUE(platform::openHome(place_ / "home", services).ok());
  const ScopedServices real(services);
  const std::string script = program("echo \"$(id -un)\" >&2");
  std::atomic<int> wrong{0};
  const auto runMany = [&](const std::string& account) {
    GetMySqlInfo session;
    session.strUnixUser = account;
    for (int i = 0; i < 60; ++i) {
      if (run(script, &session).errors != account + "\n") ++wrong;
    }
  };
  std::thread other(runMany, "nobody");
  runMany("mysql");
  other.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(AsAnotherAccount, AccountThatDoesNotExistRunsAsTheAgentAndSaysSoLoudly) {
  session_.strUnixUser = "no_such_account";
  EXPECT_EQ(run("/usr/bin/id -u", &session_).output, "0\n");
  EXPECT_TRUE(backend_.log().contains("the account [no_such_account] does not exist"));
}

TEST_F(AsAnotherAccount, AccountThatCannotBeTakenEndsTheChild) {
  chmod(backend_.directory().c_str(), 0777);
  std::filesystem::permissions(backend_.directory() + "/results", std::filesystem::perms::all);
  EXPECT_EQ(inChild([&] {
              if (setuid(uid_) != 0) return 9;
              session_.strUnixUser = "root";
              const Outcome result = run("/usr/bin/id -u", &session_);
              return result.waited == -1 && result.lastError == 81 && result.output.empty() ? 0 : 1;
            }),
            0);
}

}  // namespace
}  // namespace orrery::test
