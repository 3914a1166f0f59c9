#include "support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace orrery::test {
namespace {

using Clock = std::chrono::steady_clock;

void check(int error, const char* what) {
  if (error != 0) throw std::runtime_error(std::string(what) + ": " + std::generic_category().message(error));
}

struct Pipe {
  Pipe() { check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe"); }
  ~Pipe() {
    for (const int end : ends) {
      if (end >= 0) ::close(end);
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int take(int index) { return std::exchange(ends[index], -1); }

  int ends[2] = {-1, -1};
};

class SpawnPlan {
 public:
  SpawnPlan() {
    check(::posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    check(::posix_spawnattr_init(&attributes), "posix_spawnattr_init");
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    check(
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
        "posix_spawnattr_setflags");
  }
  ~SpawnPlan() {
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  void redirect(int from, int to) { check(::posix_spawn_file_actions_adddup2(&actions, from, to), "adddup2"); }

  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

/// The caller's environment with the additions in place of what they replace.
std::vector<std::string> environmentWith(const std::vector<std::string>& additions) {
  std::vector<std::string> result = additions;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::string_view name = text.substr(0, text.find('=') + 1);
    bool replaced = false;
    for (const std::string& addition : additions) replaced = replaced || addition.starts_with(name);
    if (!replaced) result.emplace_back(text);
  }
  return result;
}

std::vector<char*> pointersOf(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

void closeOne(int& descriptor) noexcept {
  if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

/// Takes what is there without waiting; closes the descriptor at the end of the stream.
void takeAvailable(int& descriptor, std::string& text) {
  char buffer[16384];
  while (descriptor >= 0) {
    const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
      closeOne(descriptor);
    } else if (errno != EINTR) {
      return;
    }
  }
}

/// A write to a program that no longer reads must not end the test.
void ignoreSigpipe() {
  static const bool once = ::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
  static_cast<void>(once);
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& arguments, ProgramOptions options)
    : options_(std::move(options)) {
  ignoreSigpipe();
  std::vector<std::string> argumentTexts = arguments;
  std::vector<std::string> environmentTexts = environmentWith(options_.environment);
  Pipe in;
  Pipe out;
  Pipe err;
  SpawnPlan plan;
  plan.redirect(options_.standardInput >= 0 ? options_.standardInput : in.ends[0], 0);
  plan.redirect(out.ends[1], 1);
  plan.redirect(err.ends[1], 2);
  check(::posix_spawnp(&pid_, arguments.at(0).c_str(), &plan.actions, &plan.attributes,
                       pointersOf(argumentTexts).data(), pointersOf(environmentTexts).data()),
        arguments[0].c_str());
  ended_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
  input_ = in.take(1);
  output_ = out.take(0);
  errors_ = err.take(0);
  for (const int descriptor : {input_, output_, errors_}) ::fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

RunningProgram::~RunningProgram() {
  if (pid_ > 0) {
    ::kill(-pid_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  closeAll();
}

void RunningProgram::closeAll() noexcept {
  for (int* descriptor : {&ended_, &input_, &output_, &errors_}) closeOne(*descriptor);
}

void RunningProgram::signalGroup(int signal) const {
  if (pid_ > 0) check(::kill(-pid_, signal) == 0 ? 0 : errno, "kill");
}

void RunningProgram::feedInput() {
  while (fed_ < options_.input.size()) {
    const ssize_t count = ::write(input_, options_.input.data() + fed_, options_.input.size() - fed_);
    if (count > 0) {
      fed_ += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR) {
      break;
    }
  }
  closeOne(input_);
}

/// One round of waiting; false once the program has ended or the limit has passed.
bool RunningProgram::exchange(ProgramResult& result, Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  if (left.count() <= 0) {
    result.timedOut = true;
    return false;
  }
  std::array<pollfd, 4> polled{pollfd{ended_, POLLIN, 0}, pollfd{output_, POLLIN, 0}, pollfd{errors_, POLLIN, 0},
                               pollfd{input_, POLLOUT, 0}};
  if (::poll(polled.data(), polled.size(), static_cast<int>(left.count())) < 0 && errno != EINTR) check(errno, "poll");
  if (input_ >= 0 && polled[3].revents != 0) feedInput();
  takeAvailable(output_, result.output);
  takeAvailable(errors_, result.errors);
  return polled[0].revents == 0;
}

void RunningProgram::reap(ProgramResult& result) {
  if (result.timedOut) ::kill(-pid_, SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) check(errno, "waitpid");
  }
  pid_ = -1;
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
}

ProgramResult RunningProgram::wait() {
  check(ended_ >= 0 ? 0 : ENOSYS, "pidfd_open");
  ProgramResult result;
  const Clock::time_point deadline = Clock::now() + options_.limit;
  while (exchange(result, deadline)) {
  }
  reap(result);
  takeAvailable(output_, result.output);
  takeAvailable(errors_, result.errors);
  closeAll();
  return result;
}

ProgramResult runProgram(const std::vector<std::string>& arguments, ProgramOptions options) {
  return RunningProgram(arguments, std::move(options)).wait();
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace orrery::test
