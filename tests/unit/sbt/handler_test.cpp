// What the media library tells, and what becomes of it at the job.

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using platform::Status;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* messageTag = "MySqlSBTHandler::OnClientMsg";

class HandlerTest : public SbtTest {
 protected:
  void SetUp() override {
    SbtTest::SetUp();
    initialize(driver_);
    backend_.log().clear();
  }
  CKyError tell(unsigned long code, dzsDatabuf_v2& data) {
    return driver_.handler_->OnClientMsg(&network_, network_.handle(), code, &data, &server_);
  }
  CKyError tell(unsigned long code, const SbtStatusMessage& message) {
    dzsDatabuf_v2 data(message);
    return tell(code, data);
  }
  CKyError tell(const SbtProgressMessage& message) {
    dzsDatabuf_v2 data(message);
    return tell(sbtProgressCode, data);
  }
  static SbtProgressMessage totals(std::int64_t bytes, std::int64_t files) { return {4, 2, "image", bytes, files, 1}; }

  Driver driver_;
  CDzNetwork network_{reinterpret_cast<DznHandle_t>(std::uintptr_t{0x1a})};
  CDzNetworkServer server_{driver_.sessionServer_.get()};
};

TEST_F(HandlerTest, ProgressIsAddedAsDifferencesOfTotals) {
  const struct {
    const char* what;
    std::int64_t bytes, files;  // totals told; -1 for a new run
    bool refused;
    std::int64_t jobBytes, jobFiles;
  } steps[] = {
      {"first totals", 100, 1, false, 100, 1},
      {"the difference only", 250, 1, false, 250, 1},
      {"the job manager is busy", 300, 2, true, 250, 1},
      {"busy again", 350, 2, true, 250, 1},
      {"the whole difference again", 400, 3, false, 400, 3},
      {"a new run", -1, -1, false, 400, 3},
      {"its totals from nothing", 60, 1, false, 460, 4},
      {"a run that was not announced: less than before, passed on as it is", 10, 0, false, 410, 3},
      {"the same totals", 10, 0, false, 410, 3},
      {"the last totals of a run find the job manager busy", 50, 2, true, 410, 3},
      {"the next run begins with what was left", -1, -1, false, 450, 5},
      {"its totals from nothing", 7, 1, false, 457, 6},
  };
  for (const auto& step : steps) {
    if (step.refused) backend_.failures().failNth("JobManager::addCounters", 1, Status::failure("busy"));
    const CKyError error = step.bytes < 0 ? tell(sbtRunCode, SbtStatusMessage{}) : tell(totals(step.bytes, step.files));
    EXPECT_EQ(error.code(), step.refused ? 14 : 0) << step.what;
    EXPECT_EQ(error.text(), step.refused ? "Failed to update JonbInfo\n" : "") << step.what;
    EXPECT_EQ(job().bytes, step.jobBytes) << step.what;
    EXPECT_EQ(job().files, step.jobFiles) << step.what;
  }
  EXPECT_TRUE(backend_.log().contains("Failed to update jobInfo"));
  EXPECT_EQ(backend_.failures().calls("JobManager::addCounters"), 10U) << "one call a message, none for no difference";
}

TEST_F(HandlerTest, NumbersOfAHostileLibraryHarmNobody) {
  constexpr std::int64_t most = INT64_MAX;
  EXPECT_EQ(tell(totals(most, -most)).code(), 0);
  EXPECT_EQ(tell(totals(INT64_MIN, most)).code(), 14) << "files would be more than a number holds";
  EXPECT_EQ(job().bytes, most);
}

TEST_F(HandlerTest, MessagesAreLoggedAndAnswered) {
  EXPECT_FALSE(tell(sbtStatusCode, {4711, 3, 99, -2}).isError());
  EXPECT_FALSE(tell(sbtRunCode, {4711, 3, 99, 1}).isError());
  EXPECT_FALSE(tell({4711, 3, nullptr, 5, 6, 7}).isError());
  EXPECT_THAT(
      said(messageTag),
      ElementsAre(
          "0: SBT Session Server Received msgType=[" + std::string(DZS_OraBackupRestore_PM_STRING(sbtStatusCode)) +
              "] jobId=[4711] threadId=[3] status=[-2] session=[0x1a]\n",
          "0: SBT Session Server Received msgType=" + std::string(DZS_OraBackupRestore_PM_STRING(sbtRunCode)) +
              " jobId=[4711] threadId=[3] status=[1]\n",
          "2: SBT Session Server Received msgType=" + std::string(DZS_OraBackupRestore_PM_STRING(sbtProgressCode)) +
              " jobId=[4711] threadId=[3] BackupFileName=[NULL] phase=[7] bytes=[5] files=[6]\n"));
  for (const unsigned long code : {0x1200000CUL, 0x12000010UL, 0UL, ~0UL}) {
    dzsDatabuf_v2 data;
    const CKyError error = tell(code, data);
    const std::string text = "Error: unexpected msgType=" + std::to_string(code) + "\n";
    EXPECT_EQ(error.code(), 14);
    EXPECT_EQ(error.text(), text);
    EXPECT_EQ(error.function(), "OnClientMsg");
    EXPECT_EQ(said(messageTag).back(), "0: " + text);
  }
}

