#pragma once

/// The background child runner: a program that runs while its caller does something else. A thread of the runner reads
/// what the program writes and reaps it.

#include <memory>
#include <string>

#include "orrery/platform/export.h"

namespace LibMySqlProcess {

/// One program. Order of calls: Initialize, DZ_CreateProcess, BeginWait; then, until the program has ended, isComplete,
/// isFailed and Terminate. What is not named otherwise belongs to one thread. Of each of the program's two streams the
/// first and the last quarter of a MiB are kept.
class ORRERY_PLATFORM_EXPORT MySqlChildProcess {
 public:
  MySqlChildProcess();
  /// A program that still runs is ended with SIGKILL, its process group with it, and reaped. With setPreserveError,
  /// what the program wrote to standard error goes to the job's folder of results, as MySqlErrors_MICROSECONDS.txt.
  ~MySqlChildProcess();
  MySqlChildProcess(const MySqlChildProcess&) = delete;
  MySqlChildProcess& operator=(const MySqlChildProcess&) = delete;

  /// Takes the command line, which is split without a shell (see splitArguments), and the account and group that the
  /// program is to run as; empty: the agent's own. The program is a path, PATH is not searched. 0, or -1 for a command
  /// line that names no program or holds a null, and for an account or a group that is not known.
  int Initialize(const std::string& command, const std::string& user, const std::string& group);

  /// Starts the program in a process group of its own, with standard input from /dev/null. The first three flags are
  /// accepted for the callers' sake and have no meaning on Linux; with the fourth the program's output is kept,
  /// otherwise it goes to /dev/null. 0 once the program has taken over, or -1. An object starts one program.
  ///
  /// The program gets SIGTERM when the thread that calls this ends, be it because the process was killed: the thread
  /// stays as long as the program is to run. A process that ignores SIGCHLD, or reaps its children by itself
  /// (SA_NOCLDWAIT), starts nothing: how the program ends could not be told.
  int DZ_CreateProcess(bool = false, bool = false, bool = false, bool keepOutput = false);

  /// Starts the thread that reads and reaps; the program may have ended already. 0, or -1.
  int BeginWait();

  /// Whether the program has been reaped and everything it wrote has been read. What it left running may still write;
  /// nobody reads that. Any thread.
  bool isComplete() const noexcept;
  /// Whether it ended with anything but exit code 0, or was marked. Final once isComplete. Any thread.
  bool isFailed() const noexcept;
  void markFailed() noexcept;
  /// Keeps the error output beyond this object.
  void setPreserveError(bool preserve) noexcept;

  /// Asks the program's process group to end (SIGTERM) and ends it (SIGKILL) when the program has not gone ten seconds
  /// later. Returns when the program has gone and its last words are read; at the latest five seconds after SIGKILL.
  /// 0; -1 when there is no program, or it was reaped: nothing is signalled then. Any thread.
  int Terminate();

  /// The last line of standard error that begins with `prefix`: 0, or -1 when there is none. Lines that begin with
  /// "ERROR:" are found however much was written after them, others in what is kept. Any thread.
  int ReadLastErr(std::string& out, const std::string& prefix) const;
  /// Writes what is kept of both streams to the log, line by line: plain when the program failed, else at level 8.
  void logBufferContent() const;

 private:
  class ORRERY_PLATFORM_HIDDEN Runner;
  std::unique_ptr<Runner> runner_;
};

}  // namespace LibMySqlProcess
