#include "listening_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "address.h"

namespace orrery::platform::session {
namespace {

constexpr int waitingClients = 1024;

CKyError systemError(const std::string& step, int error) {
  return {error, "cannot " + step + ": " + errorText(error)};
}

/// Who holds it may look at a name, remove what is dead and take the name, with nobody in between. One lock for all
/// names: it is held for a moment.
class NamesLock {
 public:
  explicit NamesLock(const std::string& folder)
      : fd_(aboveStandardStreams(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))) {
    if (!fd_) return;
    do {
      held_ = ::flock(fd_.get(), LOCK_EX) == 0;
    } while (!held_ && errno == EINTR);
  }
  bool held() const noexcept { return held_; }

 private:
  OwnFd fd_;
  bool held_ = false;
};

/// Whether a socket's server is dead; an error when somebody serves it, or when that cannot be told.
CKyError checkDead(const Address& address) {
  const OwnFd client = makeSocket();
  if (!client) return systemError("make a socket", errno);
  const int error = ::connect(client.get(), address.get(), address.size()) == 0 ? 0 : errno;
  if (error == ECONNREFUSED) return {};
  // A full queue of waiting clients (EAGAIN) is a living server's too.
  if (error == 0 || error == EAGAIN) return {EADDRINUSE, address.fileName() + " is served by another process"};
  return systemError("tell whether " + address.fileName() + " is served", error);
}

CKyError freeName(int folder, const Address& address) {
  struct stat status {};
  if (::fstatat(folder, address.fileName().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? CKyError() : systemError("look at " + address.fileName(), errno);
  if (!S_ISSOCK(status.st_mode)) return {EEXIST, address.fileName() + " is in the way and is no socket"};
  if (CKyError error = checkDead(address); error.isError()) return error;
  if (::unlinkat(folder, address.fileName().c_str(), 0) != 0)
    return systemError("remove the dead " + address.fileName(), errno);
  return {};
}

}  // namespace

CKyError ListeningSocket::listen(const std::string& folder, const std::string& serviceName, bool forOthers) {
  folder_ = openFolder(folder);
  if (!folder_) return systemError("open " + folder, errno);
  const Address address(folder_.get(), serviceName);
  if (!address.valid()) return {EINVAL, "\"" + serviceName + "\" cannot be the name of a service"};
  const NamesLock names(folder);
  if (!names.held()) return systemError("lock " + folder, errno);
  if (CKyError error = freeName(folder_.get(), address); error.isError()) return error;

  socket_ = makeSocket();
  if (!socket_) return systemError("make a socket", errno);
  // Nobody can connect before listen(), so the mode is right before it counts.
  if (::bind(socket_.get(), address.get(), address.size()) != 0)
    return systemError("make " + address.fileName(), errno);
  struct stat status {};
  if (::fstatat(folder_.get(), address.fileName().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return systemError("look at " + address.fileName(), errno);
  fileName_ = address.fileName();
  device_ = status.st_dev;
  inode_ = status.st_ino;
  if (::fchmodat(folder_.get(), fileName_.c_str(), forOthers ? 0666 : 0600, 0) != 0)
    return systemError("set the mode of " + fileName_, errno);
  if (::listen(socket_.get(), waitingClients) != 0) return systemError("listen at " + fileName_, errno);
  return {};
}

ListeningSocket::~ListeningSocket() {
  struct stat status {};
  // The name may be another's by now, if somebody removed our file by hand.
  if (!fileName_.empty() && ::fstatat(folder_.get(), fileName_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      status.st_dev == device_ && status.st_ino == inode_)
    ::unlinkat(folder_.get(), fileName_.c_str(), 0);
}

}  // namespace orrery::platform::session
