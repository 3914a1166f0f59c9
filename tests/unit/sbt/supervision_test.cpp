// Runs of real children under supervision. A second of a pass takes a tenth here.

#include <sys/file.h>

#include <thread>

#include "orrery/platform/LibMySqlProcess.h"
#include "orrery/platform/SessionClient.h"

#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using platform::SessionClient;
using platform::sessionServiceName;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::size_t threads() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

class SupervisionTest : public SbtTest {
 protected:
  // A sanitizer starts a thread of its own with the first one.
  static void SetUpTestSuite() {
    std::thread([] {}).join();
  }
  void SetUp() override {
    beginJob();
    threadsBefore_ = threads();
  }
  void beginJob() {
    SbtTest::SetUp();
    jobOfProcess_.reset();  // it puts back what was before it
    jobOfProcess_ = std::make_unique<platform::ScopedJob>(jobId_);
  }
  void TearDown() override {
    EXPECT_TRUE(hasNoChildren());
    // The kernel takes a joined thread off its list a moment later.
    EXPECT_TRUE(waitUntil([&] { return threads() == threadsBefore_; }));
    EXPECT_THAT(backend_.leftovers(), IsEmpty());
  }

  /// The script holds no double quotes.
  int run(Driver& driver, const std::string& script) {
    int rc = 77;
    const int result = driver.runCommand("/bin/sh -c \"" + script + "\"", ignored_, ignored_, rc, false);
    EXPECT_EQ(rc, 77) << "kept: this way has no result of its own";
    EXPECT_EQ(ignored_, "");
    return result;
  }
  bool connects(SessionClient& library) const {
    return waitUntil([&] { return library.connect(backend_.temporary(), sessionServiceName(jobId_), jobId_).ok(); });
  }
  bool tellState(SessionClient& library, SbtImageState state) const {
    return library
        .tell(sbtStatusCode, platform::encodeMessage(SbtStatusMessage{jobId_, 1, 0, static_cast<std::int32_t>(state)}))
        .ok();
  }

  std::unique_ptr<platform::ScopedJob> jobOfProcess_;
  std::size_t threadsBefore_ = 0;
  std::string ignored_;
  const std::string begun_ = backend_.directory() + "/begun";
};

TEST_F(SupervisionTest, RunsEndAsTheirProgramDoes) {
  const struct {
    const char* script;
    int result;
    const char* causes;
  } cases[] = {
      {"true", 0, ""},
      {"sleep 0.3", 0, ""},
      {"echo ERROR: written on the way >&2; exit 0", 0, ""},
      {"exit 1", -1, "5700006b 0 300 mysqlbackup failed.|"},
      {"echo some words >&2; kill -KILL $$", -1, "5700006b 0 300 mysqlbackup failed.|"},
      {"echo ERROR: first >&2; echo ERROR: disk is full >&2; echo bye >&2; exit 2", -1,
       "5700006b 0 300 ERROR: disk is full|"},
  };
  for (const auto& row : cases) {
    beginJob();
    BegunDriver driver(*this);
    EXPECT_EQ(run(driver, row.script), row.result) << row.script;
    EXPECT_EQ(joined(causes()), row.causes) << row.script;
    driver.cleanUp();
    EXPECT_THAT(backend_.leftovers(), IsEmpty());
  }
}

TEST_F(SupervisionTest, LooksOnceASecondAndForTheFirstTimeAfterTheFirst) {
  using Sleeps = std::vector<std::int64_t>;
  std::vector<Sleeps> looks;
  class Looking final : public DZJobCtrlClient {
   public:
    Looking(const platform::testing::TestBackend& backend, std::vector<Sleeps>& looks)
        : DZJobCtrlClient(2), backend_(backend), looks_(looks) {}
    bool checkQuitFlag() const override {
      looks_.push_back(backend_.sleeps());
      return looks_.size() == 3;
    }

   private:
    const platform::testing::TestBackend& backend_;
    std::vector<Sleeps>& looks_;
  };
  BegunDriver driver(*this);
  driver.jobControl_ = std::make_unique<Looking>(backend_, looks);
  run(driver, "sleep 600");
  EXPECT_THAT(looks, ElementsAre(Sleeps{1000}, Sleeps{1000, 1000}, Sleeps{1000, 1000, 1000}));
}

