#include "support/statement_gate.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace orrery::test {
namespace {

constexpr int pollMilliseconds = 50;
constexpr int answerMilliseconds = 10000;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error("the socket's path is too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

platform::OwnFd newSocket() {
  platform::OwnFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) throw std::runtime_error("no socket");
  return fd;
}

bool isReadable(int fd, int milliseconds = pollMilliseconds) {
  pollfd polled{fd, POLLIN, 0};
  return ::poll(&polled, 1, milliseconds) > 0;
}

}  // namespace

StatementGate::StatementGate(std::string path, std::string serverSocket, std::string text, std::function<Then()> onSeen)
    : path_(std::move(path)),
      serverSocket_(std::move(serverSocket)),
      text_(std::move(text)),
      onSeen_(std::move(onSeen)),
      listener_(newSocket()) {
  const sockaddr_un address = addressOf(path_);
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::listen(listener_.get(), 8) != 0) {
    throw std::runtime_error(path_ + ": " + platform::errorText(errno));
  }
  acceptor_ = std::thread([this] { accept(); });
}

StatementGate::~StatementGate() {
  ends_ = true;
  acceptor_.join();
  for (std::thread& connection : connections_) connection.join();
  ::unlink(path_.c_str());
}

void StatementGate::accept() {
  while (!ends_) {
    if (!isReadable(listener_.get())) continue;
    platform::OwnFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (client.valid()) connections_.emplace_back([this, fd = client.release()] { serve(platform::OwnFd(fd)); });
  }
}

void StatementGate::serve(platform::OwnFd client) {
  const platform::OwnFd server = newSocket();
  const sockaddr_un address = addressOf(serverSocket_);
  if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) return;
  while (!ends_) {
    std::array<pollfd, 2> ends{pollfd{client.get(), POLLIN, 0}, pollfd{server.get(), POLLIN, 0}};
    if (::poll(ends.data(), ends.size(), pollMilliseconds) <= 0) continue;
    if (ends[0].revents != 0 && !handOn(client.get(), server.get(), true)) return;
    if (ends[1].revents != 0 && !handOn(server.get(), client.get(), false)) return;
  }
}

bool StatementGate::handOn(int from, int to, bool isStatement) {
  std::array<char, 65536> bytes{};
  const ssize_t size = ::read(from, bytes.data(), bytes.size());
  if (size <= 0) return false;
  const std::string_view sent(bytes.data(), static_cast<std::size_t>(size));
  Then then = Then::handOn;
  if (isStatement && sent.find(text_) != std::string_view::npos && !wasSeen_.exchange(true)) then = onSeen_();
  if (then == Then::breakConnection) return false;
  const bool handedOn = ::send(to, sent.data(), sent.size(), MSG_NOSIGNAL) == size;
  // Its answer shows that the server has carried it out.
  if (then == Then::breakBehind) isReadable(to, answerMilliseconds);
  return handedOn && then == Then::handOn;
}

}  // namespace orrery::test
