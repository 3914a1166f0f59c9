#include "session_server.h"

#include <sys/file.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace orrery::test {
namespace {

using namespace platform;

std::string header(std::uint32_t code, std::uint32_t length, std::uint16_t version = 1) {
  std::string bytes = "ORSS";
  for (const std::uint32_t number : {std::uint32_t{version}, code, length})
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xff);
  return bytes;
}

const std::string aStatus = encodeMessage(SbtStatusMessage{});
const std::string hello = header(1, 8) + std::string(8, '\0');

TEST_F(SessionServer, MessagesReachTheHandlerAndAnswersTheClient) {
  ASSERT_EQ(service_, "MySqlSBTSrv_4711");
  serve();
  SessionClient client;
  ASSERT_TRUE(succeeded(client.connect(folder_, service_, 4711)));
  EXPECT_TRUE(succeeded(client.tell(sbtRunCode, encodeMessage(SbtStatusMessage{4711, 2, 0, -3}))));
  EXPECT_TRUE(succeeded(client.tell(sbtProgressCode, encodeMessage(SbtProgressMessage{4711, 2, "i m", -1, 7, 1}))));
  EXPECT_TRUE(succeeded(client.tell(sbtProgressCode, encodeMessage(SbtProgressMessage{4711, 2, nullptr, 5, 0, 1}))));
  const Status refused = client.tell(77, "anything");
  EXPECT_EQ(refused.code, statusFailed);
  EXPECT_EQ(refused.text, "no such message");
  EXPECT_TRUE(succeeded(client.tell(sbtStatusCode, aStatus)));  // the connection goes on
  client.disconnect();
  EXPECT_TRUE(waitUntil([&] { return recorder_->seen().size() == 7; }));
  EXPECT_EQ(recorder_->seen(), (std::vector<std::string>{"connect", "run -3", "progress i m -1 7 1",
                                                         "progress NULL 5 0 1", "unknown", "status 0", "disconnect"}));
  stop();
  EXPECT_FALSE(result_.isError()) << result_.text();
  EXPECT_FALSE(isSocket());
}

TEST_F(SessionServer, MalformedFrameEndsItsConnectionAndNoOther) {
  serve();
  SessionClient other;
  ASSERT_TRUE(succeeded(other.connect(folder_, service_, 1)));
  const std::pair<const char*, std::string> cases[] = {
      {"wrong magic", "GET / HTTP/1.1\r\n\r\n"},
      {"wrong version", header(1, 8, 2)},
      {"huge length", hello + header(sbtStatusCode, 0xffffffff)},
      {"just too long", hello + header(sbtStatusCode, 65537)},
      {"no hello", header(sbtStatusCode, static_cast<std::uint32_t>(aStatus.size())) + aStatus},
      {"short hello", header(1, 7) + std::string(7, '\0')},
      {"second hello", hello + hello},
      {"status with a byte more", hello + header(sbtStatusCode, 25) + std::string(25, '\0')},
      {"status cut short", hello + header(sbtStatusCode, 23) + std::string(23, '\0')},
      {"name longer than the message",
       hello + header(sbtProgressCode, 38) + std::string(16, '\0') + "\xff\xff" + std::string(20, '\0')},
      {"name longer than names are",
       hello + header(sbtProgressCode, 38 + 513) + std::string(16, '\0') + "\x02\x02" + std::string(20 + 513, '\0')},
  };
  for (const auto& [name, bytes] : cases) {
    const OwnFd raw = rawConnection();
    ASSERT_EQ(send(raw.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size())) << name;
    char answer[256];
    ssize_t received = 1;
    while ((received = recv(raw.get(), answer, sizeof(answer), 0)) > 0) {
    }
    EXPECT_TRUE(received == 0 || errno == ECONNRESET) << name;
    EXPECT_TRUE(succeeded(other.tell(sbtStatusCode, aStatus))) << name;
  }
}

