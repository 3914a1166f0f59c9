#include "interrupt.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"

namespace orrery::tool {
namespace {

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int kForwardEveryMilliseconds = 100;
constexpr std::int64_t kPatienceSeconds = 60;  // for what must not be broken off

// Written by the signal handler, which has nothing but these.
std::atomic<int> firstSignal{0};
std::atomic<int> signalCount{0};
std::atomic<int> wakeDescriptor{-1};
std::atomic<bool> handedOnOnce{false};
std::atomic<int> finishing{0};
std::atomic<std::int64_t> secondOfFirst{0};
static_assert(std::atomic<int>::is_always_lock_free);

std::int64_t secondsNow() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

void remember(int signal) {
  const int saved = errno;
  int none = 0;
  if (firstSignal.compare_exchange_strong(none, signal)) secondOfFirst = secondsNow();
  const int earlier = signalCount.fetch_add(1);
  const bool isMeant = signal == SIGQUIT || secondsNow() - secondOfFirst >= kPatienceSeconds;
  if (finishing > 0 ? earlier >= 1 && isMeant : earlier >= 2) endBySignal(signal);
  const char byte = 's';
  if (::write(wakeDescriptor.load(), &byte, 1) < 0) {
    // The pipe is full of earlier wakes, or gone: nothing more to wake.
  }
  errno = saved;
}

/// Parent of a process, 0 when it is gone.
pid_t parentOf(const char* pid) {
  const std::string path = std::string("/proc/") + pid + "/stat";
  const OwnFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 512> buffer{};
  const ssize_t size = file.valid() ? ::read(file.get(), buffer.data(), buffer.size()) : 0;
  if (size <= 0) return 0;
  const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
  const std::size_t name = text.rfind(") ");  // the name may hold anything, a parenthesis too
  if (name == std::string_view::npos || name + 4 > text.size()) return 0;
  pid_t parent = 0;
  std::from_chars(text.data() + name + 4, text.data() + text.size(), parent);
  return parent;
}

void signalChildren(int signal) {
  const std::unique_ptr<DIR, int (*)(DIR*)> processes(::opendir("/proc"), ::closedir);
  if (!processes) return;
  const pid_t self = ::getpid();
  while (const dirent* entry = ::readdir(processes.get())) {  // NOLINT(concurrency-mt-unsafe): own stream
    pid_t pid = 0;
    const char* end = entry->d_name + std::strlen(entry->d_name);
    if (std::from_chars(entry->d_name, end, pid).ptr == end && parentOf(entry->d_name) == self) ::kill(pid, signal);
  }
}

std::vector<int> openSockets() {
  std::vector<int> sockets;
  const std::unique_ptr<DIR, int (*)(DIR*)> descriptors(::opendir("/proc/self/fd"), ::closedir);
  if (!descriptors) return sockets;
  while (const dirent* entry = ::readdir(descriptors.get())) {  // NOLINT(concurrency-mt-unsafe): own stream
    int fd = -1;
    const char* end = entry->d_name + std::strlen(entry->d_name);
    struct stat status {};
    if (std::from_chars(entry->d_name, end, fd).ptr == end && ::fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode)) {
      sockets.push_back(fd);
    }
  }
  return sockets;
}

}  // namespace

InterruptGuard::InterruptGuard() : inherited_(openSockets()) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw Failure("signals cannot be handled", errorText(errno));
  }
  wake_ = OwnFd(ends[0]);
  wakeEnd_ = OwnFd(ends[1]);
  wakeDescriptor = ends[1];
  forwarder_ = std::thread([this] { forward(); });
  struct sigaction action {};
  action.sa_handler = remember;
  // No SA_RESTART: a call that waits comes back, and whoever made it can look whether to go on.
  sigemptyset(&action.sa_mask);
  for (const int signal : kSignals) {
    struct sigaction earlier {};
    ::sigaction(signal, nullptr, &earlier);
    if (earlier.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
  }
}

InterruptGuard::~InterruptGuard() {
  wakeDescriptor = -1;
  // Only this thread's end of the pipe is closed here; the forwarder sees that and ends.
  wakeEnd_ = OwnFd();
  forwarder_.join();
}

/// Hands the signal on again and again: a client that starts just now must hear it too.
void InterruptGuard::forward() const {
  pollfd polled{wake_.get(), POLLIN, 0};
  int timeout = -1;
  int handedOn = 0;
  for (;;) {
    const int ready = ::poll(&polled, 1, timeout);
    if (ready < 0 && errno != EINTR) return;
    if (ready > 0) {
      std::array<char, 16> bytes{};
      if (::read(wake_.get(), bytes.data(), bytes.size()) == 0) return;
    }
    // One signal may wake this thread twice, by its byte in the pipe and by the handler's run on this very thread.
    const int count = signalCount;
    if (firstSignal == 0 || (handedOnOnce && count == handedOn)) continue;
    if (finishing > 0) {
      timeout = kForwardEveryMilliseconds;  // to hand it on when that is done
      continue;
    }
    signalChildren(count > 1 ? SIGKILL : firstSignal.load());
    // A client library waits without limit for its server. Once: whoever puts things away may connect again.
    if (count > 1 && count != handedOn) endConnections();
    handedOn = count;
    timeout = handedOnOnce ? -1 : kForwardEveryMilliseconds;
  }
}

void InterruptGuard::endConnections() const {
  for (const int fd : openSockets()) {
    if (std::find(inherited_.begin(), inherited_.end(), fd) == inherited_.end()) ::shutdown(fd, SHUT_RDWR);
  }
}

int interruptSignal() noexcept {
  return firstSignal;
}

void InterruptibleClock::sleep(std::int64_t milliseconds) noexcept {
  constexpr std::int64_t step = 100;
  for (; milliseconds > 0 && (firstSignal == 0 || finishing > 0); milliseconds -= step)
    inner_->sleep(std::min(milliseconds, step));
}

ClientLimit::ClientLimit(std::chrono::steady_clock::time_point limit)
    : thread_([this, limit] {
        std::unique_lock lock(mutex_);
        bool done = changed_.wait_until(lock, limit, [this] { return done_; });
        while (!done) {
          signalChildren(SIGTERM);
          const std::chrono::milliseconds pause(kForwardEveryMilliseconds);
          done = changed_.wait_for(lock, pause, [this] { return done_; });
        }
      }) {}

ClientLimit::~ClientLimit() {
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void forgetInterrupt() noexcept {
  firstSignal = 0;
  signalCount = 0;
}

Finishing::Finishing() noexcept {
  ++finishing;
}

Finishing::~Finishing() {
  --finishing;
}

HandedOnOnce::HandedOnOnce() noexcept {
  handedOnOnce = true;
}

HandedOnOnce::~HandedOnOnce() {
  handedOnOnce = false;
}

void endBySignal(int signal) noexcept {
  // SIGQUIT would leave the memory in a file, passwords among it.
  ::prctl(PR_SET_DUMPABLE, 0);
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(signal);
}

}  // namespace orrery::tool
