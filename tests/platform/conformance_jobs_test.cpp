#include <limits>
#include <thread>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;

class JobConformance : public Conformance {
 protected:
  JobManager& jobs() { return *services_->jobs; }
  long long start(JobType type = JobType::backup) {
    JobRecord record;
    record.type = type;
    record.instanceId = 5;
    record.subclientId = 6;
    record.level = 2;
    record.processId = 4711;
    return got<long long>([&](long long& out) { return jobs().start(record, out); });
  }
  JobRecord find(long long id) {
    return got<JobRecord>([&](JobRecord& out) { return jobs().find(id, out); });
  }
  std::vector<JobRecord> list(std::size_t most) {
    using List = std::vector<JobRecord>;
    return got<List>([&](List& out) { return jobs().list(most, out); });
  }
  std::vector<Event> events(long long id) {
    using List = std::vector<Event>;
    return got<List>([&](List& out) { return jobs().listEvents(id, out); });
  }
};

INSTANTIATE_TEST_SUITE_P(Backends, JobConformance, ::testing::ValuesIn(bothBackends()), nameOfBackend);

TEST_P(JobConformance, StartChoosesIdTimeAndState) {
  JobRecord wished;
  wished.id = 99;
  wished.state = JobState::failed;
  wished.started = 1;
  wished.finished = 2;
  wished.quitRequested = true;
  long long id = 0;
  const std::int64_t before = services_->clock->now();
  ASSERT_TRUE(succeeded(jobs().start(wished, id)));
  EXPECT_GT(id, 0);
  const JobRecord job = find(id);
  EXPECT_EQ(job.id, id);
  EXPECT_EQ(job.state, JobState::running);
  EXPECT_GE(job.started, before);
  EXPECT_LE(job.started, services_->clock->now());
  EXPECT_EQ(job.finished, 0);
  EXPECT_FALSE(job.quitRequested);

  const JobRecord restore = find(start(JobType::restore));
  EXPECT_EQ(restore.type, JobType::restore);
  EXPECT_EQ(restore.instanceId, 5U);
  EXPECT_EQ(restore.subclientId, 6U);
  EXPECT_EQ(restore.level, 2);
  EXPECT_EQ(restore.processId, 4711);
}

TEST_P(JobConformance, ListIsNewestFirstAndBounded) {
  const long long first = start();
  const long long second = start();
  const long long third = start();
  const auto latest = list(2);
  ASSERT_EQ(latest.size(), 2U);
  EXPECT_EQ(latest[0].id, third);
  EXPECT_EQ(latest[1].id, second);
  const auto all = list(std::numeric_limits<std::size_t>::max());
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[2].id, first);
  EXPECT_TRUE(list(0).empty());
}

TEST_P(JobConformance, UnknownJobsAreNotFound) {
  for (const long long id : {-1LL, 0LL, 12345LL}) {
    JobRecord record;
    std::vector<PendingCause> causes;
    bool requested = true;
    std::optional<std::string> value = "before";
    EXPECT_TRUE(failed(jobs().find(id, record), statusNotFound));
    EXPECT_TRUE(failed(jobs().addCause(id, {}), statusNotFound));
    EXPECT_TRUE(failed(jobs().listCauses(id, causes), statusNotFound));
    EXPECT_TRUE(failed(jobs().addCounters(id, {1, 1, 1}), statusNotFound));
    EXPECT_TRUE(failed(jobs().setProgress(id, 1), statusNotFound));
    EXPECT_TRUE(failed(jobs().complete(id, JobState::failed, true, 0), statusNotFound));
    EXPECT_TRUE(failed(jobs().complete(id, JobState::failed, false, 0), statusNotFound));
    EXPECT_TRUE(failed(jobs().requestQuit(id), statusNotFound));
    EXPECT_TRUE(failed(jobs().quitRequested(id, requested), statusNotFound));
    EXPECT_TRUE(failed(jobs().writeTaskOption(id, 1, "x"), statusNotFound));
    EXPECT_TRUE(failed(jobs().readTaskOption(id, 1, value), statusNotFound));
    EXPECT_TRUE(requested);
    EXPECT_EQ(value, "before");
  }
}

TEST_P(JobConformance, CausesKeepOrderAndArguments) {
  const long long id = start();
  ASSERT_TRUE(succeeded(jobs().addCause(id, {0x57000034, 0, 300, {}, 11})));
  ASSERT_TRUE(succeeded(jobs().addCause(id, {0xffffffff, 6, 7, {"b", "", std::string("a\0\n", 3)}, 0})));
  std::vector<PendingCause> causes;
  ASSERT_TRUE(succeeded(jobs().listCauses(id, causes)));
  ASSERT_EQ(causes.size(), 2U);
  EXPECT_EQ(causes[0].code, 0x57000034U);
  EXPECT_EQ(causes[0].messageType, 300);
  EXPECT_EQ(causes[0].time, 11);
  EXPECT_TRUE(causes[0].arguments.empty());
  EXPECT_EQ(causes[1].code, 0xffffffffU);
  EXPECT_EQ(causes[1].severity, 6);
  EXPECT_EQ(causes[1].arguments, (std::vector<std::string>{"b", "", std::string("a\0\n", 3)}));
  EXPECT_GE(causes[1].time, find(id).started) << "a cause without a time gets one";
}

