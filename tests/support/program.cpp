#include "support/program.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// A file without a name, which a program can be given as a standard stream: it never fills up, and it can be read when
/// the program is gone.
platform::OwnFd makeFile(const std::string& content = {}) {
  platform::OwnFd file(::memfd_create("stream", MFD_CLOEXEC));
  check(file.valid() ? 0 : errno, "memfd_create");
  const auto size = static_cast<ssize_t>(content.size());
  check(::pwrite(file.get(), content.data(), content.size(), 0) == size ? 0 : errno, "pwrite");
  return file;
}

std::string contentOf(const platform::OwnFd& file) {
  const off_t size = ::lseek(file.get(), 0, SEEK_END);
  check(size >= 0 ? 0 : errno, "lseek");
  std::string text(static_cast<std::size_t>(size), '\0');
  check(::pread(file.get(), text.data(), text.size(), 0) == size ? 0 : errno, "pread");
  return text;
}

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

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& arguments, ProgramOptions options)
    : limit_(options.limit), input_(makeFile(options.input)), output_(makeFile()), errors_(makeFile()) {
  std::vector<std::string> argumentTexts = arguments;
  std::vector<std::string> environmentTexts = environmentWith(options.environment);
  SpawnPlan plan;
  plan.redirect(options.standardInput >= 0 ? options.standardInput : input_.get(), 0);
  plan.redirect(output_.get(), 1);
  plan.redirect(options.standardError >= 0 ? options.standardError : errors_.get(), 2);
  check(::posix_spawnp(&pid_, arguments.at(0).c_str(), &plan.actions, &plan.attributes,
                       pointersOf(argumentTexts).data(), pointersOf(environmentTexts).data()),
        arguments[0].c_str());
  ended_ = platform::OwnFd(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
}

RunningProgram::~RunningProgram() {
  if (pid_ <= 0) return;
  ::kill(-pid_, SIGKILL);
  while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void RunningProgram::signalGroup(int signal) const {
  if (pid_ > 0) check(::kill(-pid_, signal) == 0 ? 0 : errno, "kill");
}

ProgramResult RunningProgram::wait() {
  check(ended_.valid() ? 0 : ENOSYS, "pidfd_open");
  ProgramResult result;
  const Clock::time_point deadline = Clock::now() + limit_;
  pollfd ended{ended_.get(), POLLIN, 0};
  while (ended.revents == 0 && !result.timedOut) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    result.timedOut = left.count() <= 0;
    if (!result.timedOut && ::poll(&ended, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)
      check(errno, "poll");
  }
  if (result.timedOut) ::kill(-pid_, SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) check(errno, "waitpid");
  }
  pid_ = -1;
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  result.output = contentOf(output_);
  result.errors = contentOf(errors_);
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
