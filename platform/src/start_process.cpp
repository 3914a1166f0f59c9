// A program that outlives its starter. A child makes a session of its own and starts the program from there, then ends:
// the program is an orphan from its first moment on.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/posix.h"

#include "sanitized.h"

namespace {

using orrery::platform::aboveStandardStreams;
using orrery::platform::errorText;
using orrery::platform::OwnFd;

// Room for what the last process before exec does: a few system calls.
constexpr std::size_t stackSize = std::size_t{16} * 1024;

/// Why the program was not started; travels over a pipe that exec closes. The text is a literal.
struct Obstacle {
  const char* step = nullptr;
  int error = 0;
};

struct Plan {
  explicit Plan(const std::vector<std::string>& from) : arguments(from) {
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
  }

  std::vector<std::string> arguments;
  std::vector<char*> argv;
  OwnFd null;
  OwnFd obstacles;     // read by the starter
  OwnFd obstaclesEnd;  // written by its children
};

[[noreturn]] void giveUp(const Plan& plan, const char* step) {
  const Obstacle obstacle{step, errno};
  const ssize_t written = write(plan.obstaclesEnd.get(), &obstacle, sizeof obstacle);
  _exit(written == sizeof obstacle ? 0 : 1);
}

void beginWithDefaultSignals() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_DFL) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    sigaction(number, &action, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

int becomeProgram(void* param) {
  const auto& plan = *static_cast<const Plan*>(param);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (dup2(plan.null.get(), stream) < 0) giveUp(plan, "its streams cannot be redirected");
  }
  orrery::platform::closeOthersOnExec();
  beginWithDefaultSignals();
  execve(plan.argv[0], plan.argv.data(), environ);
  giveUp(plan, "it cannot be executed");
}

/// The child in between, on memory that may be the starter's. It stays until the program has taken over, because the
/// program's process borrows its stack meanwhile.
void startOrphan(void* param) {
  const auto& plan = *static_cast<const Plan*>(param);
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  if (setsid() < 0) giveUp(plan, "it gets no session of its own");
  alignas(16) std::array<char, stackSize> stack;
  const int memory = orrery::platform::isSanitized ? 0 : CLONE_VM;
  if (clone(becomeProgram, stack.data() + stack.size(), memory | CLONE_VFORK | SIGCHLD, param) < 0) {
    giveUp(plan, "it gets no process");
  }
  _exit(0);
}

bool prepare(Plan& plan) {
  int ends[2];
  plan.null = OwnFd(aboveStandardStreams(open("/dev/null", O_RDWR | O_CLOEXEC)));
  // Never waited for: once the child in between has ended, what there is to read has been written.
  if (!plan.null || pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  plan.obstacles = OwnFd(aboveStandardStreams(ends[0]));
  plan.obstaclesEnd = OwnFd(aboveStandardStreams(ends[1]));
  return plan.obstacles && plan.obstaclesEnd;
}

/// Empty when the program runs.
std::string start(const std::vector<std::string>& arguments) {
  if (arguments.empty()) return "there is no program to start";
  const auto failure = [&](const char* step, const std::string& reason) {
    return arguments[0] + " was not started, " + step + ": " + reason;
  };
  Plan plan(arguments);
  if (!prepare(plan)) return failure("its streams cannot be made", errorText(errno));
  std::array<char, 120> reason{};
  const int room = static_cast<int>(reason.size());
  DzProcess between;
  if (between.Fork(startOrphan, &plan, reason.data(), room, DzProcess::ChildMemory::borrowed) != 1) {
    return failure("it gets no process", reason.data());
  }
  int status = 0;
  if (between.WaitForProcessToEnd(status, reason.data(), room, -1) != 1) {
    return failure("its starter cannot be waited for", reason.data());
  }
  if (status != 0) return failure("its starter was ended", "status " + std::to_string(status));
  Obstacle obstacle;
  if (read(plan.obstacles.get(), &obstacle, sizeof obstacle) != sizeof obstacle) return {};
  return failure(obstacle.step, errorText(obstacle.error));
}

}  // namespace

int DzProcess::StartProcess(const std::vector<std::string>& arguments, std::string& errorText) {
  try {
    std::string obstacle = ::start(arguments);
    if (obstacle.empty()) return 1;
    errorText = std::move(obstacle);
  } catch (const std::exception& error) {
    errorText = error.what();
  }
  return 0;
}
