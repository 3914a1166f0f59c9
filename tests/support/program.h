#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "orrery/platform/posix.h"

namespace orrery::test {

struct ProgramResult {
  int exitStatus = -1;  ///< -1 when a signal ended the program
  int signal = 0;       ///< the signal that did, else 0
  bool timedOut = false;
  std::string output;
  std::string errors;
};

struct ProgramOptions {
  /// "NAME=VALUE", added to the caller's environment or in place of what it holds of that name.
  std::vector<std::string> environment = {};
  std::string input = {};  ///< what the program reads on standard input
  /// A descriptor for standard input in place of `input`, a terminal say; it stays the caller's.
  int standardInput = -1;
  /// A descriptor for standard error; it stays the caller's, and `errors` stays empty.
  int standardError = -1;
  std::chrono::milliseconds limit = std::chrono::seconds(60);
};

/// A program that runs, in a process group of its own, with its standard streams held by this object. The group gets
/// SIGKILL when the limit passes and when the object ends before `wait`. Everything throws std::runtime_error when the
/// system refuses.
class RunningProgram {
 public:
  /// `arguments[0]` is looked for in PATH unless it holds a slash.
  explicit RunningProgram(const std::vector<std::string>& arguments, ProgramOptions options = {});
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  pid_t pid() const noexcept { return pid_; }
  /// Sends a signal to the whole group, as a terminal does for Ctrl-C.
  void signalGroup(int signal) const;
  /// Reaps the program and gives what it wrote. What a grandchild writes after the program's end is not waited for.
  ProgramResult wait();

 private:
  std::chrono::milliseconds limit_;
  pid_t pid_ = -1;
  platform::OwnFd ended_;  // of the process, readable at its end
  platform::OwnFd input_;
  platform::OwnFd output_;
  platform::OwnFd errors_;
};

ProgramResult runProgram(const std::vector<std::string>& arguments, ProgramOptions options = {});

/// Asks `condition` every few milliseconds until it holds; false when the limit passes first.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(20));

}  // namespace orrery::test
