// Stands in for a server that does nothing: listens on a Unix socket and on a free TCP port of this machine, writes a
// line once it does, and tells a version.
// usage: mysqld SOCKET | mysqld --version

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string_view>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  if (std::string_view(argv[1]) == "--version") return std::puts("mysqld  Ver 8.0.26 for Linux on x86_64") < 0 ? 1 : 0;
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  if (std::strlen(argv[1]) >= sizeof local.sun_path) return 2;
  std::strcpy(local.sun_path, argv[1]);
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int unixSocket = socket(AF_UNIX, SOCK_STREAM, 0);
  const int tcpSocket = socket(AF_INET, SOCK_STREAM, 0);
  if (bind(unixSocket, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 || listen(unixSocket, 1) != 0 ||
      bind(tcpSocket, reinterpret_cast<sockaddr*>(&loopback), sizeof loopback) != 0 || listen(tcpSocket, 1) != 0) {
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  for (;;) pause();
}