TEST_F(SupervisionTest, RunIsLoggedStepByStep) {
  BegunDriver driver(*this);
  ASSERT_EQ(run(driver, "echo moved"), 0);
  EXPECT_THAT(said("MySqlSBTUtils::runCommand"),
              ElementsAre("5: Running command [/bin/sh -c \"echo moved\"]",
                          "0: Successfully executed command [/bin/sh -c \"echo moved\"]"));
  EXPECT_THAT(said("MySqlSBTUtils::WaitForMEB"),
              ElementsAre("0: Creating thread to moniter SBT thread", "0: Successfully start BeginWait thread."));
  EXPECT_THAT(said("MySqlSBTUtils::shouldContinue"), ElementsAre("8: Output of mysqlbackup command"));
  EXPECT_TRUE(backend_.log().contains("stdout: moved"));
  backend_.log().clear();
  ASSERT_EQ(run(driver, "exit 3"), -1);
  EXPECT_THAT(said("MySqlSBTUtils::shouldContinue"),
              ElementsAre("0: Wait For Child Process failed", "0: Reading last error from STDERR of commmand failed",
                          "0: Error while executing mysqlbackup"));
  EXPECT_THAT(said("MySqlSBTUtils::runCommand"), SizeIs(1));
}

TEST_F(SupervisionTest, QuitFlagEndsTheProgramAndTheProgramsEndIsTheResultKept) {
  for (const int exitCode : {0, 9}) {
    beginJob();
    std::filesystem::remove(begun_);
    backend_.log().clear();
    BegunDriver driver(*this);
    std::thread other([&] {
      EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(begun_); }));
      EXPECT_TRUE(backend_.services()->jobs->requestQuit(jobId_).ok());
    });
    EXPECT_EQ(run(driver,
                  "trap 'exit " + std::to_string(exitCode) + "' TERM; : >" + begun_ + "; while :; do sleep 0.02; done"),
              exitCode == 0 ? 0 : -1);
    other.join();
    EXPECT_EQ(said("MySqlSBTUtils::shouldContinue").back(), "0:  Quit flag set in the JobManager.");
    EXPECT_THAT(causes(), IsEmpty());
  }
}

TEST_F(SupervisionTest, SilentLibraryFailsTheRunAfterFiveIntervalsAndEveryLaterRunKept) {
  BegunDriver driver(*this);
  driver.sessionServer_->setIdleInterval(60);
  SessionClient library;
  std::thread other([&] { EXPECT_TRUE(connects(library)); });
  EXPECT_EQ(run(driver, "trap '' TERM; while :; do sleep 0.05; done"), -1);
  other.join();
  EXPECT_THAT(said("MySqlSBTUtils::shouldContinue"), Contains("0: MySqlSBT Server thread failed."));
  EXPECT_THAT(causes(), ElementsAre("5700006b 0 300 mysqlbackup failed.|"));
  EXPECT_GE(driver.sessionServer_->idleTimeoutCount, 5U);
  // Kept: never taken back, a later run fails with its first look, even one whose program then ends well.
  EXPECT_EQ(run(driver, "trap 'exit 0' TERM; while :; do sleep 0.02; done"), -1);
}

TEST_F(SupervisionTest, ProgramWorksOnForAsLongAsItLikesWhenItsLibraryToldItsEnd) {
  constexpr std::chrono::milliseconds interval{200};
  for (const bool stays : {true, false}) {
    beginJob();
    std::filesystem::remove(begun_);
    BegunDriver driver(*this, DZJobType::restore);
    driver.sessionServer_->setIdleInterval(interval.count());
    std::thread other([&] {
      SessionClient library;
      EXPECT_TRUE(connects(library));
      EXPECT_TRUE(tellState(library, SbtImageState::begun));
      EXPECT_TRUE(tellState(library, SbtImageState::done));
      if (!stays) library.disconnect();
      const auto ended = std::chrono::steady_clock::now();
      EXPECT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - ended > 8 * interval; }));
      writeFile(begun_, "");
    });
    EXPECT_EQ(run(driver, "until [ -e " + begun_ + " ]; do sleep 0.02; done"), 0) << stays;
    other.join();
    EXPECT_THAT(causes(), IsEmpty());
  }
}

