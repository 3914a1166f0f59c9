#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/DzThread.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/LibMySqlProcess.h"
#include "orrery/platform/services.h"

#include "captured_output.h"
#include "start.h"

namespace LibMySqlProcess {
namespace {

using orrery::platform::aboveStandardStreams;
using orrery::platform::errorText;
using orrery::platform::OwnFd;
using orrery::platform::services;
using orrery::platform::background::CapturedOutput;

constexpr const char* tag = "LibMySqlProcess::MySqlChildProcess";
constexpr std::int64_t grace = 10'000;  // milliseconds from SIGTERM to SIGKILL
constexpr std::int64_t betweenLooks = 100;
constexpr std::chrono::seconds mostForLastWords{5};
/// Without descriptors for processes (Linux before 5.3) the end of a program is looked for this often.
constexpr int betweenLooksWithoutHandle = 50;
constexpr int outputLogLevel = 8;
/// After the program's end no more than that is read: what it left running may write without end.
constexpr std::size_t mostAfterEnd = std::size_t{1024} * 1024;

OwnFd handleOf(pid_t pid) {
#ifdef SYS_pidfd_open
  return OwnFd(aboveStandardStreams(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))));
#else
  static_cast<void>(pid);
  return OwnFd();
#endif
}

/// `lost`: somebody else has reaped it, and its number may be another process's.
enum class Life { running, ended, lost };

/// A child that has ended stays to be reaped.
Life look(pid_t pid) {
  siginfo_t info{};
  if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
    return errno == ECHILD ? Life::lost : Life::running;
  return info.si_pid == pid ? Life::ended : Life::running;
}

bool hasEnded(pid_t pid) {
  return look(pid) != Life::running;
}

void logLines(const EvDebug& event, int level, const char* stream, const std::string& text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    if (level == 0) {
      event.Debug(tag, "%s: %s", stream, line.c_str());
    } else {
      event.DebugLvl(tag, level, "%s: %s", stream, line.c_str());
    }
    begin = end + 1;
  }
}

bool writeWhole(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) return false;
    done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  }
  return true;
}

/// What memory refuses becomes a log line and -1.
template <class Body>
int guarded(Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    EvEvent().Error(tag, "given up: %s", error.what());
    return -1;
  }
}

}  // namespace

class MySqlChildProcess::Runner {
 public:
  int prepare(const std::string& command, const std::string& user, const std::string& group);
  int start(bool keepOutput);
  int beginWait();
  int terminate();
  /// Ends and reaps whatever runs. Called once, before the object goes.
  void end();
  void keepErrors() const;
  void log() const;

  std::atomic<bool> complete{false};
  std::atomic<bool> failed{false};
  std::atomic<bool> preserveError{false};
  mutable std::mutex mutex;  // of `output`, `errors` and of the child until it is reaped
  CapturedOutput output;
  CapturedOutput errors;

 private:
  static void* waitForEnd(void* runner);
  void readUntilEnd();
  void read(OwnFd& stream, CapturedOutput& kept);
  void readTheRest(OwnFd& stream, CapturedOutput& kept);
  void reap();
  bool signalGroup(int signal);

  EvEvent event_;
  orrery::platform::background::Command command_;
  orrery::platform::background::Streams streams_;  // the waiter's, once there is one
  OwnFd handle_;
  DzProcess process_;
  pid_t pid_ = -1;
  bool reaped_ = false;       // under the mutex; its id may be another process's then
  bool terminating_ = false;  // under the mutex
  std::atomic<bool> waits_{false};
  std::condition_variable completed_;
  DzThread waiter_;
};

int MySqlChildProcess::Runner::prepare(const std::string& command, const std::string& user, const std::string& group) {
  const std::string obstacle = orrery::platform::background::prepare(command, user, group, command_);
  if (obstacle.empty()) return 0;
  command_.arguments.clear();
  event_.Error(tag, "%s", obstacle.c_str());
  return -1;
}

