#include "work_lock.h"

#include <fcntl.h>

#include <cerrno>
#include <vector>

#include "failure.h"
#include "job_text.h"
#include "posix.h"

namespace orrery::tool {
namespace {

/// "job 7", as far as it is known.
std::string whoIsAtIt(Context& context, platform::Id instance) {
  constexpr std::size_t most = 100;
  std::vector<platform::JobRecord> jobs;
  if (context.services().jobs->list(most, jobs).ok()) {
    for (const platform::JobRecord& job : jobs)
      if (job.instanceId == instance && stateOf(context, job) == "running") return "job " + std::to_string(job.id);
  }
  return "another backup or restore";
}

}  // namespace

WorkLock::WorkLock(Context& context, const platform::InstanceRecord& instance) {
  context.services();
  const std::string path = context.homePath() + "/vault.key";
  file_ = OwnFd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (!file_.valid()) throw Failure("the lock of " + instance.name + " cannot be used", path + ": " + errorText(errno));
  // A lock of the open file: nobody else's close of the same file ends it.
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(instance.id);
  lock.l_len = 1;
  if (::fcntl(file_.get(), F_OFD_SETLK, &lock) == 0) return;
  if (errno != EAGAIN && errno != EACCES)
    throw Failure("the lock of " + instance.name + " cannot be used", path + ": " + errorText(errno));
  throw Failure("nothing is done to " + instance.name, whoIsAtIt(context, instance.id) + " is at it",
                "wait for it with orrery-mysql job watch, or stop it");
}

}  // namespace orrery::tool
