#include "listening_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <vector>

#include "address.h"

namespace orrery::platform::session {
namespace {

constexpr int waitingClients = 1024;
constexpr std::chrono::seconds longestWaitForLock{10};
constexpr int betweenTries = 20;  // milliseconds
constexpr std::string_view socketSuffix = ".sock";

CKyError systemError(const std::string& step, int error) {
  return {error, "cannot " + step + ": " + errorText(error)};
}

/// Who holds it may look at a name, remove what is dead and take the name, with nobody in between. One lock for all
/// names: it is held for a moment, unless its holder was stopped or is no server at all.
class NamesLock {
 public:
  CKyError take(const std::string& folder, int stop) {
    fd_ = OwnFd(aboveStandardStreams(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    if (!fd_) return systemError("open " + folder, errno);
    const auto deadline = std::chrono::steady_clock::now() + longestWaitForLock;
    while (::flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) return systemError("lock " + folder, errno);
      pollfd stopping{stop, POLLIN, 0};
      if (::poll(&stopping, 1, betweenTries) > 0) return {ECANCELED, "the session server was cleaned up"};
      if (std::chrono::steady_clock::now() >= deadline) return {EBUSY, "another process keeps the lock on " + folder};
    }
    return {};
  }

 private:
  OwnFd fd_;
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

/// The services of jobs that have a socket in the folder; of none when it cannot be read.
std::vector<std::string> jobServices(const std::string& folder) {
  std::vector<std::string> services;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    const std::string_view view = name;
    if (view.substr(0, jobServicePrefix.size()) == jobServicePrefix && view.size() > socketSuffix.size() &&
        view.substr(view.size() - socketSuffix.size()) == socketSuffix)
      services.push_back(name.substr(0, name.size() - socketSuffix.size()));
  }
  return services;
}

/// A job's number does not come again, so nobody else would replace what a server left that was killed. Under the lock
/// no living server is between making its socket and listening; what cannot be removed stays.
void removeDead(int folder, const std::string& path) {
  for (const std::string& service : jobServices(path))
    if (const Address address(folder, service); address.valid()) static_cast<void>(freeName(folder, address));
}

}  // namespace

CKyError ListeningSocket::listen(const std::string& folder, const std::string& serviceName, bool forOthers, int stop) {
  folder_ = openFolder(folder);
  if (!folder_) return systemError("open " + folder, errno);
  const Address address(folder_.get(), serviceName);
  if (!address.valid()) return {EINVAL, "\"" + serviceName + "\" cannot be the name of a service"};
  NamesLock names;
  if (CKyError error = names.take(folder, stop); error.isError()) return error;
  if (CKyError error = freeName(folder_.get(), address); error.isError()) return error;
  removeDead(folder_.get(), folder);

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
