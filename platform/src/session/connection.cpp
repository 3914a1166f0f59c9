#include "connection.h"

#include <sys/socket.h>

#include <cerrno>

namespace orrery::platform::session {
namespace {

constexpr std::size_t portion = 16384;

/// Handlers get a number in the place of a handle; it is never followed.
DznHandle_t handleOf(std::uint64_t number) {
  return reinterpret_cast<DznHandle_t>(static_cast<std::uintptr_t>(number));  // NOLINT(performance-no-int-to-ptr)
}

bool isPassing(int error) {
  return error == EAGAIN || error == EINTR;
}

}  // namespace

Connection::Connection(OwnFd socket, std::uint64_t number, Time now)
    : socket_(std::move(socket)), number_(number), network_(handleOf(number)), lastProgress_(now) {}

void Connection::note(std::uint32_t code, const dzsDatabuf_v2& data) noexcept {
  toldItsEnd_ = false;
  if (code != sbtStatusCode) return;
  const auto state = static_cast<SbtImageState>(static_cast<const SbtStatusMessage*>(data.getDataBuffer())->status);
  if (state == SbtImageState::begun) ++openImages_;
  if (state != SbtImageState::done && state != SbtImageState::givenUp) return;
  // A client that came back ends images that it began on its lost connection.
  if (openImages_ > 0) --openImages_;
  toldItsEnd_ = openImages_ == 0;
}

bool Connection::receive(Time now) {
  char bytes[portion];
  const ssize_t received = ::recv(socket_.get(), bytes, sizeof(bytes), 0);
  if (received <= 0) return received < 0 && isPassing(errno);
  // A client that sends single bytes gets no more time for one frame than any other.
  if (reader_.empty()) lastProgress_ = now;
  reader_.append(bytes, static_cast<std::size_t>(received));
  return true;
}

FrameReader::Next Connection::next(Frame& frame, Time now) {
  if (hasAnswersLeft()) return FrameReader::Next::incomplete;
  const FrameReader::Next next = reader_.next(frame);
  if (next == FrameReader::Next::frame) lastProgress_ = now;
  return next;
}

bool Connection::send() {
  while (!outgoing_.empty()) {
    const ssize_t sent = ::send(socket_.get(), outgoing_.data(), outgoing_.size(), MSG_NOSIGNAL);
    if (sent < 0) return isPassing(errno);
    outgoing_.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

bool Connection::isOverdue(Time now, std::chrono::milliseconds patience) const noexcept {
  return (!greeted_ || !reader_.empty() || hasAnswersLeft()) && now - lastProgress_ > patience;
}

bool peerAccount(int socket, uid_t& account) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  account = peer.uid;
  return true;
}

}  // namespace orrery::platform::session
