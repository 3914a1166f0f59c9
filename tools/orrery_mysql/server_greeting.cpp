#include "server_greeting.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "failure.h"
#include "interrupt.h"
#include "posix.h"

namespace orrery::tool {
namespace {

constexpr int kind = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;

/// A connection, perhaps still on its way; invalid when it is refused at once. errno says why.
OwnFd connectTo(const sockaddr* address, socklen_t size) {
  OwnFd file(::socket(address->sa_family, kind, 0));
  if (file.valid() && ::connect(file.get(), address, size) != 0 && errno != EINPROGRESS) return OwnFd();
  return file;
}

OwnFd connectToPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return OwnFd();
  std::memcpy(address.sun_path, path.data(), path.size());
  return connectTo(reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// To every address of the host that does not refuse at once: a server may listen at one of them alone.
std::vector<OwnFd> connectToHost(const std::string& host, const std::string& port) {
  std::vector<OwnFd> files;
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return files;
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, ::freeaddrinfo);
  for (const addrinfo* each = found; each != nullptr; each = each->ai_next)
    if (OwnFd file = connectTo(each->ai_addr, each->ai_addrlen); file.valid()) files.push_back(std::move(file));
  return files;
}

/// Given as soon as one of them speaks; none when all have ended without a word.
Greeting greetingOn(const std::vector<OwnFd>& files, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::vector<pollfd> polled;
  for (const OwnFd& file : files) polled.push_back({file.get(), POLLIN, 0});
  for (std::size_t left = polled.size(); left > 0;) {
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    const int ready = ::poll(polled.data(), polled.size(), static_cast<int>(std::max<std::int64_t>(rest, 0)));
    if (interruptSignal() != 0) throw Interrupted();
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return Greeting::silent;
    for (pollfd& each : polled) {
      char first = 0;
      if (each.revents == 0) continue;
      if (::recv(each.fd, &first, 1, 0) == 1) return Greeting::given;
      each.fd = -1;  // it ended; poll passes over it
      --left;
    }
  }
  return Greeting::none;
}

}  // namespace

Greeting greetingOf(const std::string& socket, std::chrono::milliseconds limit) {
  std::string host;
  std::string port;
  GetMySqlInfo().GetHostPortFromSocket(socket, host, port);
  std::vector<OwnFd> files;
  if (!host.empty()) {
    files = connectToHost(host, port);
  } else {
    errno = 0;
    files.push_back(connectToPath(socket));
    // The queue of those who wait for a server that takes nobody is full.
    if (!files.back().valid()) return errno == EAGAIN ? Greeting::silent : Greeting::none;
  }
  return greetingOn(files, limit);
}

}  // namespace orrery::tool
