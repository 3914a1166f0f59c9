#pragma once

#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "orrery/platform/export.h"

/// A failure of the suite's own objects, with the system's number.
class ORRERY_PLATFORM_EXPORT DzException : public std::runtime_error {
 public:
  DzException(int error, const std::string& text);
  DzException(const DzException&) = default;
  DzException& operator=(const DzException&) = default;
  ~DzException() override;
  int getErrno() const noexcept { return error_; }

 private:
  int error_;
};

/// A lock that its holder may take again.
class DzCriticalSection {
 public:
  void Enter() { mutex_.lock(); }
  void Leave() noexcept { mutex_.unlock(); }
  // So that std::lock_guard holds it.
  void lock() { Enter(); }
  void unlock() noexcept { Leave(); }

 private:
  std::recursive_mutex mutex_;
};

/// A thread that is joined when its object goes. One thread uses one object.
class ORRERY_PLATFORM_EXPORT DzThread {
 public:
  using Routine = void* (*)(void* argument);

  DzThread() = default;
  /// Waits for the routine to end.
  ~DzThread();
  DzThread(DzThread&& other) noexcept = default;
  DzThread& operator=(DzThread&& other) noexcept;
  DzThread(const DzThread&) = delete;
  DzThread& operator=(const DzThread&) = delete;

  /// Runs `routine` on a thread of its own, which gets none of the process's signals. 0, or the system's error number.
  /// An object runs one thread at a time: EBUSY for a second one.
  int createThread(Routine routine, void* argument);
  /// Waits for the routine to end; nothing to do without one.
  void join();

 private:
  std::thread thread_;
};
