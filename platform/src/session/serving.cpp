#include "serving.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>

namespace orrery::platform::session {
namespace {

constexpr const char* tag = "DbSessionServer::StartSessionServer";
constexpr std::size_t mostConnections = 4096;
constexpr std::uint64_t stopNumber = UINT64_MAX;
constexpr std::uint64_t listenerNumber = UINT64_MAX - 1;
constexpr std::chrono::milliseconds betweenTries{100};

}  // namespace

Serving::Serving(DBAgentUtils::DbSessionServer& server, Plan plan)
    : server_(server), plan_(std::move(plan)), networkServer_(&server) {}

CKyError Serving::watch(int fd, std::uint64_t number, std::uint32_t what) {
  epoll_event wanted{};
  wanted.events = what;
  wanted.data.u64 = number;
  int rc = ::epoll_ctl(events_.get(), EPOLL_CTL_ADD, fd, &wanted);
  if (rc != 0 && errno == EEXIST) rc = ::epoll_ctl(events_.get(), EPOLL_CTL_MOD, fd, &wanted);
  return rc == 0 ? CKyError() : CKyError(errno, "cannot watch a socket: " + errorText(errno));
}

CKyError Serving::open() {
  events_ = OwnFd(aboveStandardStreams(::epoll_create1(EPOLL_CLOEXEC)));
  if (!events_) return {errno, "cannot watch sockets: " + errorText(errno)};
  CKyError error = listener_.listen(plan_.folder, plan_.serviceName, !plan_.admitted.empty(), plan_.stop);
  if (error.isError()) return error;
  if (error = watch(plan_.stop, stopNumber, EPOLLIN); error.isError()) return error;
  return watch(listener_.fd(), listenerNumber, EPOLLIN);
}

CKyError Serving::run() {
  idleDeadline_ = std::chrono::steady_clock::now() + plan_.idleInterval;
  std::array<epoll_event, 64> happened{};
  while (true) {
    const int count = ::epoll_wait(events_.get(), happened.data(), static_cast<int>(happened.size()),
                                   timeout(std::chrono::steady_clock::now()));
    if (count < 0 && errno != EINTR) return {errno, "cannot wait for clients: " + errorText(errno)};
    const Time now = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = happened[static_cast<std::size_t>(i)];
      if (event.data.u64 == stopNumber) return {};
      if (event.data.u64 == listenerNumber) {
        accept(now);
      } else if (const auto found = connections_.find(event.data.u64); found != connections_.end()) {
        serve(*found->second, event.events, now);
      }
    }
    if (!listening_ && now >= listenAgain_) listening_ = !watch(listener_.fd(), listenerNumber, EPOLLIN).isError();
    dropOverdue(now);
    tellIdle(now);
  }
}

int Serving::timeout(Time now) const {
  auto wait = std::chrono::ceil<std::chrono::milliseconds>(idleDeadline_ - now);
  if (!connections_.empty()) wait = std::min(wait, std::max(plan_.patience / 10, betweenTries));
  if (!listening_) wait = std::min(wait, betweenTries);
  return static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, 3'600'000));
}

void Serving::accept(Time now) {
  OwnFd socket(aboveStandardStreams(::accept4(listener_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)));
  if (!socket) {
    if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return;
    if (!toldOfShortage_) event_.Error(tag, "cannot serve another client now: %s", errorText(errno).c_str());
    toldOfShortage_ = true;
    ::epoll_ctl(events_.get(), EPOLL_CTL_DEL, listener_.fd(), nullptr);
    listening_ = false;
    listenAgain_ = now + betweenTries;
    return;
  }
  toldOfShortage_ = false;
  uid_t account = 0;
  if (!peerAccount(socket.get(), account) || !isAdmitted(account)) {
    event_.Error(tag, "a process of account %u is not served", account);
    return;
  }
  if (connections_.size() >= mostConnections) {
    event_.Error(tag, "there are %zu clients already; another one is not served", connections_.size());
    return;
  }
  auto connection = std::make_unique<Connection>(std::move(socket), ++lastNumber_, now);
  if (watch(connection->fd(), connection->number(), EPOLLIN).isError()) return;
  connections_.emplace(connection->number(), std::move(connection));
}

bool Serving::isAdmitted(uid_t account) const {
  return account == 0 || account == ::geteuid() ||
         std::find(plan_.admitted.begin(), plan_.admitted.end(), account) != plan_.admitted.end();
}

