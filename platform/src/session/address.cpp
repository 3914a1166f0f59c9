#include "address.h"

#include <fcntl.h>

#include <cstdio>

namespace orrery::platform::session {

Address::Address(int folder, const std::string& serviceName) : fileName_(serviceName + ".sock") {
  address_.sun_family = AF_UNIX;
  if (serviceName.empty() || serviceName.find('/') != std::string::npos || serviceName.find('\0') != std::string::npos)
    return;
  const int written =
      std::snprintf(address_.sun_path, sizeof(address_.sun_path), "/proc/self/fd/%d/%s", folder, fileName_.c_str());
  valid_ = written > 0 && static_cast<std::size_t>(written) < sizeof(address_.sun_path);
}

const sockaddr* Address::get() const noexcept {
  return reinterpret_cast<const sockaddr*>(&address_);
}

OwnFd openFolder(const std::string& path) {
  return OwnFd(aboveStandardStreams(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
}

OwnFd makeSocket() {
  return OwnFd(aboveStandardStreams(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
}

}  // namespace orrery::platform::session
