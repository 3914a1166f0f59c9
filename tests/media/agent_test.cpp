// What the agent of a job hears of it.

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include <gmock/gmock.h>

#include "orrery/platform/SessionClient.h"

#include "media_test.h"
#include "support/program.h"
#include "support/session_recorder.h"

namespace orrery::test {
namespace {

using ::testing::ElementsAre;

class AgentTest : public MediaTest {
 protected:
  void SetUp() override {
    MediaTest::SetUp();
    setThreadCommandLine("-j 17 -at 104");
    installed_.emplace(open());
  }
  void TearDown() override {
    stop();
    MediaTest::TearDown();
  }
  std::string socketPath() const { return home() + "/tmp/" + platform::sessionServiceName(17) + ".sock"; }
  void serve() {
    const std::string socket = socketPath();
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

  std::shared_ptr<SessionRecorder> recorder_ = std::make_shared<SessionRecorder>();
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
  EXPECT_EQ(recorder_->progressJob(), 17);
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
  recorder_->refusesProgress = true;
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

TEST_F(AgentTest, AnAgentThatComesLateIsToldEverything) {
  // Under way before anybody serves: the image's file is there when the agent is first looked for.
  std::thread late([&] {
    EXPECT_TRUE(waitUntil([&] { return !mediaFiles().empty(); }));
    serve();
  });
  {
    OpenSession session(library_);
    EXPECT_EQ(session.put("image", pattern(300), 100), 0U);
  }
  late.join();
  ASSERT_TRUE(waitUntil([&] { return recorder_->seen().size() == 6; }));
  EXPECT_THAT(recorder_->seen(),
              ElementsAre("connect", "run 0", "status 0", "progress image 300 1 1", "status 1", "disconnect"));
}

TEST_F(AgentTest, AnAgentThatComesBackHearsTheSumsAndOfNoNewRun) {
  serve();
  OpenSession session(library_);
  ASSERT_EQ(session.backup("image", 1), 0U);
  const auto writeUntil = [&](const std::function<bool()>& condition) {
    return waitUntil([&] { return session.write("x") == 0 && condition(); });
  };
  stop();
  ASSERT_TRUE(writeUntil([&] { return timesInLog("the job goes on without its agent") == 1; }));
  serve();
  ASSERT_TRUE(writeUntil([&] { return recorder_->seen().back().starts_with("progress"); }));
  ASSERT_EQ(session.close(), 0U) << session.error();
  const auto seen = recorder_->seen();
  EXPECT_EQ(std::count(seen.begin(), seen.end(), "connect"), 2);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), "run 0"), 1);
  EXPECT_EQ(seen[seen.size() - 2], "progress image " + std::to_string(records("image").at(0).size) + " 1 1");
  EXPECT_EQ(seen.back(), "status 1");
}

TEST_F(AgentTest, AnAgentThatNeverAnswersCostsOneShortWait) {
  const platform::OwnFd mute(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(socketPath().size(), sizeof(address.sun_path));
  std::strcpy(address.sun_path, socketPath().c_str());
  ASSERT_EQ(::bind(mute.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(::listen(mute.get(), 16), 0);
  OpenSession session(library_), other(library_);
  const auto start = std::chrono::steady_clock::now();
  for (const char* name : {"one", "two", "three"}) ASSERT_EQ(session.put(name, "x", 1), 0U);
  ASSERT_EQ(other.put("four", "x", 1), 0U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3900)) << "a wait is two seconds";
  EXPECT_EQ(timesInLog("the job goes on without"), 1U);
}

TEST_F(AgentTest, SessionsOfSeveralThreadsMakeOneSum) {
  serve();
  constexpr int sessions = 4;
  {
    OpenSession first(library_);  // keeps what they share
    ASSERT_EQ(first.put("first", "x", 1), 0U);
    std::vector<std::thread> threads;
    for (int number = 0; number < sessions; ++number)
      threads.emplace_back([&, number] {
        OpenSession session(library_);
        const std::string name = "image" + std::to_string(number), text = pattern(1 << 20);
        std::string back;
        EXPECT_EQ(session.put(name, text, 4096), 0U) << session.error();
        EXPECT_EQ(session.get(name, 1 << 20, back), 0U) << session.error();
        EXPECT_TRUE(back == text);
      });
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(first.put("last", "x", 1), 0U);
  }
  const auto seen = recorder_->seen();
  const std::string sum = std::to_string(2 * sessions * (1 << 20) + 2) + " " + std::to_string(2 * sessions + 2);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), "run 0"), 1);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), "progress last " + sum + " 1"), 1);
  EXPECT_EQ(mediaFiles().size(), sessions + 2U);
}

}  // namespace
}  // namespace orrery::test