TEST_P(JobConformance, EventsAreKeptWithTheirJob) {
  const long long id = start();
  EventSink& sink = *services_->events;
  ASSERT_TRUE(succeeded(sink.raise({Severity::critical, 0x57000056, id, {"why"}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::information, 0x57000020, 0, {"a,b", "default"}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::major, 0x5700001c, id, {}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::minor, 1, 987654, {}}))) << "a job that another program knows";
  const auto found = events(id);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].severity, Severity::critical);
  EXPECT_EQ(found[0].code, 0x57000056U);
  EXPECT_EQ(found[0].jobId, id);
  EXPECT_EQ(found[0].arguments, std::vector<std::string>{"why"});
  EXPECT_EQ(found[1].severity, Severity::major);
  ASSERT_EQ(events(0).size(), 1U);
  EXPECT_EQ(events(0)[0].arguments, (std::vector<std::string>{"a,b", "default"}));
}

TEST_P(JobConformance, CountersOfManyThreadsAddUp) {
  const long long id = start();
  constexpr int threads = 4;
  constexpr int reports = 25;
  std::vector<std::thread> reporters;
  reporters.reserve(threads);
  for (int thread = 0; thread < threads; ++thread)
    reporters.emplace_back([&] {
      for (int i = 0; i < reports; ++i) EXPECT_TRUE(succeeded(jobs().addCounters(id, {1000, 1, 2})));
    });
  for (std::thread& reporter : reporters) reporter.join();
  ASSERT_TRUE(succeeded(jobs().addCounters(id, {-500, 0, -1})));
  const JobRecord job = find(id);
  EXPECT_EQ(job.bytes, threads * reports * 1000 - 500);
  EXPECT_EQ(job.files, threads * reports);
  EXPECT_EQ(job.failedFiles, threads * reports * 2 - 1);
}

TEST_P(JobConformance, CounterThatWouldOverflowIsRefusedAndStays) {
  const long long id = start();
  const std::int64_t most = std::numeric_limits<std::int64_t>::max();
  ASSERT_TRUE(succeeded(jobs().addCounters(id, {most, 1, 0})));
  EXPECT_TRUE(failed(jobs().addCounters(id, {1, 1, 0}), statusFailed));
  EXPECT_EQ(find(id).bytes, most);
  EXPECT_EQ(find(id).files, 1);
}

TEST_P(JobConformance, ProgressIsPerCentAndQuitIsAFlag) {
  const long long id = start();
  bool requested = true;
  ASSERT_TRUE(succeeded(jobs().quitRequested(id, requested)));
  EXPECT_FALSE(requested);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(succeeded(jobs().requestQuit(id)));
  ASSERT_TRUE(succeeded(jobs().quitRequested(id, requested)));
  EXPECT_TRUE(requested && find(id).quitRequested);
  ASSERT_TRUE(succeeded(jobs().setProgress(id, 100)));
  EXPECT_TRUE(failed(jobs().setProgress(id, 101), statusInvalid));
  EXPECT_TRUE(failed(jobs().setProgress(id, -1), statusInvalid));
  EXPECT_EQ(find(id).progress, 100);
}

TEST_P(JobConformance, CompletesOnce) {
  const long long id = start();
  ASSERT_TRUE(succeeded(jobs().complete(id, JobState::succeeded, false, 0)));
  EXPECT_EQ(find(id).state, JobState::running);
  EXPECT_EQ(find(id).phaseState, static_cast<int>(JobState::succeeded));
  EXPECT_EQ(find(id).finished, 0);
  EXPECT_TRUE(failed(jobs().complete(id, JobState::running, true, 0), statusInvalid));
  ASSERT_TRUE(succeeded(jobs().complete(id, JobState::failed, true, 3)));
  EXPECT_EQ(find(id).state, JobState::failed);
  EXPECT_GE(find(id).finished, find(id).started);
  EXPECT_TRUE(failed(jobs().complete(id, JobState::succeeded, true, 0), statusInvalid));
  EXPECT_TRUE(failed(jobs().complete(id, JobState::succeeded, false, 0), statusInvalid));
  EXPECT_EQ(find(id).state, JobState::failed);
  EXPECT_TRUE(succeeded(jobs().addCause(id, {1, 0, 300, {}, 0}))) << "why it failed may be told after the end";
}

TEST_P(JobConformance, TaskOptionsByNumber) {
  const long long id = start();
  std::optional<std::string> value = "before";
  ASSERT_TRUE(succeeded(jobs().readTaskOption(id, 4294967295U, value)));
  EXPECT_EQ(value, std::nullopt);
  ASSERT_TRUE(succeeded(jobs().writeTaskOption(id, 4294967295U, "one")));
  ASSERT_TRUE(succeeded(jobs().writeTaskOption(id, 4294967295U, std::string("t\0wo", 4))));
  ASSERT_TRUE(succeeded(jobs().readTaskOption(id, 4294967295U, value)));
  EXPECT_EQ(value, std::string("t\0wo", 4));
}

}  // namespace
}  // namespace orrery::test