int MySqlChildProcess::Runner::start(bool keepOutput) {
  if (command_.arguments.empty() || pid_ >= 0) {
    event_.Error(tag, "%s", pid_ >= 0 ? "a runner starts one program" : "there is no program to start");
    return -1;
  }
  const std::string obstacle =
      orrery::platform::background::start(command_, process_, keepOutput ? &streams_ : nullptr);
  pid_ = process_.GetChildPid();
  if (!obstacle.empty()) {
    event_.Error(tag, "%s was not started, %s", command_.arguments[0].c_str(), obstacle.c_str());
    failed = true;
    return -1;
  }
  handle_ = handleOf(pid_);
  event_.Debug(tag, "process %d runs %s", static_cast<int>(pid_), command_.arguments[0].c_str());
  return 0;
}

int MySqlChildProcess::Runner::beginWait() {
  if (pid_ < 0 || waits_) {
    event_.Error(tag, "%s", waits_ ? "the program is waited for already" : "there is no program to wait for");
    return -1;
  }
  if (const int error = waiter_.createThread(waitForEnd, this); error != 0) {
    event_.Error(tag, "no thread to wait for the program: %s", errorText(error).c_str());
    return -1;
  }
  waits_ = true;
  return 0;
}

void* MySqlChildProcess::Runner::waitForEnd(void* runner) {
  auto& self = *static_cast<Runner*>(runner);
  try {
    self.readUntilEnd();
  } catch (const std::exception& error) {
    // Nobody reads now; a program that goes on writing must not wait for that without end.
    self.event_.Error(tag, "the output cannot be kept: %s", error.what());
    self.failed = true;
    self.signalGroup(SIGKILL);
  }
  self.reap();
  return nullptr;
}

void MySqlChildProcess::Runner::readUntilEnd() {
  bool ended = false;
  while (!ended) {
    std::array<pollfd, 3> waiting{pollfd{handle_.get(), POLLIN, 0}, pollfd{streams_.output.get(), POLLIN, 0},
                                  pollfd{streams_.errors.get(), POLLIN, 0}};
    if (poll(waiting.data(), waiting.size(), handle_ ? -1 : betweenLooksWithoutHandle) < 0) continue;
    if (waiting[1].revents != 0) read(streams_.output, output);
    if (waiting[2].revents != 0) read(streams_.errors, errors);
    ended = (!handle_ || waiting[0].revents != 0) && hasEnded(pid_);
  }
  readTheRest(streams_.output, output);
  readTheRest(streams_.errors, errors);
}

/// One portion. A stream that has ended is closed.
void MySqlChildProcess::Runner::read(OwnFd& stream, CapturedOutput& kept) {
  std::array<char, 65536> bytes;
  const ssize_t count = ::read(stream.get(), bytes.data(), bytes.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) {
    stream = OwnFd();
    return;
  }
  const std::lock_guard held(mutex);
  kept.append({bytes.data(), static_cast<std::size_t>(count)});
}

