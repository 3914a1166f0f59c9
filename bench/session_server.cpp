// Progress messages of a media library through the session server, the handler and the job's counters, beside a bare
// Unix socket over which messages and answers of the same sizes go back and forth. Once on a job manager in memory,
// once on the store of a home.
// usage: orrery-bench-session-server [PAIRS]        a pair is two thousand messages each way

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/SessionClient.h"
#include "orrery/platform/home.h"
#include "orrery/platform/testing/test_backend.h"

#include "bench/pairs.h"
#include "support/temporary_directory.h"

namespace {

using orrery::bench::compare;
using orrery::bench::require;
using orrery::platform::OwnFd;
using orrery::platform::services;

constexpr int messages = 2000;
constexpr std::size_t headerSize = 16;
constexpr std::size_t answerSize = headerSize + 6;

class Driver : public MySqlSBTUtils {
 public:
  explicit Driver(long long jobId) {
    require(initializeJobControl(jobId, DZJobType::backup, "", nullptr) == 0, "no job");
    handler_->setSBTAgent(this);
    thread_ = std::thread([this] { startThreadForMEBSessionServer(sessionServer_.get()); });
  }
  ~Driver() override {
    cleanUp();
    thread_.join();
  }
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

 private:
  std::thread thread_;
};

std::string progress(long long jobId, std::int64_t i) {
  return orrery::platform::encodeMessage(SbtProgressMessage{jobId, 1, "sbt:3_1200_1700000000", i << 20, 1, 1});
}

/// Answers every message of one size with one of another, as a server that does nothing would.
class BareServer {
 public:
  explicit BareServer(std::size_t messageSize) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no sockets");
    client_ = OwnFd(ends[0]);
    server_ = OwnFd(ends[1]);
    thread_ = std::thread([this, messageSize] {
      std::string buffer(messageSize, '\0');
      const std::string answer(answerSize, 'a');
      while (recv(server_.get(), buffer.data(), buffer.size(), MSG_WAITALL) == static_cast<ssize_t>(messageSize))
        if (send(server_.get(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return;
    });
  }
  ~BareServer() {
    shutdown(client_.get(), SHUT_RDWR);
    thread_.join();
  }
  BareServer(const BareServer&) = delete;
  BareServer& operator=(const BareServer&) = delete;

  void tell(const std::string& message) const {
    char answer[answerSize];
    require(send(client_.get(), message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size()) &&
                recv(client_.get(), answer, sizeof(answer), MSG_WAITALL) == static_cast<ssize_t>(sizeof(answer)),
            "the bare server is gone");
  }

 private:
  OwnFd client_, server_;
  std::thread thread_;
};

long long startJob() {
  long long id = 0;
  require(services().jobs->start({}, id).ok(), "no job can be made");
  return id;
}

void measure(const char* name, int pairs) {
  const long long jobId = startJob();
  const orrery::platform::ScopedJob job(jobId);
  Driver driver(jobId);
  std::string folder;
  require(services().directories->temporary(folder).ok(), "no folder");
  orrery::platform::SessionClient client;
  const std::string service = orrery::platform::sessionServiceName(jobId);
  for (int i = 0; i < 1000 && !client.connect(folder, service, jobId).ok(); ++i) usleep(5000);
  require(client.connected(), "no session server");

  const BareServer bare(headerSize + progress(jobId, 1).size());
  std::int64_t told = 0;
  compare(
      name, pairs,
      [&] {
        for (int i = 0; i < messages; ++i)
          require(client.tell(sbtProgressCode, progress(jobId, ++told)).ok(), "a message was not taken");
      },
      [&] {
        for (int i = 0; i < messages; ++i) bare.tell(std::string(headerSize, 'h') + progress(jobId, i));
      });
  orrery::platform::JobRecord record;
  require(services().jobs->find(jobId, record).ok() && record.bytes == told << 20, "the job's bytes are not right");
}

}  // namespace

int main(int argc, char** argv) {
  const int pairs = argc > 1 ? std::atoi(argv[1]) : 20;
  std::printf("%-37s %11s %11s   %s\n", "two thousand progress messages", "ours", "bare", "ratio");
  {
    orrery::platform::testing::TestBackend backend;
    backend.log().setThreshold(0);  // as an agent logs
    const orrery::platform::ScopedServices installed(backend.services());
    measure("job manager in memory", pairs);
  }
  const orrery::test::TemporaryDirectory directory;
  const std::string home = directory / "home";
  std::shared_ptr<const orrery::platform::Services> opened;
  require(orrery::platform::createHome(home, "bench").ok() && orrery::platform::openHome(home, opened).ok(), "no home");
  const orrery::platform::ScopedServices installed(opened);
  measure("job manager of a home", std::max(1, pairs / 4));
  return 0;
}
