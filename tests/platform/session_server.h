#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "orrery/platform/SessionClient.h"
#include "orrery/platform/testing/test_backend.h"

#include "fixtures.h"
#include "support/program.h"
#include "support/session_recorder.h"

namespace orrery::test {

using DBAgentUtils::DbSessionServer;
using platform::OwnFd;
using platform::SessionClient;

/// Sees to it that every message comes with its connection and with the server that it came to.
class Recorder final : public SessionRecorder {
 public:
  CKyError OnClientMsg(CDzNetwork* network, DznHandle_t handle, unsigned long code, dzsDatabuf_v2* data,
                       CDzNetworkServer* server) override {
    EXPECT_EQ(handle, network->handle());
    EXPECT_EQ(static_cast<DbSessionServer*>(server->GetCustomData())->handler().get(), this);
    return SessionRecorder::OnClientMsg(network, handle, code, data, server);
  }
};

inline sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  return address;
}

/// A server of a job in a thread of its own, and its folder.
class SessionServer : public ::testing::Test {
 protected:
  void SetUp() override {
    // Other accounts pass through the agent's folders, as in a home.
    ASSERT_EQ(chmod(backend_.directory().c_str(), 0711), 0);
    ASSERT_EQ(chmod(folder_.c_str(), 0711), 0);
  }
  void TearDown() override { stop(); }

  void begin(DbSessionServer::IdleCallback idle = nullptr) {
    thread_ = std::thread([this, idle] { result_ = server_.StartSessionServer(service_, idle, 104); });
  }
  void serve(DbSessionServer::IdleCallback idle = nullptr) {
    begin(idle);
    ASSERT_TRUE(server_.waitUntilListening(60'000));
    ASSERT_TRUE(isSocket());
  }
  void stop() {
    server_.CleanupSessionServer();
    if (thread_.joinable()) thread_.join();
  }
  std::string path() const { return folder_ + "/" + service_ + ".sock"; }
  /// A socket as a process that was killed leaves it: bound and not served.
  static void leaveDeadSocket(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const OwnFd dead(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  bool isSocket() const {
    struct stat status {};
    return lstat(path().c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
  }
  /// A connection below the protocol, for bytes that no client of ours sends.
  OwnFd rawConnection() const {
    const sockaddr_un address = addressOf(path());
    OwnFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_TRUE(waitUntil([&] {
      return connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 || errno == EISCONN;
    }));
    return fd;
  }

  const std::string service_ = platform::sessionServiceName(4711);
  platform::testing::TestBackend backend_;
  const platform::ScopedServices installed_{backend_.services()};
  const std::string folder_ = backend_.temporary();
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  DbSessionServer server_{recorder_};
  std::thread thread_;
  CKyError result_;
};

}  // namespace orrery::test
