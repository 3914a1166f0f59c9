#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <string_view>

#include "orrery/platform/posix.h"

namespace orrery::platform::session {

/// What the names of the services begin with that serve a job's media library; the job's number follows.
inline constexpr std::string_view jobServicePrefix = "MySqlSBTSrv_";

/// Address of a service's socket in an open folder: reached through the folder's descriptor, so that a folder with a
/// long path does not matter. Lives no longer than the folder's descriptor.
class Address {
 public:
  /// `valid` is false for a name that can be no file's or is too long.
  Address(int folder, const std::string& serviceName);

  bool valid() const noexcept { return valid_; }
  /// Of the socket, in its folder.
  const std::string& fileName() const noexcept { return fileName_; }
  const sockaddr* get() const noexcept;
  socklen_t size() const noexcept { return sizeof(address_); }

 private:
  std::string fileName_;
  sockaddr_un address_{};
  bool valid_ = false;
};

OwnFd openFolder(const std::string& path);
/// A Unix-domain stream socket that never blocks; with errno when it is not valid.
OwnFd makeSocket();

}  // namespace orrery::platform::session
