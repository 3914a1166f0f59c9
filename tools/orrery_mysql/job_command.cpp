// orrery-mysql job list|show|watch|stop: what backups and restores did, and why.

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>

#include "context.h"
#include "failure.h"
#include "interrupt.h"
#include "job_text.h"
#include "progress.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

constexpr std::size_t mostListed = 50;
constexpr std::int64_t betweenLooks = 500;  // milliseconds

void list(Context& context, std::size_t most) {
  std::vector<platform::JobRecord> jobs;
  require(context.services().jobs->list(most, jobs), "the jobs cannot be read");
  std::vector<platform::InstanceRecord> instances;
  require(context.services().inventory->listInstances(instances), "the inventory cannot be read");
  std::map<platform::Id, std::string> names;
  for (const platform::InstanceRecord& instance : instances) names[instance.id] = instance.name;

  Json document;
  document["jobs"] = Json::array();
  Table table({"JOB", "TYPE", "INSTANCE", "STATE", "STARTED", "FINISHED"});
  for (const platform::JobRecord& job : jobs) {
    const auto known = names.find(job.instanceId);
    const std::string instance = known == names.end() ? std::to_string(job.instanceId) : known->second;
    const char* const type = job.type == platform::JobType::backup ? "backup" : "restore";
    const std::string state = stateOf(context, job);
    const std::string finished = job.finished == 0 ? "" : timeText(job.finished);
    document["jobs"].push_back({{"id", job.id},
                                {"type", type},
                                {"instance", instance},
                                {"state", state},
                                {"started", timeText(job.started)},
                                {"finished", finished.empty() ? Json(nullptr) : Json(finished)}});
    table.add(
        {std::to_string(job.id), type, instance, state, timeText(job.started), finished.empty() ? "-" : finished});
  }
  context.print(document, table);
}

void show(Context& context, long long id) {
  const platform::JobRecord job = findJob(context, id);
  context.print(jobDocument(context, job), jobTable(context, job));
}

/// How fast a job moves bytes, over the last looks at it.
class Rate {
 public:
  /// `now` in microseconds. Nothing before the second look.
  std::optional<double> perSecond(std::int64_t now, std::int64_t bytes) {
    looks_.emplace_back(now, bytes);
    if (looks_.size() > mostLooks) looks_.pop_front();
    const auto [firstTime, firstBytes] = looks_.front();
    if (now <= firstTime) return std::nullopt;
    return static_cast<double>(bytes - firstBytes) * 1e6 / static_cast<double>(now - firstTime);
  }

 private:
  static constexpr std::size_t mostLooks = 11;
  std::deque<std::pair<std::int64_t, std::int64_t>> looks_;
};

void watch(Context& context, long long id) {
  {
    Progress progress("waiting for job " + std::to_string(id), context.wantsProgress());
    Rate rate;
    platform::Clock& clock = *context.services().clock;
    for (platform::JobRecord job = findJob(context, id); stateOf(context, job) == "running";
         job = findJob(context, id)) {
      progress.change(progressText(job, rate.perSecond(clock.now(), job.bytes)));
      clock.sleep(betweenLooks);
      if (interruptSignal() != 0) throw Interrupted();
    }
  }
  show(context, id);
}

void stop(Context& context, long long id) {
  const platform::JobRecord job = findJob(context, id);
  const std::string state = stateOf(context, job);
  if (state != "running") {
    throw Failure("the job " + std::to_string(id) + " is not stopped", "it has ended: " + state);
  }
  require(context.services().jobs->requestQuit(id), "the job " + std::to_string(id) + " is not stopped");
  Json document;
  document["id"] = id;
  document["quit_requested"] = true;
  Table table;
  table.add({"job " + std::to_string(id), "is asked to stop; orrery-mysql job watch " + std::to_string(id) + " waits"});
  context.print(document, table);
}

void addOne(CLI::App& group, const char* name, const char* help, void (*run)(Context&, long long), Action& chosen) {
  auto id = std::make_shared<long long>(0);
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("JOB", *id, "Number of the job")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { run(context, *id); }; });
}

}  // namespace

void addJobCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("job", "Jobs and what became of them");
  group->require_subcommand(1);
  auto most = std::make_shared<std::size_t>(mostListed);
  CLI::App* listing = group->add_subcommand("list", "List the jobs, newest first");
  listing->add_option("--most", *most, "How many at most")->type_name("N")->capture_default_str();
  listing->callback([=, &chosen] { chosen = [=](Context& context) { list(context, *most); }; });
  addOne(*group, "show", "One job with its causes and events in words", show, chosen);
  addOne(*group, "watch", "Show what a job moves until it has ended, then the job", watch, chosen);
  addOne(*group, "stop", "Ask a job to stop; it ends at its next step", stop, chosen);
}

}  // namespace orrery::tool
