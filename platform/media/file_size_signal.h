#pragma once

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cerrno>

namespace orrery::media {

/// Keeps SIGXFSZ from the calling thread for one scope: a file that reaches the limit of the process is to be an error
/// of the call that writes it, and not the end of a program that has no handler. errno stays as it is.
class [[nodiscard]] FileSizeSignal {
 public:
  FileSizeSignal() noexcept {
    sigset_t pending;
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGXFSZ) == 1;
  }
  ~FileSizeSignal() {
    const int error = errno;
    constexpr timespec atOnce{0, 0};
    // One that waited before is the program's own.
    while (!wasPending_ && sigtimedwait(&signal_, nullptr, &atOnce) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
  }
  FileSizeSignal(const FileSizeSignal&) = delete;
  FileSizeSignal& operator=(const FileSizeSignal&) = delete;

 private:
  sigset_t signal_;
  sigset_t before_;
  bool wasPending_;
};

}  // namespace orrery::media
