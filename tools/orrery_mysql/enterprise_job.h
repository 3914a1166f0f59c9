#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// "SIGINT".
std::string signalText(int signal);

/// Hands over the jobs of a type that worked on an instance, newest first, until `take` returns false. It must start
/// none. Throws Failure.
void eachJobOf(Context& context, platform::Id instance, platform::JobType type,
               const std::function<bool(const platform::JobRecord& job)>& take);

/// Starts a job of this process at the job manager. `job.processId` is filled here. Throws Failure.
long long startJob(Context& context, platform::JobRecord job);

/// A job that a driver of enterprise backup works on, as the job of this process, for one scope. A thread shows what
/// the job has done so far and hands the user's wish for the end on as a wish that the job stop, which is all that a
/// driver listens to. A job that nobody has ended when the scope ends has failed.
class EnterpriseJob {
 public:
  /// `what` names the work in causes and lines: "backup", "restore".
  EnterpriseJob(Context& context, const platform::JobRecord& job, const std::string& what);
  ~EnterpriseJob();
  EnterpriseJob(const EnterpriseJob&) = delete;
  EnterpriseJob& operator=(const EnterpriseJob&) = delete;

  long long id() const noexcept { return id_; }
  /// The job as the store has it now. Throws Failure.
  platform::JobRecord record() const;
  bool isAskedToStop() const { return record().quitRequested; }
  void addCause(std::uint32_t code, std::vector<std::string> arguments);
  /// The job's causes in words, the first one first; empty without any.
  std::string causes() const;
  /// Ends the job as failed unless it has ended, with a cause of ours when it was to stop; then tells the causes and
  /// throws Interrupted when the user asked for the end, else Failure. `title` says what failed.
  [[noreturn]] void fail(const std::string& title);

 private:
  class Watch;
  void end() noexcept;

  Context& context_;
  const std::string what_;
  const long long id_;
  const platform::ScopedJob scope_;
  std::unique_ptr<Watch> watch_;
};

}  // namespace orrery::tool