TEST_F(SupervisionTest, LibraryThatNeverComesOrVanishesBeforeItsEndFailsTheRun) {
  for (const bool comes : {false, true}) {
    beginJob();
    backend_.log().clear();
    BegunDriver driver(*this, DZJobType::restore);
    driver.sessionServer_->setIdleInterval(60);
    std::thread other([&] {
      SessionClient library;
      EXPECT_TRUE(!comes || (connects(library) && tellState(library, SbtImageState::begun)));
    });
    EXPECT_EQ(run(driver, "sleep 600"), -1) << comes;
    other.join();
    EXPECT_THAT(said("AcceptMySqlIdleCallback"), Contains("0: Maximum idle time reached. Failing the job... "));
  }
}

TEST_F(SupervisionTest, LibraryReportsToTheJobInEveryRunOfOneObject) {
  BegunDriver driver(*this, DZJobType::restore);
  for (int i = 1; i <= 2; ++i) {
    std::filesystem::remove(begun_);
    std::thread other([&] {
      SessionClient library;
      EXPECT_TRUE(connects(library));
      EXPECT_TRUE(waitUntil([&] { return driver.isSessionServerReady_.load(); }));
      EXPECT_TRUE(library.tell(sbtRunCode, platform::encodeMessage(SbtStatusMessage{jobId_, 1, 0, 0})).ok());
      for (const std::int64_t bytes : {500, 900}) {
        const SbtProgressMessage message{jobId_, 1, "i", bytes, 1, 1};
        EXPECT_TRUE(library.tell(sbtProgressCode, platform::encodeMessage(message)).ok());
      }
      library.disconnect();
      EXPECT_TRUE(waitUntil([&] { return !driver.isSessionServerReady_; }));
      writeFile(begun_, "");
    });
    EXPECT_EQ(run(driver, "until [ -e " + begun_ + " ]; do sleep 0.02; done"), 0);
    other.join();
    EXPECT_EQ(job().bytes, i * 900);
    EXPECT_EQ(job().files, i);
    if (i == 1) driver.cleanUp();  // a run after a clean-up is served again
  }
}

TEST_F(SupervisionTest, SilenceOfAnEarlierRunOrBetweenTwoDoesNotCountInTheNext) {
  BegunDriver driver(*this);
  constexpr std::chrono::milliseconds interval{200};
  driver.sessionServer_->setIdleInterval(interval.count());
  ASSERT_EQ(run(driver, "true"), 0);
  driver.sessionServer_->idleTimeoutCount = 4;
  const auto paused = std::chrono::steady_clock::now();
  EXPECT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - paused > 6 * interval; }));
  EXPECT_EQ(run(driver, "true"), 0);
  EXPECT_LT(driver.sessionServer_->idleTimeoutCount, 4U);
  EXPECT_FALSE(driver.handler_->isThreadFailed());
}

