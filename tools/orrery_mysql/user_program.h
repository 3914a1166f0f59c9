#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "posix.h"

namespace orrery::tool {

/// A program of the user's in a process of its own, which exists before it runs: what must be known of it can be
/// written down first. When this object, or the whole program, ends before `start`, it never runs.
class UserProgram {
 public:
  /// Makes the process. `file` is the program's file, `words` are its name and arguments. It gets this program's
  /// standard streams and environment, and signals as they were before this program handled them.
  UserProgram(const std::string& file, const std::vector<std::string>& words);
  /// Waits for the process.
  ~UserProgram();
  UserProgram(const UserProgram&) = delete;
  UserProgram& operator=(const UserProgram&) = delete;

  pid_t pid() const noexcept { return pid_; }
  /// Lets it run. Throws Failure when the system refuses the file.
  void start();
  /// Waits for its end, through interrupts; the status is that of waitpid.
  int wait();

 private:
  std::string name_;
  OwnFd leash_;
  pid_t pid_ = -1;
};

}  // namespace orrery::tool
