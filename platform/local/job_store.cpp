#include "job_store.h"

#include "orrery/platform/home.h"

#include "clock.h"

namespace orrery::platform::local {
namespace {

constexpr const char* jobColumns =
    "SELECT id, type, instance_id, subclient_id, level, state, phase_state, started, finished, progress, bytes, files, "
    "failed_files, quit_requested, process_id FROM jobs ";

[[noreturn]] void throwNoJob(long long id) {
  throw Failure(Status::notFound("there is no job " + std::to_string(id)));
}

void requireJob(Database& database, long long id) {
  Statement statement(database, "SELECT 1 FROM jobs WHERE id = ?");
  if (!statement.with(id).next()) throwNoJob(id);
}

/// Runs a change of one job.
template <class... Values>
void changeJob(Database& database, const char* sql, long long id, const Values&... values) {
  Statement(database, sql).with(values..., id).run();
  if (database.changes() == 0) throwNoJob(id);
}

JobRecord jobOfRow(const Statement& row) {
  JobRecord job;
  job.id = row.integer(0);
  job.type = static_cast<JobType>(row.integer(1));
  job.instanceId = static_cast<Id>(row.integer(2));
  job.subclientId = static_cast<Id>(row.integer(3));
  job.level = static_cast<int>(row.integer(4));
  job.state = static_cast<JobState>(row.integer(5));
  job.phaseState = static_cast<int>(row.integer(6));
  job.started = row.integer(7);
  job.finished = row.integer(8);
  job.progress = static_cast<int>(row.integer(9));
  job.bytes = row.integer(10);
  job.files = row.integer(11);
  job.failedFiles = row.integer(12);
  job.quitRequested = row.integer(13) != 0;
  job.processId = row.integer(14);
  return job;
}

void putArguments(Database& database, const char* sql, std::int64_t owner, const std::vector<std::string>& arguments) {
  if (arguments.empty()) return;
  Statement put(database, sql);
  for (std::size_t position = 0; position < arguments.size(); ++position)
    put.with(owner, position, arguments[position]).run();
}

}  // namespace

Status JobStore::start(const JobRecord& record, long long& id) {
  long long started = 0;
  Status status = database_->write("start the job", [&] {
    Statement(
        *database_,
        "INSERT INTO jobs (type, instance_id, subclient_id, level, started, process_id) VALUES (?, ?, ?, ?, ?, ?)")
        .with(record.type, record.instanceId, record.subclientId, record.level, microsecondsNow(), record.processId)
        .run();
    started = database_->lastRowId();
  });
  if (status.ok()) id = started;
  return status;
}

Status JobStore::find(long long id, JobRecord& record) {
  JobRecord found;
  Status status = database_->read("read the job", [&] {
    Statement statement(*database_, std::string(jobColumns) + "WHERE id = ?");
    if (!statement.with(id).next()) throwNoJob(id);
    found = jobOfRow(statement);
  });
  if (status.ok()) record = found;
  return status;
}

Status JobStore::list(std::size_t most, std::vector<JobRecord>& records) {
  std::vector<JobRecord> found;
  Status status = database_->read("list the jobs", [&] {
    Statement statement(*database_, std::string(jobColumns) + "ORDER BY id DESC");
    while (found.size() < most && statement.next()) found.push_back(jobOfRow(statement));
  });
  if (status.ok()) records = std::move(found);
  return status;
}

Status JobStore::addCause(long long id, const PendingCause& cause) {
  return database_->write("record the cause", [&] {
    requireJob(*database_, id);
    const std::int64_t time = cause.time != 0 ? cause.time : microsecondsNow();
    Statement(*database_, "INSERT INTO causes (job_id, code, severity, message_type, time) VALUES (?, ?, ?, ?, ?)")
        .with(id, cause.code, cause.severity, cause.messageType, time)
        .run();
    putArguments(*database_, "INSERT INTO cause_arguments (cause_id, position, text) VALUES (?, ?, ?)",
                 database_->lastRowId(), cause.arguments);
  });
}

Status JobStore::listCauses(long long id, std::vector<PendingCause>& causes) {
  std::vector<PendingCause> found;
  Status status = database_->read("read the causes", [&] {
    requireJob(*database_, id);
    Statement statement(
        *database_,
        "SELECT c.id, c.code, c.severity, c.message_type, c.time, a.text FROM causes c "
        "LEFT JOIN cause_arguments a ON a.cause_id = c.id WHERE c.job_id = ? ORDER BY c.id, a.position");
    statement.with(id);
    for (std::int64_t last = 0; statement.next(); last = statement.integer(0)) {
      if (statement.integer(0) != last)
        found.push_back({static_cast<std::uint32_t>(statement.integer(1)),
                         static_cast<int>(statement.integer(2)),
                         static_cast<int>(statement.integer(3)),
                         {},
                         statement.integer(4)});
      if (!statement.isNull(5)) found.back().arguments.push_back(statement.text(5));
    }
  });
  if (status.ok()) causes = std::move(found);
  return status;
}

Status JobStore::listEvents(long long id, std::vector<Event>& events) {
  std::vector<Event> found;
  Status status = database_->read("read the events", [&] {
    Statement statement(
        *database_,
        "SELECT e.id, e.severity, e.code, a.text FROM events e "
        "LEFT JOIN event_arguments a ON a.event_id = e.id WHERE e.job_id = ? ORDER BY e.id, a.position");
    statement.with(id);
    for (std::int64_t last = 0; statement.next(); last = statement.integer(0)) {
      if (statement.integer(0) != last)
        found.push_back(
            {static_cast<Severity>(statement.integer(1)), static_cast<std::uint32_t>(statement.integer(2)), id, {}});
      if (!statement.isNull(3)) found.back().arguments.push_back(statement.text(3));
    }
  });
  if (status.ok()) events = std::move(found);
  return status;
}

/// The addition is the database's, so that reports of several processes add up.
Status JobStore::addCounters(long long id, const JobCounters& increments) {
  return database_->write("add to the job's counters", [&] {
    changeJob(*database_,
              "UPDATE jobs SET bytes = bytes + ?, files = files + ?, failed_files = failed_files + ? WHERE id = ?", id,
              increments.bytes, increments.files, increments.failedFiles);
  });
}

Status JobStore::setProgress(long long id, int percent) {
  return database_->write("record the progress", [&] {
    if (percent < 0 || percent > 100)
      throw Failure(Status::invalid("a progress of " + std::to_string(percent) + " per cent is not from 0 to 100"));
    changeJob(*database_, "UPDATE jobs SET progress = ? WHERE id = ?", id, percent);
  });
}

Status JobStore::complete(long long id, JobState state, bool wholeJob, int code) {
  return database_->write("complete the job", [&] {
    if (wholeJob && state == JobState::running) throw Failure(Status::invalid("a job cannot be completed as running"));
    Statement job(*database_, "SELECT finished FROM jobs WHERE id = ?");
    if (!job.with(id).next()) throwNoJob(id);
    if (job.integer(0) != 0) throw Failure(Status::invalid("job " + std::to_string(id) + " was completed before"));
    if (wholeJob)
      changeJob(*database_, "UPDATE jobs SET state = ?, code = ?, finished = ? WHERE id = ?", id, state, code,
                microsecondsNow());
    else
      changeJob(*database_, "UPDATE jobs SET phase_state = ?, code = ? WHERE id = ?", id, state, code);
  });
}

Status JobStore::requestQuit(long long id) {
  return database_->write("ask the job to stop",
                          [&] { changeJob(*database_, "UPDATE jobs SET quit_requested = 1 WHERE id = ?", id); });
}

Status JobStore::quitRequested(long long id, bool& requested) {
  bool found = false;
  Status status = database_->read("read whether the job is to stop", [&] {
    Statement statement(*database_, "SELECT quit_requested FROM jobs WHERE id = ?");
    if (!statement.with(id).next()) throwNoJob(id);
    found = statement.integer(0) != 0;
  });
  if (status.ok()) requested = found;
  return status;
}

Status JobStore::writeTaskOption(long long id, std::uint32_t option, const std::string& value) {
  return database_->write("write the option of the job", [&] {
    requireJob(*database_, id);
    Statement(*database_, "INSERT OR REPLACE INTO task_options (job_id, option, value) VALUES (?, ?, ?)")
        .with(id, option, value)
        .run();
  });
}

Status JobStore::readTaskOption(long long id, std::uint32_t option, std::optional<std::string>& value) {
  std::optional<std::string> found;
  Status status = database_->read("read the option of the job", [&] {
    requireJob(*database_, id);
    Statement statement(*database_, "SELECT value FROM task_options WHERE job_id = ? AND option = ?");
    if (statement.with(id, option).next()) found = statement.text(0);
  });
  if (status.ok()) value = std::move(found);
  return status;
}

// ------------------------------------------------------------------------------------------------------------- events

Status EventStore::raise(const Event& event) {
  // The log first: it hears of the event even when the store cannot take it.
  if (Status status = guarded([&] { tellLog(event); }); !status.ok()) return status;
  return database_->write("record the event", [&] {
    Statement(*database_, "INSERT INTO events (job_id, code, severity, time) VALUES (?, ?, ?, ?)")
        .with(event.jobId, event.code, event.severity, microsecondsNow())
        .run();
    putArguments(*database_, "INSERT INTO event_arguments (event_id, position, text) VALUES (?, ?, ?)",
                 database_->lastRowId(), event.arguments);
  });
}

void EventStore::tellLog(const Event& event) const {
  const bool grave = event.severity >= Severity::major;
  if (!grave && !log_->wants(0)) return;
  const std::string text = messageText(event.code, event.arguments);
  LogLine line;
  line.kind = grave ? LogKind::error : LogKind::debug;
  line.jobId = event.jobId;
  line.tag = "Event";
  line.text = text;
  log_->write(line);
}

}  // namespace orrery::platform::local
