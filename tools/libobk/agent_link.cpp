#include "agent_link.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <thread>
#include <utility>

namespace orrery::libobk {

using namespace platform;

void logLine(LogSink& log, LogKind kind, long long jobId, const std::string& text) noexcept {
  log.write({kind, 0, jobId, "libobk", text});
}

std::shared_ptr<AgentLink> AgentLink::of(const std::string& temporaryDirectory, long long jobId,
                                         std::shared_ptr<LogSink> log) {
  if (jobId == 0) return nullptr;
  // Sessions of one process know nothing of each other but this.
  static std::mutex mutex;
  static std::map<std::pair<std::string, long long>, std::weak_ptr<AgentLink>> links;
  const std::lock_guard held(mutex);
  std::erase_if(links, [](const auto& each) { return each.second.expired(); });
  std::weak_ptr<AgentLink>& known = links[{temporaryDirectory, jobId}];
  std::shared_ptr<AgentLink> link = known.lock();
  if (!link) known = link = std::make_shared<AgentLink>(temporaryDirectory, jobId, std::move(log));
  return link;
}

template <class Body>
void AgentLink::attempt(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (const std::exception& error) {
    logLine(*log_, LogKind::error, jobId_, error.what());
  }
}

void AgentLink::begin() noexcept {
  attempt([&] {
    const std::lock_guard held(mutex_);
    if (isReady()) tellStatus(sbtStatusCode, ImageState::begun);
  });
}

void AgentLink::add(const std::string& image, Phase phase, std::int64_t bytes, std::int64_t files, bool last) noexcept {
  bytes_ += bytes;
  files_ += files;
  attempt([&] {
    std::unique_lock held(mutex_, std::defer_lock);
    if (last)
      held.lock();
    else if (!held.try_lock())
      return;
    if (!isReady()) return;
    SbtProgressMessage message;
    message.jobId = jobId_;
    message.threadId = ::syscall(SYS_gettid);
    message.backupFileName = image.c_str();
    message.bytes = bytes_;
    message.files = files_;
    message.phase = static_cast<std::int32_t>(phase);
    tell(sbtProgressCode, encodeMessage(message));
  });
}

void AgentLink::end(ImageState state) noexcept {
  attempt([&] {
    const std::lock_guard held(mutex_);
    // The agent waits for this word: after it the program may be silent for hours. A line that was just lost is tried
    // again at once.
    if (runTold_) nextAttempt_ = {};
    if (isReady()) tellStatus(sbtStatusCode, state);
  });
}

bool AgentLink::isReady() {
  if (!client_.connected()) {
    if (SteadyClock::now() < nextAttempt_) return false;
    if (const Status status = connect(); !status.ok()) {
      // Nobody serves runs that were started by hand: no error.
      const bool absent = status.code == statusNotFound;
      pause(absent ? LogKind::debug : LogKind::error, absent ? absenceLogged_ : silenceLogged_,
            "the job goes on without an agent to tell: " + status.text);
      return false;
    }
  }
  if (!runTold_) runTold_ = tellStatus(sbtRunCode, ImageState::begun);
  return runTold_;
}

Status AgentLink::connect() {
  const auto attemptNow = [&] { return client_.connect(temporaryDirectory_, sessionServiceName(jobId_), jobId_); };
  Status status = attemptNow();
  if (std::exchange(waitedForAgent_, true)) return status;
  // The agent starts its server and the backup program side by side. About a second in all.
  for (std::chrono::milliseconds wait{15}; status.code == statusNotFound && wait.count() < 500; wait *= 2) {
    std::this_thread::sleep_for(wait);
    status = attemptNow();
  }
  return status;
}

bool AgentLink::tellStatus(std::uint32_t code, ImageState state) {
  SbtStatusMessage message;
  message.jobId = jobId_;
  message.threadId = ::syscall(SYS_gettid);
  message.status = static_cast<std::int32_t>(state);
  return tell(code, encodeMessage(message));
}

bool AgentLink::tell(std::uint32_t code, const std::string& payload) {
  const Status status = client_.tell(code, payload);
  if (status.code == statusUnavailable) {
    pause(LogKind::error, silenceLogged_, "the job goes on without its agent: " + status.text);
    return false;
  }
  pause_ = shortestPause;
  absenceLogged_ = silenceLogged_ = false;
  if (!status.ok() && !std::exchange(refusalLogged_, true))
    logLine(*log_, LogKind::error, jobId_, "the agent refuses a message: " + status.text);
  return true;
}

void AgentLink::pause(LogKind kind, bool& logged, const std::string& text) {
  nextAttempt_ = SteadyClock::now() + pause_;
  pause_ = std::min<SteadyClock::duration>(2 * pause_, longestPause);
  if (!std::exchange(logged, true)) logLine(*log_, kind, jobId_, text);
}

// -------------------------------------------------------------------------------------------------------------- meter

ProgressMeter::ProgressMeter(std::shared_ptr<AgentLink> link, std::string image, Phase phase)
    : link_(std::move(link)), image_(std::move(image)), phase_(phase) {
  if (link_) link_->begin();
}

ProgressMeter::~ProgressMeter() {
  if (link_ && !finished_) link_->end(ImageState::givenUp);
}

void ProgressMeter::finish() noexcept {
  finished_ = true;
  if (!link_) return;
  tell(1, true);
  link_->end(ImageState::done);
}

void ProgressMeter::tell(std::int64_t files, bool last) noexcept {
  link_->add(image_, phase_, std::exchange(pending_, 0), files, last);
  told_ = std::chrono::steady_clock::now();
}

}  // namespace orrery::libobk
