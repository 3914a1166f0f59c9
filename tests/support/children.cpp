#include "support/children.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace orrery::test {
namespace {

constexpr uid_t nobody = 65534;

pid_t startChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    int result = 255;
    try {
      result = body();
    } catch (const std::exception&) {
      result = 254;
    }
    ::_exit(result);
  }
  return child;
}

int waitFor(pid_t child, int options = 0) {
  int status = 0;
  while (::waitpid(child, &status, options) != child)
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  return status;
}

}  // namespace

int inChild(const std::function<int()>& body) {
  const int status = waitFor(startChild(body));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int asOrdinaryUser(const std::function<int()>& body) {
  return inChild([&] {
    if (::geteuid() == 0 && ::setresuid(nobody, nobody, nobody) != 0) return 253;
    return body();
  });
}

bool holdsForOrdinaryUser(const std::function<bool()>& condition) {
  return asOrdinaryUser([&] { return condition() ? 0 : 1; }) == 0;
}

void inChildrenTogether(int children, const std::function<int(int)>& body) {
  // They begin together: each waits until the end of the pipe that the parent holds is closed.
  int gate[2];
  ASSERT_EQ(::pipe(gate), 0);
  std::vector<pid_t> started;
  started.reserve(static_cast<std::size_t>(children));
  for (int number = 0; number < children; ++number)
    started.push_back(startChild([&] {
      ::close(gate[1]);
      char byte = 0;
      return ::read(gate[0], &byte, 1) == 0 ? body(number) : 1;
    }));
  ::close(gate[0]);
  ::close(gate[1]);
  for (const pid_t child : started) EXPECT_EQ(waitFor(child), 0);
}

bool hasNoChildren() {
  return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

FullDisk::FullDisk(rlim_t size) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
  EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
  const rlimit limit{size, before_.rlim_max};
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
}

FullDisk::~FullDisk() {
  ::setrlimit(RLIMIT_FSIZE, &before_);
  ::signal(SIGXFSZ, handler_);
}

bool killedAtSystemCall(int n, const std::function<void()>& body) {
  const pid_t child = startChild([&] {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 1;
    ::raise(SIGSTOP);
    body();
    return 0;
  });
  int status = waitFor(child, WUNTRACED);
  int entered = 0;
  bool entering = true;
  while (WIFSTOPPED(status)) {
    if (WSTOPSIG(status) == SIGTRAP) {
      if (entering && ++entered == n) {
        ::kill(child, SIGKILL);
        waitFor(child);
        return true;
      }
      entering = !entering;
    }
    if (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0)
      throw std::system_error(errno, std::generic_category(), "ptrace");
    status = waitFor(child, WUNTRACED);
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child could not be traced or failed: " << status;
  return false;
}

}  // namespace orrery::test
