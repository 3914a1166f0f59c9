// A program that is run to its end for what it writes.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/posix.h"

#include "child_pipe.h"

namespace {

using orrery::platform::aboveStandardStreams;
using orrery::platform::errorText;
using orrery::platform::Obstacle;
using orrery::platform::OwnFd;
using orrery::platform::Pipe;

constexpr std::size_t bufferSize = std::size_t{16} * 1024;
constexpr int signalBase = 128;  // as shells count
constexpr int lookEvery = 100;   // milliseconds
constexpr int looksOfGrace = 10;

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Everything that the child uses, made ready before the fork.
struct Plan {
  Plan(const std::vector<std::string>& wanted, const DzProcess::RunOptions& runOptions)
      : options(runOptions), arguments(wanted), argv(pointersTo(arguments)) {
    if (options.environment != nullptr) environment = *options.environment;
    envp = pointersTo(environment);
  }

  DzProcess::RunOptions options;
  std::vector<std::string> arguments;
  std::vector<char*> argv;
  std::vector<std::string> environment;
  std::vector<char*> envp;
  OwnFd null;
  Pipe output;
  Pipe errors;
  Pipe obstacle;
};

[[noreturn]] void giveUp(const Plan& plan, const char* step) {
  const Obstacle obstacle{step, errno};
  const ssize_t written = write(plan.obstacle.writing.get(), &obstacle, sizeof obstacle);
  _exit(written == sizeof obstacle ? 0 : 1);
}

/// The bare system calls: setuid() and its kin of the C library would change the parent's threads.
void takeAccount(const Plan& plan) {
  if (!plan.options.takesAccount) {
    if (setpgid(0, 0) != 0) giveUp(plan, "it gets no process group");
    return;
  }
  // A terminal of ours would take input for us from a stranger's program.
  if (setsid() < 0) giveUp(plan, "it gets no session of its own");
  if (syscall(SYS_setgroups, 0, nullptr) != 0 || syscall(SYS_setgid, plan.options.group) != 0 ||
      syscall(SYS_setuid, plan.options.user) != 0) {
    giveUp(plan, "it cannot take the account");
  }
}

void becomeProgram(void* param) {
  const auto& plan = *static_cast<const Plan*>(param);
  if (dup2(plan.null.get(), STDIN_FILENO) < 0 || dup2(plan.output.writing.get(), STDOUT_FILENO) < 0 ||
      dup2(plan.errors.writing.get(), STDERR_FILENO) < 0) {
    giveUp(plan, "its streams cannot be redirected");
  }
  takeAccount(plan);
  orrery::platform::closeOthersOnExec();
  // The host may ignore it; programs of a pipeline end by it.
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &action, nullptr);
  execve(plan.argv[0], plan.argv.data(), plan.options.environment != nullptr ? plan.envp.data() : environ);
  giveUp(plan, "it cannot be executed");
}

/// A descriptor that becomes readable once the time has passed.
OwnFd timerOf(int milliseconds) {
  OwnFd timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  itimerspec when{};
  when.it_value.tv_sec = milliseconds / 1000;
  when.it_value.tv_nsec = std::max(milliseconds % 1000, milliseconds < 1000 ? 1 : 0) * 1000000L;
  if (!timer || timerfd_settime(timer.get(), 0, &when, nullptr) != 0) return OwnFd();
  return timer;
}

/// Keeps an output's lines up to a length, of which it never holds more than one piece.
class Lines {
 public:
  Lines(std::string& kept, std::size_t longest) : kept_(kept), longest_(longest) {}

  void add(const char* bytes, std::size_t size) {
    if (longest_ == 0) {
      kept_.append(bytes, size);
      return;
    }
    for (const char* const end = bytes + size; bytes != end;) {
      const char* const newline = std::find(bytes, end, '\n');
      addPart(bytes, static_cast<std::size_t>(newline - bytes));
      if (newline == end) return;
      if (!isLong_) kept_ += '\n';
      isLong_ = false;
      start_ = kept_.size();
      bytes = newline + 1;
    }
  }

 private:
  void addPart(const char* bytes, std::size_t size) {
    if (isLong_) return;
    isLong_ = kept_.size() - start_ + size > longest_;
    if (isLong_) {
      kept_.resize(start_);
    } else {
      kept_.append(bytes, size);
    }
  }

  std::string& kept_;
  const std::size_t longest_;
  std::size_t start_ = 0;  // of the line that is not at its end
  bool isLong_ = false;
};

/// Takes what there is. False when the stream holds more than `most` bytes in all; an ended or broken one is closed.
bool take(OwnFd& stream, std::string& kept, std::size_t most, Lines& lines) {
  std::array<char, bufferSize> buffer;
  const ssize_t size = read(stream.get(), buffer.data(), buffer.size());
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (size <= 0) {
    stream = OwnFd();
    return true;
  }
  lines.add(buffer.data(), static_cast<std::size_t>(size));
  if (kept.size() <= most) return true;
  kept.resize(most);
  return false;
}

std::string outOfTime(const Plan& plan) {
  return "it has not ended after " + std::to_string(plan.options.milliseconds) + " ms";
}

bool isStopped(const Plan& plan) {
  return plan.options.isStopped != nullptr && (*plan.options.isStopped)();
}

/// Whether the child has ended. It stays unreaped, so that its id, which is that of its group, stays its own.
bool hasEnded(const DzProcess& child) {
  siginfo_t info{};
  const int looked = waitid(P_PID, static_cast<id_t>(child.GetChildPid()), &info, WEXITED | WNOWAIT | WNOHANG);
  return looked != 0 || info.si_pid != 0;
}

