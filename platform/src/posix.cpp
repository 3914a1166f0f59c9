#include "orrery/platform/posix.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace orrery::platform {
namespace {
constexpr int firstOther = 3;
constexpr int lastOther = 1024;
}  // namespace

int aboveStandardStreams(int fd) noexcept {
  if (fd < 0 || fd >= firstOther) return fd;
  const int higher = fcntl(fd, F_DUPFD_CLOEXEC, firstOther);
  const int error = errno;
  close(fd);
  errno = error;
  return higher;
}

void closeOthersOnExec() noexcept {
#if defined(SYS_close_range) && defined(CLOSE_RANGE_CLOEXEC)
  if (syscall(SYS_close_range, firstOther, ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
#endif
  for (int fd = lastOther; fd >= firstOther; --fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
}

std::string errorText(int error) {
  std::array<char, 256> buffer{};
  return strerror_r(error, buffer.data(), buffer.size());
}

}  // namespace orrery::platform
