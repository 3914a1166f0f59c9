#include "job_text.h"

#include <array>
#include <cstdio>
#include <optional>

#include "orrery/platform/home.h"

#include "failure.h"
#include "process_mark.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

struct Note {
  std::string code;
  std::string text;
};

Note noteOf(std::uint32_t code, const std::vector<std::string>& arguments) {
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%08x", static_cast<unsigned>(code));
  return {number.data(), platform::messageText(code, arguments)};
}

/// Causes or events, each with a code and its arguments.
template <class Told>
std::vector<Note> notesOf(const std::vector<Told>& told) {
  std::vector<Note> notes;
  notes.reserve(told.size());
  for (const Told& one : told) notes.push_back(noteOf(one.code, one.arguments));
  return notes;
}

std::vector<Note> causesOf(Context& context, long long job) {
  std::vector<platform::PendingCause> causes;
  require(context.services().jobs->listCauses(job, causes), "the causes of the job cannot be read");
  return notesOf(causes);
}

std::vector<Note> eventsOf(Context& context, long long job) {
  std::vector<platform::Event> events;
  require(context.services().jobs->listEvents(job, events), "the events of the job cannot be read");
  return notesOf(events);
}

/// The name of what a job works on; its number when the inventory knows it no more.
std::string instanceOf(Context& context, const platform::JobRecord& job) {
  platform::InstanceRecord record;
  const platform::Status status = context.services().inventory->findInstance(job.instanceId, record);
  return status.ok() ? record.name : std::to_string(job.instanceId);
}

const char* nameOf(platform::JobState state) {
  switch (state) {
    case platform::JobState::running:
      return "running";
    case platform::JobState::succeeded:
      return "succeeded";
    case platform::JobState::failed:
      return "failed";
    case platform::JobState::completedWithErrors:
      return "completed with errors";
  }
  return "unknown";
}

std::string filesOf(const platform::JobRecord& job) {
  return std::to_string(job.files) + (job.files == 1 ? " file" : " files");
}

/// Whether the process that made the job is still at it.
bool isWorkedOn(Context& context, const platform::JobRecord& job) {
  std::optional<std::string> start;
  const platform::Status status = context.services().jobs->readTaskOption(job.id, processStartOption, start);
  if (!status.ok() || job.processId <= 0) return false;
  // A job that has just begun, or one of another program, has no mark; then its process id has to do.
  return start ? isAlive({job.processId, *start}) : !markOf(static_cast<pid_t>(job.processId)).start.empty();
}

}  // namespace

std::string amountText(double bytes) {
  static constexpr std::array<const char*, 6> units{"bytes", "KiB", "MiB", "GiB", "TiB", "PiB"};
  std::size_t unit = 0;
  for (; (bytes >= 1024 || bytes <= -1024) && unit + 1 < units.size(); ++unit) bytes /= 1024;
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
  return text.data();
}

std::string stateOf(Context& context, const platform::JobRecord& job) {
  if (job.state == platform::JobState::running && !isWorkedOn(context, job)) return "died";
  return nameOf(job.state);
}

std::string progressText(const platform::JobRecord& job, std::optional<double> bytesPerSecond) {
  std::string text =
      "job " + std::to_string(job.id) + ": " + amountText(static_cast<double>(job.bytes)) + ", " + filesOf(job);
  if (job.progress != 0) text += ", " + std::to_string(job.progress) + " %";
  if (job.phaseState != 0) text += std::string(", phase ") + nameOf(static_cast<platform::JobState>(job.phaseState));
  if (bytesPerSecond) text += ", " + amountText(*bytesPerSecond) + "/s";
  return text + (job.quitRequested ? ", asked to stop" : "");
}

Json jobDocument(Context& context, const platform::JobRecord& job) {
  Json document;
  document["id"] = job.id;
  document["type"] = job.type == platform::JobType::backup ? "backup" : "restore";
  document["level"] = job.level == 2 ? "incremental" : "full";
  document["instance"] = instanceOf(context, job);
  document["subclient_id"] = job.subclientId;
  document["state"] = stateOf(context, job);
  document["started"] = timeText(job.started);
  document["finished"] = job.finished == 0 ? Json(nullptr) : Json(timeText(job.finished));
  document["progress"] = job.progress;
  document["phase"] = nameOf(static_cast<platform::JobState>(job.phaseState));
  document["bytes"] = job.bytes;
  document["files"] = job.files;
  document["failed_files"] = job.failedFiles;
  document["quit_requested"] = job.quitRequested;
  document["causes"] = Json::array();
  for (const Note& note : causesOf(context, job.id)) {
    document["causes"].push_back({{"code", note.code}, {"text", note.text}});
  }
  document["events"] = Json::array();
  for (const Note& note : eventsOf(context, job.id)) {
    document["events"].push_back({{"code", note.code}, {"text", note.text}});
  }
  return document;
}

Table jobTable(Context& context, const platform::JobRecord& job) {
  const bool isBackup = job.type == platform::JobType::backup;
  Table table;
  table.add({"job", std::to_string(job.id)});
  table.add({"type", isBackup ? (job.level == 2 ? "incremental backup" : "full backup") : "restore"});
  table.add({"instance", instanceOf(context, job)});
  table.add({"state", stateOf(context, job) + (job.quitRequested ? ", asked to stop" : "")});
  table.add({"started", timeText(job.started)});
  table.add({"finished", job.finished == 0 ? "-" : timeText(job.finished)});
  table.add({"progress", std::to_string(job.progress) + " %"});
  if (job.bytes != 0 || job.files != 0)
    table.add({"moved", amountText(static_cast<double>(job.bytes)) + " in " + filesOf(job)});
  if (job.failedFiles != 0) table.add({"failures", std::to_string(job.failedFiles)});
  for (const Note& note : causesOf(context, job.id)) table.add({"cause", note.code + " " + note.text});
  for (const Note& note : eventsOf(context, job.id)) table.add({"event", note.code + " " + note.text});
  return table;
}

platform::JobRecord findJob(Context& context, long long id) {
  platform::JobRecord job;
  const platform::Status status = context.services().jobs->find(id, job);
  if (status.code == platform::statusNotFound) {
    throw Failure("there is no job " + std::to_string(id), "", "orrery-mysql job list shows the jobs");
  }
  require(status, "the job cannot be read");
  return job;
}

}  // namespace orrery::tool