TEST_F(SupervisionTest, RunGoesOnOnlyWhenItsLibraryCanConnect) {
  const platform::OwnFd folder(open(backend_.temporary().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(folder.get(), LOCK_EX), 0);  // servers take it for a moment before they listen
  BegunDriver driver(*this);
  const auto hasBegun = [&] { return backend_.log().contains("Successfully start BeginWait thread."); };
  std::thread other([&] {
    EXPECT_TRUE(waitUntil([&] { return backend_.log().contains("Creating thread to moniter SBT thread"); }));
    EXPECT_FALSE(waitUntil(hasBegun, std::chrono::milliseconds(200)));
    EXPECT_EQ(flock(folder.get(), LOCK_UN), 0);
    EXPECT_TRUE(waitUntil(hasBegun));
    SessionClient library;
    EXPECT_TRUE(library.connect(backend_.temporary(), sessionServiceName(jobId_), jobId_).ok());
    writeFile(begun_, "");
  });
  EXPECT_EQ(run(driver, "until [ -e " + begun_ + " ]; do sleep 0.02; done"), 0);
  other.join();
}

TEST_F(SupervisionTest, ServerThatCannotStartLeavesTheRunUnwatchedKept) {
  writeFile(backend_.temporary() + "/" + sessionServiceName(jobId_) + ".sock", "in the way");
  BegunDriver driver(*this);
  EXPECT_EQ(run(driver, "true"), 0);
  EXPECT_THAT(said("startThreadForMEBSessionServer"), SizeIs(1));
  std::filesystem::remove(backend_.temporary() + "/" + sessionServiceName(jobId_) + ".sock");
}

TEST_F(SupervisionTest, BackupThatWasNotInitializedIsRefusedInTheWordsOfARestoreKept) {
  Driver driver;
  driver.jobType_ = DZJobType::backup;
  EXPECT_EQ(run(driver, "true"), -1);
  EXPECT_EQ(said("MySqlSBTUtils::WaitForMEB").back(), "error: MySQL SBT Restore Utils was not initialized.");
  LibMySqlProcess::MySqlChildProcess none;
  EXPECT_FALSE(driver.shouldContinue(none));
  EXPECT_EQ(said("MySqlSBTUtils::shouldContinue").back(), "0: MySQL SBT Restore Utils was not initialized.");
}

TEST_F(SupervisionTest, RunThatCannotBeginLeavesNothing) {
  BegunDriver driver(*this);
  LibMySqlProcess::MySqlChildProcess none;
  EXPECT_EQ(driver.WaitForMEB(none), -1);
  EXPECT_EQ(said("MySqlSBTUtils::WaitForMEB").back(), "0: Failed to start BeginWait thread.");
  EXPECT_EQ(driver.runCommand("", ignored_, ignored_, *std::make_unique<int>(), false), -1);
  EXPECT_EQ(said("MySqlSBTUtils::runCommand").back(), "0: Failed to Intialize MySqlChildProcess with the command []");
  EXPECT_EQ(driver.runCommand("/nowhere/mysqlbackup", ignored_, ignored_, *std::make_unique<int>(), false), -1);
  EXPECT_EQ(said("MySqlSBTUtils::runCommand").back(), "0: Failed to start the command [/nowhere/mysqlbackup]");
  driver.sessionServer_.reset();
  EXPECT_EQ(run(driver, "true"), -1);
  EXPECT_EQ(said("MySqlSBTUtils::WaitForMEB").back(), "0: MySQL SBT session server was not initialized.");
  driver.cleanUp();
}

TEST_F(SupervisionTest, ExceptionOfTheSuiteEndsTheRunWithItsNumber) {
  class Throwing final : public DZJobCtrlClient {
   public:
    using DZJobCtrlClient::DZJobCtrlClient;
    bool checkQuitFlag() const override { throw DzException(5, "the line is dead"); }
  };
  BegunDriver driver(*this);
  driver.jobControl_ = std::make_unique<Throwing>(2);
  EXPECT_EQ(run(driver, "sleep 600"), -1);
  EXPECT_EQ(said("MySqlSBTUtils::WaitForMEB").back(), "error: Exception encountered 5:the line is dead");
}

TEST_F(SupervisionTest, ServingEndsWithTheRunWhateverItsLibraryDoes) {
  BegunDriver driver(*this);
  SessionClient library;
  std::thread other([&] {
    EXPECT_TRUE(connects(library));
    writeFile(begun_, "");
  });
  ASSERT_EQ(run(driver, "until [ -e " + begun_ + " ]; do sleep 0.02; done"), 0);
  other.join();
  EXPECT_EQ(library.tell(sbtStatusCode, platform::encodeMessage(SbtStatusMessage{})).code, platform::statusUnavailable);
  EXPECT_FALSE(driver.isSessionServerReady_);
  EXPECT_TRUE(waitUntil([&] { return threads() == threadsBefore_; }));
}

}  // namespace
}  // namespace orrery::test
