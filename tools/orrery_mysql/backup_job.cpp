#include "backup_job.h"

#include <unistd.h>

#include "enterprise_job.h"
#include "failure.h"
#include "interrupt.h"
#include "job_text.h"
#include "process_mark.h"

namespace orrery::tool {
namespace {

constexpr const char* jobManager = "";  // this home's own
constexpr int messageType = 300;

platform::JobRecord recordOf(const platform::InstanceRecord& instance, const platform::SubclientRecord& subclient,
                             int level) {
  platform::JobRecord job;
  job.type = platform::JobType::backup;
  job.instanceId = instance.id;
  job.subclientId = subclient.id;
  job.level = level;
  return job;
}

}  // namespace

BackupJob::BackupJob(Context& context, const platform::InstanceRecord& instance,
                     const platform::SubclientRecord& subclient, int level)
    : context_(context), id_(startJob(context, recordOf(instance, subclient, level))), scope_(id_), control_(2) {
  if (!client_.init(jobManager, id_, 0, 4, 0, nullptr) || control_.Init2(id_, jobManager, 1, 4, "", 0) != 1) {
    throw Failure("the job " + std::to_string(id_) + " cannot be used", context.lastWords());
  }
}

BackupJob::~BackupJob() {
  if (isComplete_) return;
  try {
    complete(DZJobStatus::failed);
  } catch (const std::exception& error) {
    context_.note(error.what());
  }
}

void BackupJob::step(std::string text, int percent) {
  step_ = std::move(text);
  if (interruptSignal() != 0) throw Interrupted();
  if (control_.checkQuitFlag()) throw Stopped();
  require(context_.services().jobs->setProgress(id_, percent), "the job's progress cannot be told");
}

void BackupJob::addCause(std::uint32_t code, const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) client_.event() << argument;
  if (!client_.setPendingCause(code, messageType))
    context_.note("the job's cause is not recorded: " + context_.lastWords());
}

void BackupJob::complete(DZJobStatus status) {
  // What the progress says counts for less than how the job ended.
  if (status != DZJobStatus::failed) static_cast<void>(context_.services().jobs->setProgress(id_, 100));
  if (!client_.complete(status, DZJobStatusFor::job, 0, 0)) {
    throw Failure("the end of the job " + std::to_string(id_) + " is not recorded", context_.lastWords());
  }
  isComplete_ = true;
}

bool BackupControl::checkQuitFlag() const {
  return interruptSignal() != 0 || DZJobCtrlClient::checkQuitFlag();
}

}  // namespace orrery::tool
