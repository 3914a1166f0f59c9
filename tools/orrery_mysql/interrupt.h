#pragma once

#include <thread>

#include "posix.h"

namespace orrery::tool {

/// Lets Ctrl-C, SIGTERM and SIGHUP end the command in its ordinary way, so that sessions put away what they made.
///
/// The signal is remembered and handed on to the running client programs, whose end makes the library return. A second
/// signal kills them; a third takes its default action at once. After the clean-up `main` lets the first one take its
/// default action, so that the caller sees the end by signal. Signals that were ignored at the start stay ignored.
/// At most one object at a time.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  void forward() const;

  OwnFd wake_;
  OwnFd wakeEnd_;
  std::thread forwarder_;
};

/// The signal that asked the program to stop, or 0.
int interruptSignal() noexcept;

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
