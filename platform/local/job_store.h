#pragma once

#include <memory>

#include "database.h"

namespace orrery::platform::local {

/// Jobs with their causes, counters and task options in the store.
class JobStore final : public JobManager {
 public:
  explicit JobStore(std::shared_ptr<Database> database) : database_(std::move(database)) {}

  Status start(const JobRecord& record, long long& id) override;
  Status find(long long id, JobRecord& record) override;
  Status list(std::size_t most, std::vector<JobRecord>& records) override;
  Status addCause(long long id, const PendingCause& cause) override;
  Status listCauses(long long id, std::vector<PendingCause>& causes) override;
  Status listEvents(long long id, std::vector<Event>& events) override;
  Status addCounters(long long id, const JobCounters& increments) override;
  Status setProgress(long long id, int percent) override;
  Status complete(long long id, JobState state, bool wholeJob, int code) override;
  Status requestQuit(long long id) override;
  Status quitRequested(long long id, bool& requested) override;
  Status writeTaskOption(long long id, std::uint32_t option, const std::string& value) override;
  Status readTaskOption(long long id, std::uint32_t option, std::optional<std::string>& value) override;

 private:
  const std::shared_ptr<Database> database_;
};

/// Events: kept with their job (job 0: with none, and of jobs that other programs know), and told to the log.
class EventStore final : public EventSink {
 public:
  EventStore(std::shared_ptr<Database> database, std::shared_ptr<LogSink> log)
      : database_(std::move(database)), log_(std::move(log)) {}

  Status raise(const Event& event) override;

 private:
  void tellLog(const Event& event) const;

  const std::shared_ptr<Database> database_;
  const std::shared_ptr<LogSink> log_;
};

}  // namespace orrery::platform::local
