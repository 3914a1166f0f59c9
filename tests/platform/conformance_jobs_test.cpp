#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::FieldsAre;
using ::testing::Ge;

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
  EXPECT_THAT(find(start(JobType::restore)),
              FieldsAre(_, JobType::restore, 5U, 6U, 2, JobState::running, 0, _, 0, 0, 0, 0, 0, false, 4711));
}

TEST_P(JobConformance, ListIsNewestFirstAndBounded) {
  const long long first = start();
  const long long second = start();
  const long long third = start();
  const auto is = [](long long id) { return Field(&JobRecord::id, id); };
  EXPECT_THAT(list(2), ElementsAre(is(third), is(second)));
  EXPECT_THAT(list(std::numeric_limits<std::size_t>::max()), ElementsAre(is(third), is(second), is(first)));
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
  // A cause without a time gets one.
  EXPECT_THAT(causes, ElementsAre(FieldsAre(0x57000034U, 0, 300, ElementsAre(), 11),
                                  FieldsAre(0xffffffffU, 6, 7, ElementsAre("b", "", std::string("a\0\n", 3)),
                                            Ge(find(id).started))));
}

TEST_P(JobConformance, EventsAreKeptWithTheirJob) {
  const long long id = start();
  EventSink& sink = *services_->events;
  ASSERT_TRUE(succeeded(sink.raise({Severity::critical, 0x57000056, id, {"why"}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::information, 0x57000020, 0, {"a,b", "default"}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::major, 0x5700001c, id, {}})));
  ASSERT_TRUE(succeeded(sink.raise({Severity::minor, 1, 987654, {}}))) << "a job that another program knows";
  EXPECT_THAT(events(id), ElementsAre(FieldsAre(Severity::critical, 0x57000056U, id, ElementsAre("why")),
                                      FieldsAre(Severity::major, 0x5700001cU, id, ElementsAre())));
  EXPECT_THAT(events(0), ElementsAre(FieldsAre(Severity::information, 0x57000020U, 0, ElementsAre("a,b", "default"))));
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