/// Only while the child is unreaped: later its id may be another group's.
void endGroup(const DzProcess& child) {
  siginfo_t info{};
  const pid_t leader = child.GetChildPid();
  if (waitid(P_PID, static_cast<id_t>(leader), &info, WEXITED | WNOWAIT | WNOHANG) == 0) kill(-leader, SIGKILL);
}

/// Reads both streams to their ends, whichever has something to say; or until the program has ended, and what it left
/// behind had its time. Empty, or why it stopped before.
std::string drain(Plan& plan, const OwnFd& timer, const DzProcess& child, std::string& output, std::string& errors) {
  Lines outputLines(output, plan.options.longestLine);
  Lines errorLines(errors, 0);
  const std::size_t most = plan.options.mostOutput;
  int idle = 0;
  while (plan.output.reading || plan.errors.reading) {
    if (isStopped(plan)) return "its caller stopped it";
    std::array<pollfd, 3> waiting{pollfd{plan.output.reading.get(), POLLIN, 0},
                                  pollfd{plan.errors.reading.get(), POLLIN, 0}, pollfd{timer.get(), POLLIN, 0}};
    const int ready = poll(waiting.data(), waiting.size(), lookEvery);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return "its output cannot be waited for: " + errorText(errno);
    }
    if (waiting[2].revents != 0) return outOfTime(plan);
    if (ready == 0 && hasEnded(child) && ++idle >= looksOfGrace) return {};
    const bool kept = (waiting[0].revents == 0 || take(plan.output.reading, output, most, outputLines)) &&
                      (waiting[1].revents == 0 || take(plan.errors.reading, errors, most, errorLines));
    if (!kept) return "it has written more than " + std::to_string(most) + " bytes";
  }
  return {};
}

/// A program may close its streams and go on. Empty once it has ended.
std::string awaitEnd(const Plan& plan, const OwnFd& timer, const DzProcess& child) {
#ifdef SYS_pidfd_open
  const OwnFd process(static_cast<int>(syscall(SYS_pidfd_open, child.GetChildPid(), 0)));
#else
  const OwnFd process;
#endif
  while (!hasEnded(child)) {
    if (isStopped(plan)) return "its caller stopped it";
    std::array<pollfd, 2> waiting{pollfd{process.get(), POLLIN, 0}, pollfd{timer.get(), POLLIN, 0}};
    if (poll(waiting.data(), waiting.size(), lookEvery) > 0 && waiting[1].revents != 0) return outOfTime(plan);
  }
  return {};
}

int exitStatusOf(int status) {
  return WIFSIGNALED(status) ? signalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Empty when the program ran to its end.
std::string run(Plan& plan, std::string& output, std::string& errors, int& exitStatus) {
  std::array<char, 120> reason{};
  const int room = static_cast<int>(reason.size());
  plan.null = OwnFd(aboveStandardStreams(open("/dev/null", O_RDONLY | O_CLOEXEC)));
  const OwnFd timer = timerOf(plan.options.milliseconds);
  if (!plan.null || !timer || !plan.output.make() || !plan.errors.make() || !plan.obstacle.make()) {
    return "its streams cannot be made: " + errorText(errno);
  }
  DzProcess child;
  if (child.Fork(becomeProgram, &plan, reason.data(), room, DzProcess::ChildMemory::borrowed) != 1) {
    return std::string("it gets no process: ") + reason.data();
  }
  for (Pipe* pipe : {&plan.output, &plan.errors, &plan.obstacle}) pipe->writing = OwnFd();
  if (!plan.options.takesAccount) setpgid(child.GetChildPid(), 0);  // whichever of both comes first
  std::string obstacle = drain(plan, timer, child, output, errors);
  if (obstacle.empty()) obstacle = awaitEnd(plan, timer, child);
  const bool isHeld = plan.output.reading || plan.errors.reading;
  if (isHeld || !obstacle.empty() || plan.options.takesAccount) endGroup(child);
  if (!obstacle.empty()) return obstacle;  // the child ends with its object
  int status = 0;
  if (child.WaitForProcessToEnd(status, reason.data(), room, -1) != 1) {
    return std::string("it cannot be waited for: ") + reason.data();
  }
  Obstacle told;
  if (read(plan.obstacle.reading.get(), &told, sizeof told) == sizeof told) {
    return std::string(told.step) + ": " + errorText(told.error);
  }
  exitStatus = exitStatusOf(status);
  return {};
}

}  // namespace

int DzProcess::RunProcess(const std::vector<std::string>& arguments, const RunOptions& options, std::string& output,
                          std::string& errors, int& exitStatus, std::string& errorText) {
  try {
    output.clear();
    errors.clear();
    if (arguments.empty()) {
      errorText = "there is no program to run";
      return 0;
    }
    Plan plan(arguments, options);
    const std::string obstacle = run(plan, output, errors, exitStatus);
    if (obstacle.empty()) return 1;
    errorText = arguments[0] + " was not run to its end, " + obstacle;
  } catch (const std::exception& error) {
    errorText = error.what();
  }
  return 0;
}

int DzProcess::system(const std::string& command, std::string& output, std::string& errors) {
  return system(command, output, errors, RunOptions());
}

int DzProcess::system(const std::string& command, std::string& output, std::string& errors, const RunOptions& options) {
  int exitStatus = -1;
  std::string reason;
  if (RunProcess({"/bin/sh", "-c", command}, options, output, errors, exitStatus, reason) == 1) return exitStatus;
  errors += reason;
  return -1;
}
