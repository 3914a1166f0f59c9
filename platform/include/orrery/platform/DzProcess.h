#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "orrery/platform/export.h"

/// A child process: started, waited for, never left behind. The object is the only one that reaps its child.
/// One thread uses one object; several objects may be used at the same time. The process must not ignore SIGCHLD, or
/// the system forgets how its children ended.
class ORRERY_PLATFORM_EXPORT DzProcess {
 public:
  /// Runs in the child and never returns; if it does, the child exits with 127.
  using Routine = void (*)(void* param);

  /// What the child's routine works on until it calls exec.
  enum class ChildMemory {
    /// A copy, as fork makes it. Costs time in proportion to the memory of the parent.
    copied,
    /// The parent's own memory, on a stack of its own (64 KiB), while the calling thread waits for exec or exit; other
    /// threads go on, and start children of their own. For routines that only make system calls and write to nothing
    /// but their stack and what `param`
    /// reserves for them. Costs the same however much memory the parent holds. Builds with a sanitizer copy instead.
    borrowed,
  };

  /// How a program is run whose output is wanted.
  struct RunOptions {
    /// The program's environment, "NAME=VALUE"; without one it inherits the caller's.
    const std::vector<std::string>* environment = nullptr;
    /// Runs as this account of the machine, without supplementary groups and in a session of its own.
    bool takesAccount = false;
    uid_t user = 0;
    gid_t group = 0;
    /// Most bytes that are kept of each stream. A program that writes more is ended, and has failed.
    std::size_t mostOutput = std::size_t{16} * 1024 * 1024;
    /// Lines of the output that are longer are left out of it; 0: none is.
    std::size_t longestLine = 0;
    /// A program that takes longer is ended, and has failed.
    int milliseconds = 60000;
    /// Asked while the program runs, some times a second; once it is true the program is ended, and has failed.
    const std::function<bool()>* isStopped = nullptr;
  };

  DzProcess() = default;
  /// A child that was not waited for is ended with SIGKILL and reaped.
  ~DzProcess();
  DzProcess(const DzProcess&) = delete;
  DzProcess& operator=(const DzProcess&) = delete;

  /// Starts a child in `routine`. The child begins with the caller's signal mask and with default actions for every
  /// signal that had a handler; EvDebug writes its lines there without lock or heap. Returns 1; or 0 with the
  /// system's reason in `errorText` (`errorSize` bytes with the null) and in errno. An object starts one child.
  int Fork(Routine routine, void* param, char* errorText, int errorSize, ChildMemory memory = ChildMemory::copied);

  /// Waits for the child to end and reaps it; `status` is as waitpid gives it. `timeout` in seconds; -1: no limit.
  /// Returns 1; 0 when the limit passed; -1 with the reason in `errorText` when there is no child to wait for.
  int WaitForProcessToEnd(int& status, char* errorText, int errorSize, int timeout);

  /// Starts a program that is to outlive this process, and does not wait for it. `arguments[0]` is the program's path;
  /// PATH is not searched. Returns 1 once the program has taken over. Otherwise 0, with the failed step and the
  /// system's reason in `errorText`; nothing runs then. May be called from several threads at the same time.
  ///
  /// The program belongs to a session of its own and is no child of this process: whatever collects the orphans of the
  /// system reaps it, so nobody here has to, and no signal of a terminal reaches it. It inherits environment, account,
  /// folder and umask, and begins with no signal blocked and none ignored. No descriptor is inherited: its three
  /// standard streams are /dev/null. A server that is started so keeps them for as long as it lives; a pipe to this
  /// process would kill or block it later, a terminal would keep hold of it, and a file would grow with it unseen. A
  /// shell command that wants its output kept says where.
  static int StartProcess(const std::vector<std::string>& arguments, std::string& errorText);

  /// Runs a program to its end and keeps what it writes; standard input is /dev/null. `arguments[0]` is the program's
  /// path; PATH is not searched. Returns 1 once the program has ended: its exit status in `exitStatus`, 128 and the
  /// signal's number when a signal ended it. Returns 0, with the reason in `errorText`, when it was not started, or did
  /// not keep within its limits and was ended; both outputs hold what it wrote until then. May be called from several
  /// threads at the same time.
  ///
  /// The program leads a process group of its own, or a session, and whenever it is ended, all of the group is. What it
  /// leaves behind with its streams open is waited for, for a second and within the limit, and then ended with the
  /// group: what was written until then is the answer. What takes an account is never outlived by its group.
  static int RunProcess(const std::vector<std::string>& arguments, const RunOptions& options, std::string& output,
                        std::string& errors, int& exitStatus, std::string& errorText);

  /// The same for a shell's command. Returns the exit status as RunProcess gives it; -1, with the reason at the end of
  /// `errors`, when the shell was not started or had to be ended.
  static int system(const std::string& command, std::string& output, std::string& errors);
  static int system(const std::string& command, std::string& output, std::string& errors, const RunOptions& options);

  /// -1 before the start. Stays readable after the child was reaped, when it may be another process's.
  pid_t GetChildPid() const noexcept { return startedPid_; }

  /// Sends a signal to the child; 0, or -1 with errno (ESRCH once it was reaped).
  int Kill(int signal) noexcept;

 private:
  pid_t pid_ = -1;  // cleared in the step that reaps, so that no later signal can hit a stranger
  pid_t startedPid_ = -1;
};

namespace orrery::platform {
/// True in a child between Fork and exec.
ORRERY_PLATFORM_EXPORT bool inForkedChild() noexcept;
}  // namespace orrery::platform