void Serving::serve(Connection& connection, std::uint32_t what, Time now) {
  const bool hadAnswersLeft = connection.hasAnswersLeft();
  if (!connection.send()) return drop(connection, "it does not take its answers");
  // A client that does not take its answers is not read from, so that none can pile them up.
  if (connection.hasAnswersLeft()) {
    if ((what & (EPOLLHUP | EPOLLERR)) != 0) drop(connection, "it went with answers left");
    return;
  }
  if ((what & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0 && !connection.receive(now)) return drop(connection, "it ended");
  if (!serveFrames(connection, now)) return drop(connection, "what it sends cannot be understood");
  if (connection.hasAnswersLeft() != hadAnswersLeft &&
      watch(connection.fd(), connection.number(), connection.hasAnswersLeft() ? EPOLLOUT : EPOLLIN).isError())
    drop(connection, "it cannot be watched");
}

bool Serving::serveFrames(Connection& connection, Time now) {
  Frame frame;
  while (true) {
    switch (connection.next(frame, now)) {
      case FrameReader::Next::incomplete:
        return true;
      case FrameReader::Next::malformed:
        return false;
      case FrameReader::Next::frame:
        break;
    }
    if (!serveFrame(connection, frame, now) || !connection.send()) return false;
  }
}

bool Serving::serveFrame(Connection& connection, const Frame& frame, Time now) {
  long long jobId = 0;
  const bool isHello = frame.code == helloCode;
  if (isHello == connection.greeted() || (isHello && !decodeHello(frame.payload, jobId))) return false;
  noteActivity(now);
  CKyError result;
  bool wellFormed = true;
  try {
    if (isHello) {
      event_.DebugLvl(tag, 4, "client %llu of job %lld", static_cast<unsigned long long>(connection.number()), jobId);
      connection.greet();
      clientMissing_ = false;
      result = server_.handler()->OnClientConnect(&connection.network(), static_cast<long long>(connection.number()),
                                                  &networkServer_);
    } else {
      result = deliver(connection, frame, wellFormed);
    }
  } catch (const std::exception& failure) {
    event_.Error(tag, "a message was not handled: %s", failure.what());
    result = CKyError(1, "the message was not handled");
  }
  if (wellFormed) connection.answer(result.code(), result.text());
  return wellFormed;
}

CKyError Serving::deliver(Connection& connection, const Frame& frame, bool& wellFormed) {
  dzsDatabuf_v2 data;
  wellFormed = data.assign(frame.code, frame.payload);
  if (!wellFormed) return {};
  connection.note(frame.code, data);
  return server_.handler()->OnClientMsg(&connection.network(), connection.handle(), frame.code, &data, &networkServer_);
}

void Serving::drop(Connection& connection, const char* reason) {
  const auto found = connections_.find(connection.number());
  const std::unique_ptr<Connection> gone = std::move(found->second);
  connections_.erase(found);
  event_.DebugLvl(tag, 4, "client %llu: %s", static_cast<unsigned long long>(gone->number()), reason);
  if (!gone->greeted()) return;
  noteActivity(std::chrono::steady_clock::now());
  if (!gone->hasToldItsEnd()) clientMissing_ = true;
  try {
    server_.handler()->OnClientDisconnect(&gone->network(), static_cast<unsigned long>(gone->number()),
                                          &networkServer_);
  } catch (const std::exception& failure) {
    event_.Error(tag, "the end of a connection was not handled: %s", failure.what());
  }
}

void Serving::dropOverdue(Time now) {
  for (auto next = connections_.begin(); next != connections_.end();) {
    Connection& connection = *(next++)->second;
    if (connection.isOverdue(now, plan_.patience)) drop(connection, "it keeps the server waiting");
  }
}

void Serving::noteActivity(Time now) {
  server_.idleTimeoutCount = 0;
  idleDeadline_ = now + plan_.idleInterval;
}

bool Serving::isWordOwed() const {
  return clientMissing_ || std::any_of(connections_.begin(), connections_.end(), [](const auto& each) {
           return each.second->greeted() && !each.second->hasToldItsEnd();
         });
}

void Serving::tellIdle(Time now) {
  if (now < idleDeadline_) return;
  idleDeadline_ = now + plan_.idleInterval;
  if (plan_.idle != nullptr && isWordOwed()) plan_.idle(&server_);
}

}  // namespace orrery::platform::session
