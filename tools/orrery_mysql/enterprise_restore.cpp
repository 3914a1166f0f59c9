#include "enterprise_restore.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZRestoreTask.h"

#include "data_paths.h"
#include "enterprise_job.h"
#include "failure.h"
#include "images.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "job_text.h"
#include "restore_plan.h"
#include "secrets.h"
#include "server_session.h"
#include "time_text.h"
#include "work_lock.h"

namespace orrery::tool {
namespace {

bool hasDied(Context& context, platform::Id instance) {
  bool died = false;
  eachJobOf(context, instance, platform::JobType::restore, [&](const platform::JobRecord& job) {
    died = stateOf(context, job) == "died";
    return !died;
  });
  return died;
}

/// The unpacked copy of the data of a restore that was killed, however long ago: the next one may need the space. With
/// the instance's lock held no other restore works in such a folder.
void removeLeftCopies(Context& context, const platform::InstanceRecord& instance) {
  namespace fs = std::filesystem;
  std::vector<fs::path> left;
  std::error_code error;
  for (fs::directory_iterator run(fs::path(context.resultsDirectory()) / kRestoreResultsFolder, error), end;
       !error && run != end; run.increment(error)) {
    std::error_code problem;
    const fs::path folder = run->path() / std::to_string(instance.id);
    if (fs::exists(fs::symlink_status(folder, problem))) left.push_back(folder);
  }
  if (left.empty() || !hasDied(context, instance.id)) return;
  for (const fs::path& folder : left) {
    std::error_code problem;
    fs::remove_all(folder, problem);
    if (problem) context.note(folder.native() + ", of a restore that was killed, is not removed: " + problem.message());
    fs::remove(folder.parent_path(), problem);  // others may have begun in the same second
  }
}

void writeTask(Context& context, long long job, const RestorePlan& plan) {
  const std::string client = std::to_string(plan.instance.clientId);
  const std::string instance = std::to_string(plan.instance.id);
  const std::pair<std::uint32_t, std::string> options[] = {
      {DZRestoreTask::optionSourceClient, client},
      {DZRestoreTask::optionSourceInstance, instance},
      {DZRestoreTask::optionDestinationClient, client},
      {DZRestoreTask::optionDestinationInstance, instance},
      {DZRestoreTask::optionRestoreType, plan.isIntoServer() ? "0" : "1"},
      {DZRestoreTask::optionRestoreToTime, std::to_string(plan.request.toTime)},
  };
  for (const auto& [option, value] : options)
    require(context.services().jobs->writeTaskOption(job, option, value), "the restore cannot be described");
  if (!plan.isIntoServer()) {
    require(context.services().jobs->writeTaskOption(job, DZRestoreTask::optionDestinationFolder, plan.directory),
            "the restore cannot be described");
  }
}

void requireConsent(const RestorePlan& plan) {
  const std::string question = "The data of " + plan.instance.name + " in " + plan.directory +
                               " will be replaced by those of " + timeText(plan.images.back().created * 1000000) +
                               ". Go on?";
  if (!askYesOrNo(question, "--yes")) throw Failure(plan.instance.name + " is not restored", "it was not wanted");
}

void printResult(Context& context, const platform::JobRecord& job, const RestorePlan& plan) {
  Json document = toJson(plan);
  document["job"] = job.id;
  document["state"] = stateOf(context, job);
  document["bytes"] = job.bytes;
  Table table;
  table.add({"job", std::to_string(job.id) + ", " + stateOf(context, job)});
  table.add({"instance", plan.instance.name});
  table.add({"as of", timeText(plan.images.back().created * 1000000)});
  table.add({"folder", plan.directory});
  table.add({"images", std::to_string(plan.images.size())});
  if (plan.isIntoServer()) table.add({"server", plan.manualStart ? "is left stopped" : "answers"});
  context.print(document, table);
}

/// A server whose configuration was changed while it was down answers with other data than the restored ones.
void requireRestored(Context& context, const RestorePlan& plan) {
  ServerSession server(context, std::to_string(plan.instance.id), ServerSession::LibraryMode{});
  const std::string told = readDataPaths(server).dataDirectory;
  if (!told.starts_with('/') || isSameFolder(told, plan.directory)) return;
  throw Failure("the server of " + plan.instance.name + " does not use what was restored",
                "that is in " + plan.directory + ", and the server was started on " + told,
                "correct the server's configuration, or restore once more while it answers");
}

}  // namespace

void runRestore(Context& context, const RestoreRequest& request) {
  if (request.planOnly) {
    const RestorePlan plan = planRestore(context, request);
    context.print(toJson(plan), toTable(plan));
    return;
  }
  const platform::InstanceRecord instance = findInstance(context, request.instance);
  // Whoever is asked may be long in answering: nobody else is kept out meanwhile.
  if (request.asks && !request.into) {
    {
      const WorkLock lock(context, instance);
      removeLeftCopies(context, instance);
    }
    requireConsent(planRestore(context, request));
  }
  const WorkLock lock(context, instance);
  removeLeftCopies(context, instance);
  const RestorePlan plan = planRestore(context, request);
  const std::string title = "the restore of " + plan.instance.name + " failed";
  platform::JobRecord record;
  record.type = platform::JobType::restore;
  record.instanceId = plan.instance.id;
  EnterpriseJob job(context, record, "restore");
  writeTask(context, job.id(), plan);
  {
    SBTParams params;
    params.restoreTime = request.toTime;
    const OutputAside aside;
    const Finishing waitsInFull;  // the user's wish for the end reaches the driver as the job's
    MySqlSBTRestoreUtils driver;
    if (driver.initialize(params, job.id()) != 0) job.fail(title);
    const int rc = driver.sbtRestoreToTime();
    driver.cleanUp();
    if (rc != 0) job.fail(title);
    forgetInterrupt();  // it came too late
  }
  if (plan.isIntoServer() && !plan.manualStart) requireRestored(context, plan);
  printResult(context, job.record(), plan);
}

}  // namespace orrery::tool
