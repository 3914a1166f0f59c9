#include "failure.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "orrery/platform/posix.h"

namespace orrery::standin {

Failure systemFailure(const std::string& step, int error) {
  return Failure("cannot " + step + ": " + platform::errorText(error));
}

void say(std::string_view line) {
  std::string bytes(line);
  bytes += '\n';
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = ::write(STDERR_FILENO, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;
    done += static_cast<std::size_t>(count);
  }
}

void tell(std::string_view text) {
  const time_t now = ::time(nullptr);
  tm parts{};
  ::gmtime_r(&now, &parts);
  char stamp[32];
  const std::size_t length = ::strftime(stamp, sizeof stamp, "%F %T ", &parts);
  say(std::string(stamp, length) + "mysqlbackup: INFO: " + std::string(text));
}

}  // namespace orrery::standin
