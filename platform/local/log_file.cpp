#include "log_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <memory>

#include "clock.h"
#include "log_line.h"

namespace orrery::platform::local {
namespace {

constexpr std::size_t usualLine = 4096;
constexpr std::size_t childLine = 8192;  // the child's stack may be as small as 64 KiB

LogOrigin here() noexcept {
  return {microsecondsNow(), ::getpid(), ::gettid()};
}

bool isLarge(int directory) noexcept {
  struct stat status {};
  return ::fstatat(directory, LogFile::fileName, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
         status.st_size > LogFile::largestSize;
}

/// Looks at the size a second time under the lock: another process may just have done it.
void rotateWhenLarge(int directory, const std::string& path) {
  if (!isLarge(directory)) return;
  const FolderLock lock(directory, path);
  if (!isLarge(directory)) return;
  const std::string name = LogFile::fileName;
  for (int number = LogFile::keptOlder; number > 0; --number) {
    const std::string younger = number > 1 ? name + "." + std::to_string(number - 1) : name;
    ::renameat(directory, younger.c_str(), directory, (name + "." + std::to_string(number)).c_str());
  }
}

OwnFd openLog(const std::string& directory) {
  const OwnFd folder = openFolder(directory);
  rotateWhenLarge(folder.get(), directory);
  OwnFd file(::openat(folder.get(), LogFile::fileName, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("open the log in " + directory, errno);
  return file;
}

class ErrnoKeeper {
 public:
  ErrnoKeeper() noexcept : value_(errno) {}
  ~ErrnoKeeper() { errno = value_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int value_;
};

}  // namespace

LogFile::LogFile(const std::string& directory, int threshold) : threshold_(threshold) {
  try {
    file_ = openLog(directory);
  } catch (const Failure&) {
    file_ = OwnFd(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
}

/// A short write means a full disk; what is left is not worth a second try, because a line of another process may stand
/// between by then.
LogFile::Written LogFile::append(const char* bytes, std::size_t size) const noexcept {
  ssize_t put = 0;
  do {
    put = ::write(file_.get(), bytes, size);
  } while (put < 0 && errno == EINTR);
  if (put <= 0) return Written::nothing;
  return static_cast<std::size_t>(put) == size ? Written::whole : Written::part;
}

void LogFile::write(const LogLine& line) noexcept {
  const ErrnoKeeper keeper;
  std::array<char, usualLine> usual;
  std::unique_ptr<char[]> large;
  char* buffer = usual.data();
  std::size_t capacity = usual.size();
  if (const std::size_t room = roomForLogLine(line) + 1; room > capacity) {
    large.reset(new (std::nothrow) char[room]);
    if (large) {
      buffer = large.get();
      capacity = room;
    }
  }
  std::size_t size = 0;
  const bool torn = torn_.load(std::memory_order_relaxed) && torn_.exchange(false);
  if (torn) buffer[size++] = '\n';
  size += formatLogLine(line, here(), buffer + size, capacity - size);
  const Written written = append(buffer, size);
  if (written == Written::part || (torn && written == Written::nothing)) torn_ = true;
}

void LogFile::writeInChild(const LogLine& line) noexcept {
  const ErrnoKeeper keeper;
  std::array<char, childLine> buffer;
  const std::size_t size = formatLogLine(line, here(), buffer.data(), buffer.size());
  static_cast<void>(append(buffer.data(), size));
}

}  // namespace orrery::platform::local