TEST_F(SessionServer, ClientThatStopsInTheMiddleHoldsNobodyUpAndIsDropped) {
  server_.setPatience(200);
  serve();
  const OwnFd half = rawConnection();
  const std::string bytes = hello + header(sbtStatusCode, 24) + "abc";
  ASSERT_GT(send(half.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
  const OwnFd silent = rawConnection();
  SessionClient other;
  ASSERT_TRUE(succeeded(other.connect(folder_, service_, 1)));
  char answer[64];
  ASSERT_GT(recv(half.get(), answer, sizeof(answer), 0), 0);
  EXPECT_EQ(recv(half.get(), answer, sizeof(answer), 0), 0);
  EXPECT_EQ(recv(silent.get(), answer, sizeof(answer), 0), 0);
  // One that has said all it wanted may be silent for as long as it likes.
  EXPECT_TRUE(succeeded(other.tell(sbtStatusCode, aStatus)));
}

TEST_F(SessionServer, FloodOfOneClientWhoTakesNoAnswersIsBoundedAndLeavesOthersAlone) {
  server_.setPatience(300);
  serve();
  const OwnFd flood = rawConnection();
  const std::string message = header(sbtStatusCode, 24) + std::string(24, '\0');
  std::string bytes = hello;
  while (bytes.size() < 65536) bytes += message;
  std::size_t sent = 0;
  std::thread flooding([&] {
    ssize_t count = 0;
    while (sent < 64U << 20 && (count = send(flood.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL)) > 0) {
      sent += static_cast<std::size_t>(count);
      bytes.erase(0, bytes.size() < 65536 ? 0 : hello.size());
    }
  });
  SessionClient other;
  ASSERT_TRUE(succeeded(other.connect(folder_, service_, 1)));
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(succeeded(other.tell(sbtStatusCode, aStatus)));
  flooding.join();
  EXPECT_LT(sent, 8U << 20);
}

TEST_F(SessionServer, ThousandConnectionsAreServed) {
  // Both ends of each are in this process.
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  serve();
  std::vector<std::unique_ptr<SessionClient>> clients;
  for (int i = 0; i < 1000; ++i) {
    clients.push_back(std::make_unique<SessionClient>());
    ASSERT_TRUE(succeeded(clients.back()->connect(folder_, service_, i))) << i;
  }
  for (const auto& client : clients) ASSERT_TRUE(succeeded(client->tell(sbtStatusCode, aStatus)));
  clients.clear();
  EXPECT_TRUE(waitUntil([&] { return recorder_->seen().size() == 3000; })) << recorder_->seen().size();
}

TEST_F(SessionServer, ClientsWaitWhileDescriptorsAreShort) {
  serve();
  SessionClient early;
  ASSERT_TRUE(succeeded(early.connect(folder_, service_, 1)));
  const OwnFd waiting = rawConnection();
  std::vector<OwnFd> filling;
  do {
    filling.emplace_back(dup(0));
  } while (filling.back().valid());
  filling.pop_back();
  filling.pop_back();  // for the client's own end
  const OwnFd late = rawConnection();
  EXPECT_TRUE(succeeded(early.tell(sbtStatusCode, aStatus)));
  EXPECT_TRUE(waitUntil([&] { return backend_.log().contains("cannot serve another client now"); }));
  filling.clear();
  ASSERT_GT(send(late.get(), hello.data(), hello.size(), MSG_NOSIGNAL), 0);
  char answer[64];
  EXPECT_GT(recv(late.get(), answer, sizeof(answer), 0), 0);
  const std::vector<std::string> lines = backend_.log().texts();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& text) { return text.find("cannot serve another") == 0; }),
            1);
}

TEST_F(SessionServer, OnlyAdmittedAccountsAreServed) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take another account";
  server_.admit(12345);
  serve();
  const auto connectsAs = [&](uid_t account) {
    return inChild([&] {
             SessionClient client(2000);
             return setuid(account) == 0 && client.connect(folder_, service_, 1).ok() ? 0 : 1;
           }) == 0;
  };
  EXPECT_TRUE(connectsAs(0));
  EXPECT_TRUE(connectsAs(12345));
  EXPECT_FALSE(connectsAs(54321));
  EXPECT_TRUE(backend_.log().contains("account 54321 is not served"));
}

