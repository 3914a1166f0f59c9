#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/testing/test_backend.h"

#include "support/children.h"
#include "support/compressed_clock.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace orrery::test {

inline std::string joined(const std::vector<std::string>& texts) {
  std::string line;
  for (const std::string& text : texts) line += (line.empty() ? "" : ", ") + text;
  return line;
}

/// Locks a file as a server does, in a process of its own, until it goes. Its other open files are elsewhere.
class LockHolder {
 public:
  explicit LockHolder(const std::string& file) {
    writeFile(file, "x");
    const TemporaryDirectory folder;
    pid_ = fork();
    if (pid_ == 0) {
      struct flock lock {};
      lock.l_type = F_WRLCK;
      const int opened = open(file.c_str(), O_RDWR | O_CLOEXEC);
      writeFile(folder / "tried", fcntl(opened, F_SETLK, &lock) == 0 ? "locked" : "refused");
      for (;;) pause();
    }
    EXPECT_TRUE(
        waitUntil([&] { return std::filesystem::exists(folder / "tried") && readFile(folder / "tried") == "locked"; }));
  }
  ~LockHolder() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

/// What a driver sees of its base.
class Driver : public MySqlSBTUtils {
 public:
  using MySqlSBTUtils::handler_;
  using MySqlSBTUtils::isInitialized_;
  using MySqlSBTUtils::isSessionServerReady_;
  using MySqlSBTUtils::jobControl_;
  using MySqlSBTUtils::jobResultsDir_;
  using MySqlSBTUtils::jobType_;
  using MySqlSBTUtils::params_;
  using MySqlSBTUtils::sbtLibraryPath_;
  using MySqlSBTUtils::sessionServer_;
};

/// A job on the testing backend and a driver that works on it.
class SbtTest : public testing::Test {
 protected:
  void SetUp() override {
    platform::JobRecord record;
    ASSERT_TRUE(backend_.services()->jobs->start(record, jobId_).ok());
    writeFile(backend_.directory() + "/libobk.so", "");
  }

  /// As a driver begins.
  void initialize(Driver& driver, DZJobType type = DZJobType::backup) const {
    ASSERT_EQ(driver.initializeJobControl(jobId_, type, "manager", nullptr), 0);
    driver.handler_->setSBTAgent(&driver);
    driver.handler_->setJobId(jobId_);
    ASSERT_EQ(driver.initializeCommonParams(7), 0);
    driver.isInitialized_ = true;
  }
  /// A driver that has begun.
  class BegunDriver : public Driver {
   public:
    explicit BegunDriver(const SbtTest& test, DZJobType type = DZJobType::backup) { test.initialize(*this, type); }
  };
  platform::JobRecord job() const {
    platform::JobRecord record;
    EXPECT_TRUE(backend_.services()->jobs->find(jobId_, record).ok());
    return record;
  }
  /// "code severity type argument|argument" of every cause.
  std::vector<std::string> causes() const {
    std::vector<platform::PendingCause> causes;
    EXPECT_TRUE(backend_.services()->jobs->listCauses(jobId_, causes).ok());
    std::vector<std::string> texts;
    for (const auto& cause : causes) {
      char head[64];
      std::snprintf(head, sizeof(head), "%08x %d %d ", static_cast<unsigned>(cause.code), cause.severity,
                    cause.messageType);
      texts.emplace_back(head);
      for (const std::string& argument : cause.arguments) texts.back() += argument + "|";
    }
    return texts;
  }
  /// "level: text" of what one operation logged, "error: text" for errors.
  std::vector<std::string> said(const std::string& tag) {
    std::vector<std::string> lines;
    for (const auto& line : backend_.log().entries())
      if (line.tag == tag)
        lines.push_back((line.kind == platform::LogKind::error ? "error" : std::to_string(line.level)) + ": " +
                        line.text);
    return lines;
  }

  mutable platform::testing::TestBackend backend_;
  const platform::ScopedServices installed_{withCompressedClock(backend_.services())};
  long long jobId_ = 0;
};

}  // namespace orrery::test