TEST_F(HandlerTest, WithoutAgentOrJobProgressIsTakenAndForgotten) {
  MySqlSBTHandler alone;
  dzsDatabuf_v2 data(totals(5, 1));
  EXPECT_FALSE(alone.OnClientMsg(&network_, nullptr, sbtProgressCode, &data, &server_).isError());
  EXPECT_EQ(said(messageTag).back(), "2: SBTAgent not found");
  Driver jobless;
  alone.setSBTAgent(&jobless);
  EXPECT_FALSE(alone.OnClientMsg(&network_, nullptr, sbtProgressCode, &data, &server_).isError());
  EXPECT_EQ(said(messageTag).back(), "0: JobObject not found");
  EXPECT_EQ(job().bytes, 0);
}

TEST_F(HandlerTest, EachCallBackWaitsForTheHandlerLock) {
  MySqlSBTHandler& handler = *driver_.handler_;
  dzsDatabuf_v2 data(SbtStatusMessage{});
  const std::pair<const char*, std::function<CKyError()>> cases[] = {
      {"OnClientConnect", [&] { return handler.OnClientConnect(&network_, 5, &server_); }},
      {"OnClientMsg", [&] { return tell(sbtStatusCode, data); }},
      {"OnClientDisconnect", [&] { return handler.OnClientDisconnect(&network_, 5, &server_); }},
  };
  for (const auto& [name, call] : cases) {
    std::atomic<bool> returned{false};
    std::unique_lock held(driver_.sessionServer_->handlerLock());
    std::thread other([&, &callBack = call] {
      EXPECT_FALSE(callBack().isError());
      returned = true;
    });
    EXPECT_FALSE(waitUntil([&] { return returned.load(); }, std::chrono::milliseconds(100))) << name;
    held.unlock();
    other.join();
  }
}

TEST_F(HandlerTest, ConnectionsSetTheReadyFlagAndTheirEndIsLoggedAsAMessageTypeKept) {
  MySqlSBTHandler& handler = *driver_.handler_;
  EXPECT_FALSE(handler.OnClientConnect(&network_, 0, &server_).isError());
  EXPECT_FALSE(driver_.isSessionServerReady_);
  EXPECT_FALSE(handler.OnClientConnect(&network_, 5, &server_).isError());
  EXPECT_TRUE(driver_.isSessionServerReady_);
  EXPECT_FALSE(handler.OnClientDisconnect(&network_, 5, &server_).isError());
  EXPECT_FALSE(driver_.isSessionServerReady_);
  EXPECT_THAT(said("MySqlSBTHandler::OnClientConnect"),
              ElementsAre("0: pSession is NULL... Something went wrong!",
                          "0: Connection with OraSbt library was established."));
  // Kept: the label of the second line.
  EXPECT_THAT(said("MySqlSBTHandler::OnClientDisconnect"),
              ElementsAre("4: Reset idle timeout counter due to activity", "4: Disconnect MsgType=[5] "));
  EXPECT_FALSE(handler.ShouldSaveRegisteredPorts());
}

TEST_F(HandlerTest, FifthIdleIntervalFailsTheRunAndNoEarlierOneAndBothBlanksOfTheLineAreKept) {
  AcceptMySqlIdleCallback(nullptr);
  EXPECT_EQ(driver_.sessionServer_->maxIdleTimeoutCount(), 5U);
  for (int i = 1; i <= 5; ++i) {
    EXPECT_FALSE(driver_.handler_->isThreadFailed()) << i;
    AcceptMySqlIdleCallback(driver_.sessionServer_.get());
  }
  EXPECT_TRUE(driver_.handler_->isThreadFailed());
  const auto lines = said("AcceptMySqlIdleCallback");
  ASSERT_EQ(lines.size(), 10U);
  EXPECT_EQ(lines[0], "2: Got timed out while waiting for messages ...  m_idleTimeoutCount=1");
  EXPECT_EQ(lines[1], "0: So far idleTimeouts=[1] MaxIdleTimeouts=[5]. Will wait for some more time ... ");
  EXPECT_EQ(lines[9], "0: Maximum idle time reached. Failing the job... ");
}

TEST_F(HandlerTest, FailedThreadStaysFailedWhateverTheLibraryDoesKept) {
  driver_.handler_->failThread();
  EXPECT_FALSE(driver_.handler_->OnClientConnect(&network_, 5, &server_).isError());
  EXPECT_FALSE(tell(sbtRunCode, SbtStatusMessage{}).isError());
  EXPECT_FALSE(driver_.handler_->OnClientDisconnect(&network_, 5, &server_).isError());
  driver_.cleanUp();
  EXPECT_TRUE(driver_.handler_->isThreadFailed());
}

TEST_F(HandlerTest, ServerThatCannotStartIsLoggedAndNothingMoreKept) {
  const platform::ScopedJob job(4711);
  EXPECT_EQ(startThreadForMEBSessionServer(nullptr), nullptr);
  backend_.failures().failAlways("Directories::temporary", Status::failure("there is none"));
  EXPECT_EQ(startThreadForMEBSessionServer(driver_.sessionServer_.get()), nullptr);
  EXPECT_THAT(said("startThreadForMEBSessionServer"),
              ElementsAre("error: Failed to start DZSessionServer with serviceName=MySqlSBTSrv_4711:there is none"));
  EXPECT_FALSE(driver_.handler_->isThreadFailed());
}

}  // namespace
}  // namespace orrery::test
