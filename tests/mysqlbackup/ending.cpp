#include "ending.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>

namespace orrery::standin {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

Ending::Ending() {
  sigset_t ends;
  sigemptyset(&ends);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&ends, signal);
  if (::pthread_sigmask(SIG_BLOCK, &ends, nullptr) != 0) throw Failure("signals cannot be blocked");
  // A program that ends early closes its input; the write that finds out says so.
  if (::signal(SIGPIPE, SIG_IGN) == SIG_ERR) throw systemFailure("ignore SIGPIPE", errno);
  fd_ = platform::OwnFd(platform::aboveStandardStreams(::signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK)));
  if (!fd_) throw systemFailure("watch for signals", errno);
}

void Ending::waitFor(std::chrono::milliseconds time) const {
  const Clock::time_point deadline = Clock::now() + time;
  pollfd signal{fd_.get(), POLLIN, 0};
  int ready = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    ready = ::poll(&signal, 1, left > 0 ? static_cast<int>(left) : 0);
  } while (ready < 0 && errno == EINTR);
  // The signal stays to be found: whatever waits while things are cleaned up shall not wait either.
  if (ready > 0) throw Failure("the program was told to end by a signal");
}

void Ending::waitForever() const {
  while (true) waitFor(std::chrono::hours(1));
}

}  // namespace orrery::standin