void MySqlChildProcess::Runner::readTheRest(OwnFd& stream, CapturedOutput& kept) {
  std::array<char, 65536> bytes;
  std::size_t sum = 0;
  while (stream && sum < mostAfterEnd) {
    const ssize_t count = ::read(stream.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    sum += static_cast<std::size_t>(count);
    const std::lock_guard held(mutex);
    kept.append({bytes.data(), static_cast<std::size_t>(count)});
  }
  stream = OwnFd();
}

/// The child has ended or is about to. Failure before completion: who sees the one sees the other.
void MySqlChildProcess::Runner::reap() {
  while (!hasEnded(pid_)) {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
  }
  const std::lock_guard held(mutex);
  // What it left running goes with it; its group's number cannot be another's as long as it is not reaped.
  if (terminating_ && look(pid_) == Life::ended) kill(-pid_, SIGKILL);
  int status = -1;
  std::array<char, 120> reason{};
  if (process_.WaitForProcessToEnd(status, reason.data(), static_cast<int>(reason.size()), -1) != 1) {
    event_.Error(tag, "how process %d ended is lost: %s", static_cast<int>(pid_), reason.data());
    status = -1;
  } else if (WIFSIGNALED(status)) {
    event_.Debug(tag, "process %d was ended by signal %d", static_cast<int>(pid_), WTERMSIG(status));
  } else {
    event_.Debug(tag, "process %d ended with exit code %d", static_cast<int>(pid_), WEXITSTATUS(status));
  }
  reaped_ = true;
  if (status != 0) failed = true;
  complete = true;
  completed_.notify_all();
}

/// False when there is nobody to signal.
bool MySqlChildProcess::Runner::signalGroup(int signal) {
  const std::lock_guard held(mutex);
  if (pid_ < 0 || reaped_ || look(pid_) == Life::lost) return false;
  terminating_ = true;
  kill(-pid_, signal);
  return true;
}

int MySqlChildProcess::Runner::terminate() {
  if (!signalGroup(SIGTERM)) return -1;
  const auto gone = [this] {
    const std::lock_guard held(mutex);
    return reaped_ || hasEnded(pid_);
  };
  for (std::int64_t waited = 0; !gone() && waited < grace; waited += betweenLooks)
    services().clock->sleep(betweenLooks);
  if (!gone()) {
    event_.Debug(tag, "process %d does not end when it is asked to; it is killed", static_cast<int>(pid_));
    signalGroup(SIGKILL);
  }
  std::unique_lock held(mutex);
  if (waits_) completed_.wait_for(held, mostForLastWords, [this] { return reaped_; });
  return 0;
}

void MySqlChildProcess::Runner::end() {
  if (pid_ < 0) return;
  signalGroup(SIGKILL);
  if (waits_) {
    waiter_.join();
  } else {
    reap();
  }
}

void MySqlChildProcess::Runner::keepErrors() const {
  const std::lock_guard held(mutex);
  if (!preserveError || errors.empty()) return;
  const DZPI_CommClient client;
  std::string folder;
  if (client.getJobResultsDirectory(client.getFocusClientName(true), folder) != 0) return;
  folder += "/DZ_JobResults/2/0/" + std::to_string(event_.getJobId());
  const CKyError error = CKyDirectory::Create(folder);
  OwnFd file;
  std::string path;
  for (std::int64_t micros = services().clock->now(); !error.isError() && !file; ++micros) {
    path = folder + "/MySqlErrors_" + std::to_string(micros) + ".txt";
    file = OwnFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file && errno != EEXIST) break;
  }
  if (!file || !writeWhole(file.get(), errors.text()))
    event_.Error(tag, "the error output cannot be kept in [%s]: %s", folder.c_str(),
                 error.isError() ? error.text().c_str() : errorText(errno).c_str());
}

void MySqlChildProcess::Runner::log() const {
  const std::lock_guard held(mutex);
  const int level = failed ? 0 : outputLogLevel;
  if (level != 0 && !services().log->wants(level)) return;
  logLines(event_, level, "stdout", output.text());
  logLines(event_, level, "stderr", errors.text());
}

MySqlChildProcess::MySqlChildProcess() : runner_(std::make_unique<Runner>()) {}

MySqlChildProcess::~MySqlChildProcess() {
  runner_->end();
  try {
    runner_->keepErrors();
  } catch (const std::exception& error) {
    EvEvent().Error(tag, "the error output cannot be kept: %s", error.what());
  }
}

int MySqlChildProcess::Initialize(const std::string& command, const std::string& user, const std::string& group) {
  return guarded([&] { return runner_->prepare(command, user, group); });
}

int MySqlChildProcess::DZ_CreateProcess(bool, bool, bool, bool keepOutput) {
  return guarded([&] { return runner_->start(keepOutput); });
}

int MySqlChildProcess::BeginWait() {
  return guarded([&] { return runner_->beginWait(); });
}

bool MySqlChildProcess::isComplete() const noexcept {
  return runner_->complete;
}

bool MySqlChildProcess::isFailed() const noexcept {
  return runner_->failed;
}

void MySqlChildProcess::markFailed() noexcept {
  runner_->failed = true;
}

void MySqlChildProcess::setPreserveError(bool preserve) noexcept {
  runner_->preserveError = preserve;
}

int MySqlChildProcess::Terminate() {
  return guarded([&] { return runner_->terminate(); });
}

int MySqlChildProcess::ReadLastErr(std::string& out, const std::string& prefix) const {
  return guarded([&] {
    const std::lock_guard held(runner_->mutex);
    return runner_->errors.findLast(prefix, out) ? 0 : -1;
  });
}

void MySqlChildProcess::logBufferContent() const {
  guarded([&] {
    runner_->log();
    return 0;
  });
}

}  // namespace LibMySqlProcess
