#include "enterprise_job.h"

#include <string.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "orrery/platform/home.h"

#include "failure.h"
#include "interrupt.h"
#include "job_text.h"
#include "process_mark.h"
#include "progress.h"

namespace orrery::tool {
namespace {

using namespace std::chrono_literals;

// Causes of the command's own, in the message catalogue.
constexpr std::uint32_t endedBySignal = 0x57000100;
constexpr std::uint32_t askedToStop = 0x57000101;
constexpr int messageType = 300;

}  // namespace

std::string signalText(int signal) {
  const char* const name = ::sigabbrev_np(signal);
  return name == nullptr ? std::to_string(signal) : std::string("SIG") + name;
}

void eachJobOf(Context& context, platform::Id instance, platform::JobType type,
               const std::function<bool(const platform::JobRecord& job)>& take) {
  // The manager lists the jobs of all instances; mostly the newest ones do.
  std::size_t seen = 0;
  for (std::size_t most = 100;; most *= 8) {
    std::vector<platform::JobRecord> jobs;
    require(context.services().jobs->list(most, jobs), "the jobs cannot be listed");
    for (; seen < jobs.size(); ++seen)
      if (jobs[seen].instanceId == instance && jobs[seen].type == type && !take(jobs[seen])) return;
    if (jobs.size() < most) return;
  }
}

long long startJob(Context& context, platform::JobRecord job) {
  platform::JobManager& jobs = *context.services().jobs;
  job.processId = ::getpid();
  long long id = 0;
  require(jobs.start(job, id), "no job can be started");
  require(jobs.writeTaskOption(id, processStartOption, markOf(::getpid()).start), "the job cannot be described");
  return id;
}

/// Looks at the job twice a second.
class EnterpriseJob::Watch {
 public:
  Watch(Context& context, long long id, const std::string& what)
      : jobs_(context.services().jobs),
        id_(id),
        what_(what),
        progress_(what + ", job " + std::to_string(id), context.wantsProgress()),
        thread_([this] { look(); }) {}
  ~Watch() {
    {
      const std::lock_guard lock(mutex_);
      done_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  std::string asked() const {
    return "orrery-mysql: note: " + signalText(interruptSignal()) + ": the " + what_ +
           " is asked to end and puts in order what it has begun; SIGQUIT (Ctrl-\\), or another signal in a minute, "
           "ends it at once and leaves all as it is";
  }
  void look() {
    std::unique_lock lock(mutex_);
    bool isHandedOn = false;
    while (!changed_.wait_for(lock, 500ms, [this] { return done_; })) {
      platform::JobRecord job;
      if (jobs_->find(id_, job).ok()) progress_.change(progressText(job, std::nullopt));
      if (interruptSignal() == 0 || isHandedOn) continue;
      isHandedOn = jobs_->requestQuit(id_).ok();
      if (isHandedOn) progress_.tell(asked());
    }
  }

  const std::shared_ptr<platform::JobManager> jobs_;
  const long long id_;
  const std::string what_;
  Progress progress_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

EnterpriseJob::EnterpriseJob(Context& context, const platform::JobRecord& job, const std::string& what)
    : context_(context),
      what_(what),
      id_(startJob(context, job)),
      scope_(id_),
      watch_(std::make_unique<Watch>(context, id_, what)) {}

EnterpriseJob::~EnterpriseJob() {
  watch_.reset();
  end();
}

platform::JobRecord EnterpriseJob::record() const {
  return findJob(context_, id_);
}

void EnterpriseJob::addCause(std::uint32_t code, std::vector<std::string> arguments) {
  platform::PendingCause cause;
  cause.code = code;
  cause.messageType = messageType;
  cause.arguments = std::move(arguments);
  const platform::Status status = context_.services().jobs->addCause(id_, cause);
  if (!status.ok()) context_.note("the job's cause is not recorded: " + status.text);
}

std::string EnterpriseJob::causes() const {
  std::vector<platform::PendingCause> causes;
  if (!context_.services().jobs->listCauses(id_, causes).ok()) return {};
  std::string text;
  for (const platform::PendingCause& cause : causes) {
    std::string one = platform::messageText(cause.code, cause.arguments);
    while (!one.empty() && one.back() == '.') one.pop_back();
    text += (text.empty() ? "" : "; ") + one;
  }
  return text;
}

void EnterpriseJob::fail(const std::string& title) {
  watch_.reset();
  const int signal = interruptSignal();
  if (signal != 0) {
    addCause(endedBySignal, {what_, signalText(signal)});
  } else if (isAskedToStop()) {
    addCause(askedToStop, {what_});
  }
  end();
  const std::string what = title + ", job " + std::to_string(id_);
  const std::string why = causes();
  if (signal != 0) {
    context_.note(what + ": " + why);
    throw Interrupted();
  }
  throw Failure(what, why.empty() ? context_.lastWords() : why);
}

void EnterpriseJob::end() noexcept {
  try {
    if (record().state != platform::JobState::running) return;
    require(context_.services().jobs->complete(id_, platform::JobState::failed, true, 0),
            "the end of the job " + std::to_string(id_) + " is not recorded");
  } catch (const std::exception& error) {
    context_.note(error.what());
  }
}

}  // namespace orrery::tool
