#include "agent_link.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <tuple>

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

void AgentLink::begin() noexcept {
  try {
    const std::lock_guard held(mutex_);
    if (!client_.connected()) connect();
    if (!runTold_ && client_.connected()) {
      tellStatus(sbtRunCode, ImageState::begun);
      runTold_ = true;
    }
    tellStatus(sbtStatusCode, ImageState::begun);
  } catch (const std::exception& error) {
    logLine(*log_, LogKind::error, jobId_, error.what());
  }
}

void AgentLink::add(const std::string& image, Phase phase, std::int64_t bytes, std::int64_t files) noexcept {
  try {
    const std::lock_guard held(mutex_);
    bytes_ += bytes;
    files_ += files;
    if (!client_.connected()) return;
    SbtProgressMessage message;
    message.jobId = jobId_;
    message.threadId = ::syscall(SYS_gettid);
    message.backupFileName = image.c_str();
    message.bytes = bytes_;
    message.files = files_;
    message.phase = static_cast<std::int32_t>(phase);
    tell(sbtProgressCode, encodeMessage(message));
  } catch (const std::exception& error) {
    logLine(*log_, LogKind::error, jobId_, error.what());
  }
}

void AgentLink::end(ImageState state) noexcept {
  try {
    const std::lock_guard held(mutex_);
    tellStatus(sbtStatusCode, state);
  } catch (const std::exception& error) {
    logLine(*log_, LogKind::error, jobId_, error.what());
  }
}

void AgentLink::connect() {
  const Status status = client_.connect(temporaryDirectory_, sessionServiceName(jobId_), jobId_);
  if (status.ok() || std::exchange(absenceLogged_, true)) return;
  logLine(*log_, LogKind::debug, jobId_, "the job goes on without an agent to tell: " + status.text);
}

void AgentLink::tellStatus(std::uint32_t code, ImageState state) {
  if (!client_.connected()) return;
  SbtStatusMessage message;
  message.jobId = jobId_;
  message.threadId = ::syscall(SYS_gettid);
  message.status = static_cast<std::int32_t>(state);
  tell(code, encodeMessage(message));
}

void AgentLink::tell(std::uint32_t code, const std::string& payload) {
  const Status status = client_.tell(code, payload);
  if (status.ok()) return;
  if (status.code == statusUnavailable)
    logLine(*log_, LogKind::error, jobId_, "the job goes on without its agent: " + status.text);
  else if (!std::exchange(refusalLogged_, true))
    logLine(*log_, LogKind::error, jobId_, "the agent refuses a message: " + status.text);
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
  tell(1);
  link_->end(ImageState::done);
}

void ProgressMeter::tell(std::int64_t files) noexcept {
  link_->add(image_, phase_, std::exchange(pending_, 0), files);
  told_ = std::chrono::steady_clock::now();
}

}  // namespace orrery::libobk
