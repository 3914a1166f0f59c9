#include "orrery/platform/DzThread.h"

#include <csignal>
#include <system_error>
#include <utility>

namespace {

/// Signals of the process go to threads that expect them; a thread begins with the mask of its maker.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &earlier_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t earlier_{};
};

}  // namespace

DzException::DzException(int error, const std::string& text) : std::runtime_error(text), error_(error) {}
DzException::~DzException() = default;

DzThread::~DzThread() {
  join();
}

DzThread& DzThread::operator=(DzThread&& other) noexcept {
  join();
  thread_ = std::move(other.thread_);
  return *this;
}

int DzThread::createThread(Routine routine, void* argument) {
  if (thread_.joinable()) return EBUSY;
  const AllSignalsBlocked blocked;
  try {
    thread_ = std::thread([routine, argument] { routine(argument); });
    return 0;
  } catch (const std::system_error& error) {
    return error.code().value();
  }
}

void DzThread::join() {
  if (thread_.joinable()) thread_.join();
}
