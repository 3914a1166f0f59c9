#include "server_greeting.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "orrery/mysql/MySqlHelperClasses.h"

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

OwnFd connectToHost(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return OwnFd();
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, ::freeaddrinfo);
  return connectTo(found->ai_addr, found->ai_addrlen);
}

}  // namespace

Greeting greetingOf(const std::string& socket, std::chrono::milliseconds limit) {
  std::string host;
  std::string port;
  GetMySqlInfo().GetHostPortFromSocket(socket, host, port);
  errno = 0;
  const OwnFd file = host.empty() ? connectToPath(socket) : connectToHost(host, port);
  // The queue of those who wait for a server that takes nobody is full.
  if (!file.valid()) return errno == EAGAIN ? Greeting::silent : Greeting::none;
  pollfd polled{file.get(), POLLIN, 0};
  const int ready = ::poll(&polled, 1, static_cast<int>(limit.count()));
  if (ready <= 0) return Greeting::silent;
  char first = 0;
  return ::recv(file.get(), &first, 1, 0) == 1 ? Greeting::given : Greeting::none;
}

}  // namespace orrery::tool
