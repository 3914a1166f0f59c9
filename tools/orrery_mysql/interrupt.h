#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "orrery/platform/services.h"

#include "posix.h"

namespace orrery::tool {

/// Lets Ctrl-C, SIGTERM and SIGHUP end the command in its ordinary way, so that sessions put away what they made.
///
/// The signal is remembered and handed on to the running client programs, whose end makes the library return. A second
/// signal kills them and ends connections on which a server does not answer; a third takes its default action at once,
/// unless something is being finished.
/// After the clean-up `main` lets the first one take its default action, so that the caller sees the end by signal.
/// Signals that were ignored at the start stay ignored. At most one object at a time.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  void forward() const;
  void endConnections() const;

  const std::vector<int> inherited_;  // sockets that others may use as well
  OwnFd wake_;
  OwnFd wakeEnd_;
  std::thread forwarder_;
};

/// The signal that asked the program to stop, or 0.
int interruptSignal() noexcept;

/// The home's clock, whose sleeps end early when the user asks for the end.
class InterruptibleClock final : public platform::Clock {
 public:
  explicit InterruptibleClock(std::shared_ptr<platform::Clock> inner) : inner_(std::move(inner)) {}
  std::int64_t now() noexcept override { return inner_->now(); }
  void sleep(std::int64_t milliseconds) noexcept override;

 private:
  std::shared_ptr<platform::Clock> inner_;
};

/// Ends client programs that still run when the limit passes, and those that start later, while the scope lasts. A
/// client waits without limit for a server that took its connection and does not answer.
class [[nodiscard]] ClientLimit {
 public:
  explicit ClientLimit(std::chrono::steady_clock::time_point limit);
  ~ClientLimit();
  ClientLimit(const ClientLimit&) = delete;
  ClientLimit& operator=(const ClientLimit&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

/// While one lives, waits last as long as they should although the user asked for the end, and no child hears of it:
/// what is done then, letting a replica go or giving restored files to their owner, has to be finished. Whoever may end
/// earlier looks at `interruptSignal` and ends its children itself. People press Ctrl-C again when nothing seems to
/// happen: only SIGQUIT after another signal, or any signal from a minute after the first one on, takes its default
/// action at once.
class [[nodiscard]] Finishing {
 public:
  Finishing() noexcept;
  ~Finishing();
  Finishing(const Finishing&) = delete;
  Finishing& operator=(const Finishing&) = delete;
};

/// For a program that answered the signal in a way of its own: the signal counts as dealt with.
void forgetInterrupt() noexcept;

/// While one lives, children hear each signal once instead of again and again: they are programs of the user, which may
/// take a while to put their things away.
class [[nodiscard]] HandedOnOnce {
 public:
  HandedOnOnce() noexcept;
  ~HandedOnOnce();
  HandedOnOnce(const HandedOnOnce&) = delete;
  HandedOnOnce& operator=(const HandedOnOnce&) = delete;
};

/// Ends the process by that signal's default action.
void endBySignal(int signal) noexcept;

}  // namespace orrery::tool
