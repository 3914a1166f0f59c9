#pragma once

/// Log and event context. Every object that speaks carries one.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/export.h"

/// Debug lines and errors. Arguments of a line that the log does not want are not formatted.
///
/// All operations may be called from any thread and, with text and integer conversions only, in a child process
/// between fork and exec: there the message is formatted on the stack, is cut at 1023 bytes, and takes no lock and no
/// heap. No operation fails; a message that cannot be written is lost.
class ORRERY_PLATFORM_EXPORT EvDebug {
 public:
  /// A plain line, level 0. `tag` is the qualified name of the operation that speaks.
  void Debug(const char* tag, const char* format, ...) const noexcept ORRERY_PRINTF(3, 4);
  /// A line of the given level, 1 to 10; higher is chattier.
  void DebugLvl(const char* tag, int level, const char* format, ...) const noexcept ORRERY_PRINTF(4, 5);
  /// Always recorded.
  void Error(const char* tag, const char* format, ...) const noexcept ORRERY_PRINTF(3, 4);

  /// A levelled line from code that has no context object; it carries no tag.
  static void debugLvl(int level, const char* format, ...) noexcept ORRERY_PRINTF(2, 3);

  /// Name of this machine's client; empty when the inventory does not tell.
  static std::string getClientName();

  long long getJobId() const noexcept { return jobId_; }

 protected:
  EvDebug() noexcept;

 private:
  long long jobId_;
};

/// A context with events. Takes the job of the process at construction (see ScopedJob).
/// One thread uses one object; construction and destruction of an object without arguments take no heap.
class ORRERY_PLATFORM_EXPORT EvEvent : public EvDebug {
 public:
  EvEvent() noexcept = default;

  /// Appends one argument for the next event.
  EvEvent& operator<<(std::string argument) {
    arguments_.push_back(std::move(argument));
    return *this;
  }

  /// Raise an event with the arguments streamed so far, which are then forgotten. An event that the suite does not
  /// take is logged as an error.
  void CriticalEvent(std::uint32_t code) noexcept;
  void MajorEvent(std::uint32_t code) noexcept;
  void InformationEvent(std::uint32_t code) noexcept;

  /// The arguments streamed so far; handed to a job's pending cause.
  std::vector<std::string> takeArguments() { return std::exchange(arguments_, {}); }

 private:
  ORRERY_PLATFORM_HIDDEN void raise(int severity, std::uint32_t code) noexcept;

  std::vector<std::string> arguments_;
};

namespace orrery::platform {

/// Makes `jobId` the job of this process for one scope: contexts made meanwhile, on any thread, carry it.
class ORRERY_PLATFORM_EXPORT [[nodiscard]] ScopedJob {
 public:
  explicit ScopedJob(long long jobId) noexcept;
  ~ScopedJob();
  ScopedJob(const ScopedJob&) = delete;
  ScopedJob& operator=(const ScopedJob&) = delete;

 private:
  long long earlier_;
};

}  // namespace orrery::platform
