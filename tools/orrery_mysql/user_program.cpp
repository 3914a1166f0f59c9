#include "user_program.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "failure.h"

namespace orrery::tool {
namespace {

constexpr int kCannotRun = 127;

ssize_t readAll(int descriptor, void* buffer, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = ::read(descriptor, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

/// The new process up to the program: system calls only, as other threads of this one may have held any lock.
[[noreturn]] void becomeProgram(const char* file, char** arguments, int leash, int other,
                                const sigset_t& mask) noexcept {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction action {};
    ::sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(signal, &action, nullptr);
  }
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  ::close(other);  // or the end of the parent could not be seen
  char go = 0;
  if (readAll(leash, &go, 1) == 1) {
    ::execve(file, arguments, environ);
    const int error = errno;
    static_cast<void>(::send(leash, &error, sizeof(error), MSG_NOSIGNAL));
  }
  ::_exit(kCannotRun);
}

}  // namespace

UserProgram::UserProgram(const std::string& file, const std::vector<std::string>& words) : name_(words.front()) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw Failure("the command " + name_ + " cannot be run", errorText(errno));
  }
  leash_ = OwnFd(ends[0]);
  const OwnFd theirs(ends[1]);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  // A handler of this program must not run in the new process.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  pid_ = ::fork();
  const int error = errno;
  if (pid_ == 0) becomeProgram(file.c_str(), arguments.data(), theirs.get(), leash_.get(), before);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (pid_ < 0) throw Failure("the command " + name_ + " cannot be run", errorText(error));
}

UserProgram::~UserProgram() {
  leash_ = OwnFd();
  int status = 0;
  while (pid_ > 0 && ::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
}

void UserProgram::start() {
  // A process that a signal ended meanwhile takes nothing, and its end tells the rest.
  static_cast<void>(::send(leash_.get(), "g", 1, MSG_NOSIGNAL));
  int error = 0;
  if (readAll(leash_.get(), &error, sizeof(error)) == static_cast<ssize_t>(sizeof(error))) {
    throw Failure("the command " + name_ + " cannot be run", errorText(error));
  }
}

int UserProgram::wait() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) throw Failure("the command " + name_ + " cannot be waited for", errorText(errno));
  }
  pid_ = -1;
  return status;
}

}  // namespace orrery::tool
