// What the agent of a job hears of it.

#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include "orrery/platform/DbSessionServer.h"
#include "orrery/platform/SbtMessages.h"
#include "orrery/platform/SessionClient.h"

#include "media_test.h"
#include "support/program.h"

namespace orrery::test {
namespace {

using ::testing::ElementsAre;

class Recorder final : public DBAgentUtils::DzDbAgentSessionHandler {
 public:
  CKyError OnClientConnect(CDzNetwork*, long long, CDzNetworkServer*) override { return add("connect"); }
  CKyError OnClientMsg(CDzNetwork*, DznHandle_t, unsigned long code, dzsDatabuf_v2* data, CDzNetworkServer*) override {
    if (code == sbtProgressCode) {
      const auto* const message = static_cast<const SbtProgressMessage*>(data->getDataBuffer());
      add("progress " + std::string(message->backupFileName) + " " + std::to_string(message->bytes) + " " +
          std::to_string(message->files) + " " + std::to_string(message->phase) +
          (message->jobId == 17 && message->threadId > 0 ? "" : " of nobody"));
      return refuse ? CKyError(14, "not now") : CKyError();
    }
    const auto* const message = static_cast<const SbtStatusMessage*>(data->getDataBuffer());
    return add((code == sbtRunCode ? "run " : "status ") + std::to_string(message->status));
  }
  CKyError OnClientDisconnect(CDzNetwork*, unsigned long, CDzNetworkServer*) override { return add("disconnect"); }
  std::uint32_t GetIdleTimeoutMaxCount() override { return 5; }

  std::vector<std::string> seen() const {
    const std::lock_guard held(mutex_);
    return seen_;
  }
  std::atomic<bool> refuse{false};

 private:
  CKyError add(std::string what) {
    const std::lock_guard held(mutex_);
    seen_.push_back(std::move(what));
    return {};
  }
  mutable std::mutex mutex_;
  std::vector<std::string> seen_;
};

class AgentTest : public MediaTest {
 protected:
  void SetUp() override {
    MediaTest::SetUp();
    installed_.emplace(open());
  }
  void TearDown() override {
    stop();
    MediaTest::TearDown();
  }
  void serve() {
    const std::string socket = home() + "/tmp/" + platform::sessionServiceName(17) + ".sock";
    server_.emplace(recorder_);
    thread_ = std::thread([this] { server_->StartSessionServer(platform::sessionServiceName(17), nullptr, 104); });
    ASSERT_TRUE(waitUntil([&] { return ::access(socket.c_str(), F_OK) == 0; }));
  }
  void stop() {
    if (server_) server_->CleanupSessionServer();
    if (thread_.joinable()) thread_.join();
  }
  std::string log() const { return readFile(home() + "/log/orrery-mysql.log"); }
  std::size_t timesInLog(const std::string& text) const {
    const std::string all = log();
    std::size_t count = 0;
    for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) ++count;
    return count;
  }

  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::optional<platform::ScopedServices> installed_;
  std::optional<DBAgentUtils::DbSessionServer> server_;
  std::thread thread_;
};

TEST_F(AgentTest, ARunIsToldFromItsBeginToItsEndWithSumsOverAllImages) {
  serve();
  {
    OpenSession session(library_), other(library_);
    ASSERT_EQ(session.put("one", pattern(3000), 1000), 0U);
    ASSERT_EQ(other.put("two", pattern(500), 500), 0U);
    std::string text;
    ASSERT_EQ(session.get("one", 1000, text), 0U);
    ASSERT_EQ(session.backup("given up", 1), 0U);
    EXPECT_EQ(session.close(media::flagGiveUp), 0U);
  }
  ASSERT_TRUE(waitUntil([&] { return recorder_->seen().back() == "disconnect"; }));
  EXPECT_THAT(recorder_->seen(),
              ElementsAre("connect", "run 0", "status 0", "progress one 3000 1 1", "status 1", "status 0",
                          "progress two 3500 2 1", "status 1", "status 0", "progress one 6500 3 2", "status 1",
                          "status 0", "status 2", "disconnect"));
}

TEST_F(AgentTest, AFastRunIsToldEvery64MiBAndNotPerBlock) {
  serve();
  OpenSession session(library_);
  const std::string block(1 << 20, 'x');
  ASSERT_EQ(session.backup("image", block.size()), 0U);
  for (int i = 0; i < 130; ++i) ASSERT_EQ(session.write(block.data()), 0U);
  const std::size_t told = recorder_->seen().size();
  EXPECT_GE(told, 5U);
  EXPECT_LT(told, 60U);
  EXPECT_EQ(session.close(media::flagGiveUp), 0U);
}

TEST_F(AgentTest, ARefusalIsLoggedOnceAndTheRunGoesOn) {
  serve();
  recorder_->refuse = true;
  OpenSession session(library_);
  for (const char* name : {"one", "two", "three"}) ASSERT_EQ(session.put(name, "x", 1), 0U);
  EXPECT_EQ(timesInLog("the agent refuses a message: not now"), 1U);
  EXPECT_EQ(mediaFiles().size(), 3U);
}

TEST_F(AgentTest, WithoutAnAgentTheJobGoesOnAndTheLogSaysSoOnce) {
  OpenSession session(library_);
  for (const char* name : {"one", "two"}) ASSERT_EQ(session.put(name, "x", 1), 0U);
  EXPECT_EQ(timesInLog("the job goes on without an agent to tell"), 1U);
  EXPECT_EQ(mediaFiles().size(), 2U);
}

TEST_F(AgentTest, AnAgentThatIsLostFailsNothing) {
  serve();
  OpenSession session(library_);
  ASSERT_EQ(session.backup("image", 1), 0U);
  stop();
  ASSERT_EQ(session.write("x"), 0U);
  ASSERT_EQ(session.close(), 0U) << session.error();
  EXPECT_EQ(timesInLog("the job goes on without its agent"), 1U);
  EXPECT_EQ(records("image").size(), 1U);
}

}  // namespace
}  // namespace orrery::test
