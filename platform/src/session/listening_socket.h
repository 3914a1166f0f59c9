#pragma once

#include <sys/types.h>

#include <string>

#include "orrery/platform/CKyError.h"
#include "orrery/platform/posix.h"

namespace orrery::platform::session {

/// The socket that a service's clients connect to; its file goes with the object.
class ListeningSocket {
 public:
  ListeningSocket() = default;
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  /// Makes the socket. What a dead server left under the name is replaced, and what dead servers left under the names
  /// of other jobs is removed; a name that a living server has is an error, and so is a file that is no socket.
  /// `forOthers`: accounts other than the owner may connect. `stop`: once it can be read, nobody waits for the folder's
  /// lock; an error then, as it is when somebody keeps the lock.
  CKyError listen(const std::string& folder, const std::string& serviceName, bool forOthers, int stop);
  int fd() const noexcept { return socket_.get(); }

 private:
  std::string fileName_;
  OwnFd folder_;
  OwnFd socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace orrery::platform::session