TEST_F(SessionServer, DeadSocketIsReplacedAndALivingOneNever) {
  serve();
  DbSessionServer second(recorder_);
  EXPECT_EQ(second.StartSessionServer(service_, nullptr, 104).code(), EADDRINUSE);
  SessionClient client;
  EXPECT_TRUE(succeeded(client.connect(folder_, service_, 1)));
  stop();

  leaveDeadSocket(path());
  ASSERT_TRUE(isSocket());
  server_.prepare();
  serve();
  SessionClient another;
  EXPECT_TRUE(succeeded(another.connect(folder_, service_, 1)));
  stop();

  writeFile(path(), "not a socket", 0600);
  server_.prepare();
  const auto begun = std::chrono::steady_clock::now();
  begin();
  EXPECT_FALSE(server_.waitUntilListening(60'000));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30)) << "who waits for it is told so";
  stop();
  EXPECT_EQ(result_.code(), EEXIST);
  EXPECT_EQ(readFile(path()), "not a socket");
}

TEST_F(SessionServer, DeadSocketsOfOtherJobsAreRemovedAndNothingElse) {
  DbSessionServer living(recorder_);
  std::thread other([&] { living.StartSessionServer(sessionServiceName(1), nullptr, 104); });
  ASSERT_TRUE(living.waitUntilListening(60'000));
  leaveDeadSocket(folder_ + "/MySqlSBTSrv_2.sock");
  leaveDeadSocket(folder_ + "/MySqlSBTSrv_3.sock");
  leaveDeadSocket(folder_ + "/another.sock");
  writeFile(folder_ + "/MySqlSBTSrv_4.sock", "not a socket", 0600);
  SessionClient client;
  ASSERT_TRUE(succeeded(client.connect(folder_, sessionServiceName(1), 1)));
  serve();
  EXPECT_TRUE(succeeded(client.tell(sbtStatusCode, aStatus)));
  stop();
  EXPECT_EQ(namesIn(folder_), (std::vector<std::string>{"MySqlSBTSrv_1.sock", "MySqlSBTSrv_4.sock", "another.sock"}));
  living.CleanupSessionServer();
  other.join();
}

TEST_F(SessionServer, CleanUpWaitsForNobodyWhoKeepsTheFolderLocked) {
  const OwnFd folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(folder.get(), LOCK_EX), 0);
  begin();
  EXPECT_FALSE(server_.waitUntilListening(200));
  stop();
  EXPECT_EQ(result_.code(), ECANCELED);
  EXPECT_FALSE(server_.waitUntilListening(60'000));
  server_.prepare();
  begin();
  ASSERT_EQ(flock(folder.get(), LOCK_UN), 0);
  EXPECT_TRUE(server_.waitUntilListening(60'000));
}

TEST_F(SessionServer, CleanUpEndsServingWhateverClientsDoAndCountsForLaterStarts) {
  serve();
  SessionClient client;
  ASSERT_TRUE(succeeded(client.connect(folder_, service_, 1)));
  EXPECT_FALSE(server_.StartSessionServer(service_, nullptr, 104).isError());  // the name is served
  EXPECT_TRUE(server_.StartSessionServer("another", nullptr, 104).isError());
  stop();
  EXPECT_EQ(client.tell(sbtStatusCode, aStatus).code, statusUnavailable);
  EXPECT_EQ(recorder_->seen(), (std::vector<std::string>{"connect"}));  // nobody is told of an end that we made
  EXPECT_EQ(server_.StartSessionServer(service_, nullptr, 104).code(), ECANCELED);
  server_.prepare();
  serve();
}

std::atomic<int> idleTimes{0};

TEST_F(SessionServer, IdleIntervalsPassUncountedWhileNoClientOwesAWord) {
  idleTimes = 0;
  server_.setIdleInterval(20);
  serve([](void*) { ++idleTimes; });
  SessionClient first;
  SessionClient second;
  const auto come = [&](SessionClient& client) { ASSERT_TRUE(succeeded(client.connect(folder_, service_, 1))); };
  const auto tell = [](SessionClient& client, std::uint32_t code, SbtImageState state) {
    ASSERT_TRUE(succeeded(client.tell(code, encodeMessage(SbtStatusMessage{1, 2, 0, static_cast<int>(state)}))));
  };
  const auto go = [&](SessionClient& client) {
    const std::size_t before = recorder_->seen().size();
    client.disconnect();
    ASSERT_TRUE(waitUntil([&] { return recorder_->seen().size() > before; }));
  };
  using State = SbtImageState;
  const struct {
    const char* what;
    std::function<void()> act;
    bool owed;
  } steps[] = {
      {"nobody came", [] {}, true},
      {"one comes", [&] { come(first); }, true},
      {"begins a run", [&] { tell(first, sbtRunCode, State::begun); }, true},
      {"begins an image", [&] { tell(first, sbtStatusCode, State::begun); }, true},
      {"begins another beside it", [&] { tell(first, sbtStatusCode, State::begun); }, true},
      {"ends one", [&] { tell(first, sbtStatusCode, State::done); }, true},
      {"ends the other", [&] { tell(first, sbtStatusCode, State::givenUp); }, false},
      {"begins a third", [&] { tell(first, sbtStatusCode, State::begun); }, true},
      {"ends it", [&] { tell(first, sbtStatusCode, State::done); }, false},
      {"begins a new run", [&] { tell(first, sbtRunCode, State::done); }, true},
      {"ends an image of a lost connection", [&] { tell(first, sbtStatusCode, State::done); }, false},
      {"tells a state that nobody knows", [&] { tell(first, sbtStatusCode, State{7}); }, true},
      {"ends again", [&] { tell(first, sbtStatusCode, State::done); }, false},
      {"another comes", [&] { come(second); }, true},
      {"goes without a word", [&] { go(second); }, true},
      {"comes back", [&] { come(second); }, true},
      {"tells its end", [&] { tell(second, sbtStatusCode, State::done); }, false},
      {"both go", [&] { go(first), go(second); }, false},
      {"one comes again", [&] { come(first); }, true},
  };
  for (const auto& [what, act, owed] : steps) {
    act();
    const auto acted = std::chrono::steady_clock::now();
    const int before = idleTimes;
    if (owed) {
      EXPECT_TRUE(waitUntil([&] { return idleTimes > before; })) << what;
    } else {
      EXPECT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - acted > std::chrono::milliseconds(100); }));
      EXPECT_EQ(idleTimes, before) << what;
    }
  }
}

TEST_F(SessionServer, EveryThingThatAClientDoesBeginsTheCountAnew) {
  server_.setIdleInterval(600'000);
  serve();
  SessionClient client;
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"comes", [&] { ASSERT_TRUE(succeeded(client.connect(folder_, service_, 1))); }},
      {"speaks", [&] { ASSERT_TRUE(succeeded(client.tell(sbtStatusCode, aStatus))); }},
      {"is refused", [&] { ASSERT_TRUE(failed(client.tell(77, "anything"), statusFailed)); }},
      {"goes", [&] { client.disconnect(); }},
  };
  for (const auto& [what, act] : cases) {
    server_.idleTimeoutCount = 3;
    act();
    EXPECT_TRUE(waitUntil([&] { return server_.idleTimeoutCount == 0; })) << what;
  }
}

TEST_F(SessionServer, ClientThatSpeaksWithinEveryIntervalNeverSeesItPass) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds interval{400};
  server_.setIdleInterval(interval.count());
  // A machine that stands still for an interval tells nothing about the server.
  for (int attempt = 0; attempt < 10; ++attempt) {
    server_.prepare();
    idleTimes = 0;
    const auto begun = Clock::now();
    serve([](void*) { ++idleTimes; });
    SessionClient client;
    ASSERT_TRUE(succeeded(client.connect(folder_, service_, 1)));
    auto spoken = Clock::now();
    bool inTime = spoken - begun < interval;
    while (inTime && spoken - begun < 3 * interval) {
      EXPECT_TRUE(waitUntil([&] { return Clock::now() - spoken >= interval / 2; }));
      const auto before = std::exchange(spoken, Clock::now());
      ASSERT_TRUE(succeeded(client.tell(sbtStatusCode, aStatus)));
      inTime = Clock::now() - before < interval;
    }
    const int passed = idleTimes;
    stop();
    if (!inTime) continue;
    EXPECT_EQ(passed, 0);
    return;
  }
  FAIL() << "the machine never got through three intervals";
}

TEST_F(SessionServer, IdleIntervalComesFromTheSettings) {
  backend_.setSetting("Session", "nIdleSeconds", "soon");
  const CKyError error = server_.StartSessionServer(service_, nullptr, 104);
  EXPECT_EQ(error.code(), EINVAL);
  EXPECT_NE(error.text().find("nIdleSeconds"), std::string::npos);
}

}  // namespace
}  // namespace orrery::test
