#include "memory.h"

namespace orrery::platform::testing {
namespace {

/// Adds with the same answer to an overflow as the store gives: refused, nothing changed.
bool add(std::int64_t& counter, std::int64_t increment) {
  return !__builtin_add_overflow(counter, increment, &counter);
}

class MemoryJobs final : public JobManager {
 public:
  explicit MemoryJobs(SharedMemory memory) : memory_(std::move(memory)) {}

  Status start(const JobRecord& record, long long& id) override {
    return attempt(*memory_, "JobManager::start", {std::to_string(record.instanceId)}, [&] {
      JobRecord job;
      job.type = record.type;
      job.instanceId = record.instanceId;
      job.subclientId = record.subclientId;
      job.level = record.level;
      job.processId = record.processId;
      job.id = static_cast<long long>(++memory_->lastId);
      job.started = memory_->now;
      memory_->jobs[job.id].record = job;
      id = job.id;
      return Status::success();
    });
  }

  Status find(long long id, JobRecord& record) override {
    return withJob("JobManager::find", id, [&](Memory::Job& job) {
      record = job.record;
      return Status::success();
    });
  }

  Status list(std::size_t most, std::vector<JobRecord>& records) override {
    return attempt(*memory_, "JobManager::list", {}, [&] {
      records.clear();
      for (auto job = memory_->jobs.rbegin(); job != memory_->jobs.rend() && records.size() < most; ++job)
        records.push_back(job->second.record);
      return Status::success();
    });
  }

  Status addCause(long long id, const PendingCause& cause) override {
    return withJob("JobManager::addCause", id, [&](Memory::Job& job) {
      job.causes.push_back(cause);
      if (cause.time == 0) job.causes.back().time = memory_->now;
      return Status::success();
    });
  }

  Status listCauses(long long id, std::vector<PendingCause>& causes) override {
    return withJob("JobManager::listCauses", id, [&](Memory::Job& job) {
      causes = job.causes;
      return Status::success();
    });
  }

  Status listEvents(long long id, std::vector<Event>& events) override {
    return attempt(*memory_, "JobManager::listEvents", {std::to_string(id)}, [&] {
      events.clear();
      for (const Event& event : memory_->events)
        if (event.jobId == id) events.push_back(event);
      return Status::success();
    });
  }

  Status addCounters(long long id, const JobCounters& increments) override {
    return withJob("JobManager::addCounters", id, [&](Memory::Job& job) {
      JobRecord sum = job.record;
      if (!add(sum.bytes, increments.bytes) || !add(sum.files, increments.files) ||
          !add(sum.failedFiles, increments.failedFiles))
        return Status::failure("a counter of the job would become too large");
      job.record = sum;
      return Status::success();
    });
  }

  Status setProgress(long long id, int percent) override {
    return withJob("JobManager::setProgress", id, [&](Memory::Job& job) {
      if (percent < 0 || percent > 100) return Status::invalid("a progress is from 0 to 100 per cent");
      job.record.progress = percent;
      return Status::success();
    });
  }

  Status complete(long long id, JobState state, bool wholeJob, int code) override {
    return withJob("JobManager::complete", id, [&](Memory::Job& job) {
      if (wholeJob && state == JobState::running) return Status::invalid("a job cannot be completed as running");
      if (job.record.finished != 0) return Status::invalid("job " + std::to_string(id) + " was completed before");
      if (wholeJob) {
        job.record.state = state;
        job.record.finished = memory_->now;
      } else {
        job.record.phaseState = static_cast<int>(state);
      }
      memory_->completions.push_back({id, state, wholeJob, code});
      return Status::success();
    });
  }

  Status requestQuit(long long id) override {
    return withJob("JobManager::requestQuit", id, [&](Memory::Job& job) {
      job.record.quitRequested = true;
      return Status::success();
    });
  }

  Status quitRequested(long long id, bool& requested) override {
    return withJob("JobManager::quitRequested", id, [&](Memory::Job& job) {
      requested = job.record.quitRequested;
      return Status::success();
    });
  }

  Status writeTaskOption(long long id, std::uint32_t option, const std::string& value) override {
    return withJob("JobManager::writeTaskOption", id,
                   [&](Memory::Job& job) {
                     job.options[option] = value;
                     return Status::success();
                   },
                   {std::to_string(option)});
  }

  Status readTaskOption(long long id, std::uint32_t option, std::optional<std::string>& value) override {
    return withJob("JobManager::readTaskOption", id,
                   [&](Memory::Job& job) {
                     const auto present = job.options.find(option);
                     value.reset();
                     if (present != job.options.end()) value = present->second;
                     return Status::success();
                   },
                   {std::to_string(option)});
  }

 private:
  template <class Body>
  Status withJob(const char* call, long long id, Body&& body, std::vector<std::string> arguments = {}) {
    arguments.push_back(std::to_string(id));
    return attempt(*memory_, call, arguments, [&] {
      const auto job = memory_->jobs.find(id);
      if (job == memory_->jobs.end()) return Status::notFound("there is no job " + std::to_string(id));
      return body(job->second);
    });
  }

  const SharedMemory memory_;
};

class MemoryEvents final : public EventSink {
 public:
  explicit MemoryEvents(SharedMemory memory) : memory_(std::move(memory)) {}

  Status raise(const Event& event) override {
    return attempt(*memory_, "EventSink::raise", {std::to_string(event.code)}, [&] {
      memory_->events.push_back(event);
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

}  // namespace

std::shared_ptr<JobManager> makeJobManager(SharedMemory memory) {
  return std::make_shared<MemoryJobs>(std::move(memory));
}

std::shared_ptr<EventSink> makeEventSink(SharedMemory memory) {
  return std::make_shared<MemoryEvents>(std::move(memory));
}

}  // namespace orrery::platform::testing
