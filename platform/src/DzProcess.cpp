#include "orrery/platform/DzProcess.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <mutex>
#include <utility>

#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "sanitized.h"

namespace {

thread_local bool isForkedChild = false;

constexpr std::size_t childStackSize = std::size_t{64} * 1024;
constexpr std::size_t guardSize = 4096;
constexpr int pollMilliseconds = 20;

struct ChildStart {
  DzProcess::Routine routine;
  void* param;
  sigset_t mask;
};

/// Blocks every signal and cancellation of the calling thread: a handler that ran in a child on borrowed memory would
/// act on the parent's.
class [[nodiscard]] Undisturbed {
 public:
  Undisturbed() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &mask_);
  }
  ~Undisturbed() {
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    pthread_setcancelstate(cancelState_, nullptr);
    errno = error;
  }
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;
  const sigset_t& mask() const { return mask_; }

 private:
  sigset_t mask_{};
  int cancelState_ = 0;
};

/// A child on borrowed memory that takes another account makes the kernel forbid core dumps and tracing of that memory,
/// and so of the parent. The first of several children at a time remembers the parent's setting and the last one puts
/// it back: not before, since until exec the setting keeps the account away from the parent's memory. Nobody waits for
/// a child here, so one that is stopped holds up its own thread only.
class [[nodiscard]] KeptDumpable {
 public:
  KeptDumpable() {
    static const int registered = pthread_atfork(lock, unlock, startAnew);
    static_cast<void>(registered);
    const std::lock_guard guard(mutex);
    if (children++ == 0) before = prctl(PR_GET_DUMPABLE);
  }
  ~KeptDumpable() {
    const int error = errno;
    {
      const std::lock_guard guard(mutex);
      if (--children == 0) putBack();
    }
    errno = error;
  }
  KeptDumpable(const KeptDumpable&) = delete;
  KeptDumpable& operator=(const KeptDumpable&) = delete;

 private:
  static void putBack() {
    if (before == 1 && prctl(PR_GET_DUMPABLE) != 1) prctl(PR_SET_DUMPABLE, 1);
  }
  static void lock() { mutex.lock(); }
  static void unlock() { mutex.unlock(); }
  /// In a copy that the host made of the process, the children in flight are not its own.
  static void startAnew() {
    if (std::exchange(children, 0) != 0) putBack();
    mutex.unlock();
  }

  static inline std::mutex mutex;
  static inline int children = 0;
  static inline int before = 1;
};

class [[nodiscard]] ChildStack {
 public:
  /// One page more, at the end that the stack grows towards, which nobody may touch.
  ChildStack()
      : base_(mmap(nullptr, childStackSize + guardSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK,
                   -1, 0)) {
    if (valid()) mprotect(base_, guardSize, PROT_NONE);
  }
  ~ChildStack() {
    const int error = errno;
    if (valid()) munmap(base_, childStackSize + guardSize);
    errno = error;
  }
  ChildStack(const ChildStack&) = delete;
  ChildStack& operator=(const ChildStack&) = delete;
  bool valid() const { return base_ != MAP_FAILED; }
  void* top() const { return static_cast<char*>(base_) + guardSize + childStackSize; }

 private:
  void* base_;
};

/// Handlers belong to the parent's program. Ignored signals stay ignored, as exec leaves them.
void resetSignalHandlers() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    sigaction(number, &action, nullptr);
  }
}

int childMain(void* param) {
  const auto& start = *static_cast<ChildStart*>(param);
  resetSignalHandlers();
  pthread_sigmask(SIG_SETMASK, &start.mask, nullptr);
  start.routine(start.param);
  _exit(127);
}

pid_t startCopied(ChildStart& start) {
  isForkedChild = false;  // gives this thread its copy of the flag while memory can still be had
  const pid_t pid = fork();
  if (pid == 0) {
    isForkedChild = true;
    childMain(&start);
  }
  return pid;
}

pid_t startBorrowed(ChildStart& start) {
  const ChildStack stack;
  if (!stack.valid()) return -1;
  const KeptDumpable dumpable;
  isForkedChild = true;  // the child reads this thread's copy; nothing else runs on this thread meanwhile
  const pid_t pid = clone(childMain, stack.top(), CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
  isForkedChild = false;
  return pid;
}

pid_t start(ChildStart& child, DzProcess::ChildMemory memory) {
  const bool copied = orrery::platform::isSanitized || memory == DzProcess::ChildMemory::copied;
  return copied ? startCopied(child) : startBorrowed(child);
}

void tell(char* errorText, int errorSize, int error) {
  if (errorText == nullptr || errorSize <= 0) return;
  std::snprintf(errorText, static_cast<std::size_t>(errorSize), "%s", orrery::platform::errorText(error).c_str());
}

pid_t reap(pid_t pid, int& status, int options) {
  pid_t ended = 0;
  do {
    ended = waitpid(pid, &status, options);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

}  // namespace

DzProcess::~DzProcess() {
  if (pid_ < 0) return;
  int status = 0;
  if (reap(pid_, status, WNOHANG) != 0) return;
  kill(pid_, SIGKILL);
  reap(pid_, status, 0);
}

int DzProcess::Fork(Routine routine, void* param, char* errorText, int errorSize, ChildMemory memory) {
  if (startedPid_ >= 0) {
    errno = EALREADY;
    tell(errorText, errorSize, errno);
    return 0;
  }
  orrery::platform::services();  // opened here, so that the child can log without opening anything
  const Undisturbed undisturbed;
  ChildStart child{routine, param, undisturbed.mask()};
  const pid_t pid = ::start(child, memory);
  if (pid < 0) {
    const int error = errno;
    tell(errorText, errorSize, error);
    errno = error;
    return 0;
  }
  pid_ = startedPid_ = pid;
  return 1;
}

int DzProcess::WaitForProcessToEnd(int& status, char* errorText, int errorSize, int timeout) {
  auto& clock = *orrery::platform::services().clock;
  const std::int64_t limit = clock.now() + std::int64_t{timeout} * 1000000;
  for (;;) {
    if (pid_ < 0) {
      tell(errorText, errorSize, ECHILD);
      return -1;
    }
    const pid_t ended = reap(pid_, status, timeout < 0 ? 0 : WNOHANG);
    if (ended != 0) {
      const int error = errno;
      pid_ = -1;
      if (ended > 0) return 1;
      tell(errorText, errorSize, error);
      return -1;
    }
    if (clock.now() >= limit) return 0;
    clock.sleep(pollMilliseconds);
  }
}

int DzProcess::Kill(int signal) noexcept {
  if (pid_ < 0) {
    errno = ESRCH;
    return -1;
  }
  return kill(pid_, signal);
}

namespace orrery::platform {
bool inForkedChild() noexcept {
  return isForkedChild;
}
}  // namespace orrery::platform
