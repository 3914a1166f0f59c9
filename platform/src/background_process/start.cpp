// From a command line to a running program. Between fork and exec only system calls: the memory may be the parent's.

#include "start.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "orrery/platform/arguments.h"

#include "../child_pipe.h"
#include "../sanitized.h"

namespace orrery::platform::background {
namespace {

constexpr std::size_t largestGroupEntry = std::size_t{1024} * 1024;
/// In builds with a sanitizer nobody waits for exec but us.
constexpr int longestStart = isSanitized ? 30000 : 0;

struct Plan {
  explicit Plan(const Command& from) : command(from) {
    argv.reserve(command.arguments.size() + 1);
    for (std::string& argument : command.arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
  }

  Command command;
  std::vector<char*> argv;
  pid_t starter = getpid();
  OwnFd null;
  Pipe output;
  Pipe errors;
  Pipe obstacle;
};

[[noreturn]] void giveUp(const Plan& plan, const char* step) {
  const Obstacle obstacle{step, errno};
  const ssize_t written = write(plan.obstacle.writing.get(), &obstacle, sizeof obstacle);
  _exit(written == sizeof obstacle ? 127 : 126);
}

/// The bare system calls: setuid() and its kin of the C library would change the parent's threads.
void takeAccount(const Plan& plan) {
  const Account& account = plan.command.account;
  if (!plan.command.takesAccount) return;
  if (syscall(SYS_setgroups, account.groups.size(), account.groups.data()) != 0 ||
      syscall(SYS_setgid, account.gid) != 0 || syscall(SYS_setuid, account.uid) != 0) {
    giveUp(plan, "it cannot take the account");
  }
}

/// A starter that is killed ends its program with it: nobody watches or stops that any more, while its job counts as
/// dead. It is the end of the thread that starts the program that counts, so that thread has to stay; whoever
/// supervises a run does. After the account, as a change of that takes the wish back.
void endWithStarter(const Plan& plan) {
  if (prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) giveUp(plan, "it cannot be bound to its starter");
  errno = ESRCH;
  if (getppid() != plan.starter) giveUp(plan, "its starter has ended");
}

/// The host may ignore them; a program expects them as they are by default, and may need to know how its own children
/// end.
void beginWithDefaultSignals() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (const int number : {SIGPIPE, SIGCHLD}) sigaction(number, &action, nullptr);
}

void becomeProgram(void* param) {
  const auto& plan = *static_cast<const Plan*>(param);
  // A group of its own: everything that the program starts is ended with it, and nothing of ours is.
  if (setpgid(0, 0) != 0) giveUp(plan, "it gets no process group of its own");
  const int output = plan.output.writing ? plan.output.writing.get() : plan.null.get();
  const int errors = plan.errors.writing ? plan.errors.writing.get() : plan.null.get();
  if (dup2(plan.null.get(), STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 || dup2(errors, STDERR_FILENO) < 0) {
    giveUp(plan, "its streams cannot be redirected");
  }
  takeAccount(plan);
  endWithStarter(plan);
  closeOthersOnExec();
  beginWithDefaultSignals();
  execve(plan.argv[0], plan.argv.data(), environ);
  giveUp(plan, "it cannot be executed");
}

bool findGroup(const std::string& name, gid_t& gid) {
  std::vector<char> buffer(1024);
  for (;;) {
    group entry{};
    group* found = nullptr;
    const int error = getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < largestGroupEntry) {
      buffer.resize(buffer.size() * 2);
    } else if (error != EINTR) {
      if (found != nullptr) gid = entry.gr_gid;
      return found != nullptr;
    }
  }
}

/// Whether the system forgets how children end.
bool forgetsChildren() {
  struct sigaction action {};
  return sigaction(SIGCHLD, nullptr, &action) == 0 &&
         (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0);
}

/// The obstacle that the child told before it ended; empty once exec has closed the pipe.
std::string obstacleOf(const Plan& plan) {
  pollfd told{plan.obstacle.reading.get(), POLLIN, 0};
  while (poll(&told, 1, longestStart) < 0 && errno == EINTR) {
  }
  Obstacle obstacle;
  if (read(told.fd, &obstacle, sizeof obstacle) != sizeof obstacle) return {};
  return std::string(obstacle.step) + ": " + errorText(obstacle.error);
}

}  // namespace

std::string prepare(const std::string& commandLine, const std::string& user, const std::string& group,
                    Command& command) {
  if (commandLine.find('\0') != std::string::npos) return "the command line holds a null character";
  command = Command();
  command.arguments = splitArguments(commandLine);
  if (command.arguments.empty()) return "the command line is empty";
  if (!user.empty()) {
    if (findAccount(user, command.account) != AccountLookup::found) return "the account [" + user + "] is not known";
  } else if (!group.empty()) {
    command.account.uid = geteuid();
  }
  if (!group.empty()) {
    if (!findGroup(group, command.account.gid)) return "the group [" + group + "] is not known";
    if (user.empty()) command.account.groups = {command.account.gid};
  }
  // An agent that is no superuser cannot change accounts, and need not when it is the account already.
  const Account& account = command.account;
  command.takesAccount =
      (!user.empty() || !group.empty()) && (geteuid() == 0 || account.uid != geteuid() || account.gid != getegid());
  return {};
}

std::string start(const Command& command, DzProcess& process, Streams* streams) {
  if (forgetsChildren()) return "this process ignores SIGCHLD: how the program ends could not be told";
  Plan plan(command);
  plan.null = OwnFd(aboveStandardStreams(open("/dev/null", O_RDWR | O_CLOEXEC)));
  const bool ready =
      plan.null && plan.obstacle.make() && (streams == nullptr || (plan.output.make() && plan.errors.make()));
  if (!ready) return "its streams cannot be made: " + errorText(errno);
  std::array<char, 120> reason{};
  if (process.Fork(becomeProgram, &plan, reason.data(), static_cast<int>(reason.size()),
                   DzProcess::ChildMemory::borrowed) != 1) {
    return std::string("it gets no process: ") + reason.data();
  }
  plan.obstacle.writing = OwnFd();
  if (streams != nullptr) *streams = {std::move(plan.output.reading), std::move(plan.errors.reading)};
  return obstacleOf(plan);
}

}  // namespace orrery::platform::background
