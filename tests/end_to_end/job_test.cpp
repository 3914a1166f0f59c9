// orrery-mysql job watch|stop|show over a run that another process supervises, whose media library reports.

#include <signal.h>

#include "command_fixture.h"
#include "terminal.h"

namespace orrery::test {
namespace {

class JobTest : public CommandTest {
 protected:
  std::unique_ptr<RunningProgram> supervise(const std::string& mode) const {
    return std::make_unique<RunningProgram>(std::vector<std::string>{ORRERY_SBT_RUN, "supervise", mode},
                                            ProgramOptions{.environment = {"ORRERY_HOME=" + home()}});
  }
  Json job() const { return runJson({"job", "show", "1"}); }
  bool moves() const {
    return waitUntil([&] { return job()["bytes"] > 1 << 20; });
  }
  std::vector<std::string> leftInTmp() const { return namesIn(home() + "/tmp"); }
};

TEST_F(JobTest, WatchShowsWhatMovesAndStopEndsTheRun) {
  run({"job", "list"});
  const auto run = supervise("on");
  ASSERT_TRUE(waitUntil([&] { return !runJson({"job", "list"})["jobs"].empty(); }));
  ASSERT_TRUE(moves());
  EXPECT_EQ(job()["state"], "running");

  const Terminal terminal;
  RunningProgram watch(commandLine(home(), {"job", "watch", "1"}), terminal.asErrors());
  RunningProgram document(commandLine(home(), {"--format", "json", "job", "watch", "1"}), terminal.asErrors());
  std::string screen;
  EXPECT_TRUE(waitUntil([&] { return (screen += terminal.shown()).find("iB/s") != std::string::npos; })) << screen;
  EXPECT_THAT(screen, testing::HasSubstr("job 1: "));
  EXPECT_THAT(screen, testing::HasSubstr(" MiB, 1 file, "));

  EXPECT_EQ(runJson({"job", "stop", "1"})["quit_requested"], true);
  const ProgramResult supervised = run->wait();
  EXPECT_EQ(supervised.exitStatus, 1);
  EXPECT_EQ(supervised.output, "1\n");
  const ProgramResult watched = watch.wait();
  EXPECT_EQ(watched.exitStatus, 0);
  EXPECT_THAT(watched.output, testing::HasSubstr("failed, asked to stop"));
  EXPECT_THAT(watched.output, testing::HasSubstr(" MiB in 1 file"));
  const Json told = Json::parse(document.wait().output);
  EXPECT_TRUE(has(told, {{"state", "failed"}, {"files", 1}}));
  EXPECT_GT(told["bytes"], 1 << 20);
  EXPECT_THAT(log(), testing::HasSubstr(" Quit flag set in the JobManager."));
  EXPECT_EQ(job()["causes"], Json::array());
  EXPECT_TRUE(failedWith(CommandTest::run({"job", "stop", "1"}), "it has ended: failed"));
}

TEST_F(JobTest, OutcomesOfRunsReachTheJob) {
  const struct {
    const char* mode;
    int exitStatus;
    const char* state;
    int mebibytes;
    const char* cause;  // null: none
  } cases[] = {
      {"report", 0, "succeeded", 20, nullptr},
      {"fail", 1, "failed", 20, "mysqlbackup failed: ERROR: the media is full;"},
      {"silent", 1, "failed", 0, "mysqlbackup failed: mysqlbackup failed.;"},
  };
  // The shortest there is; five of them make a library silent.
  ASSERT_EQ(run({"setting", "set", "nIdleSeconds", "1"}).exitStatus, 0);
  int id = 0;
  for (const auto& row : cases) {
    EXPECT_EQ(supervise(row.mode)->wait().exitStatus, row.exitStatus) << row.mode;
    const Json job = runJson({"job", "show", std::to_string(++id)});
    EXPECT_TRUE(has(job, {{"state", row.state}, {"bytes", std::int64_t{row.mebibytes} << 20}})) << row.mode;
    ASSERT_EQ(job["causes"].size(), row.cause == nullptr ? 0U : 1U) << row.mode;
    if (row.cause != nullptr) {
      EXPECT_THAT(job["causes"][0]["text"].get<std::string>(), testing::HasSubstr(row.cause));
    }
    for (const std::string& name : leftInTmp()) EXPECT_THAT(name, testing::Not(testing::HasSubstr("MySqlSBTSrv")));
  }
  EXPECT_EQ(readFile(home() + "/results/DZ_JobResults/2/0/2/" + namesIn(home() + "/results/DZ_JobResults/2/0/2").at(0)),
            "WARNING: nearly full\nERROR: the media is full\nlast words\n");
}

TEST_F(JobTest, SupervisorThatIsKilledLeavesAJobThatDiedAndANextRunGoesWell) {
  const auto killed = supervise("on");
  ASSERT_TRUE(waitUntil([&] { return !runJson({"job", "list"})["jobs"].empty(); }));
  ASSERT_TRUE(moves());
  ASSERT_EQ(::kill(killed->pid(), SIGKILL), 0);
  EXPECT_EQ(killed->wait().signal, SIGKILL);
  EXPECT_EQ(job()["state"], "died");
  EXPECT_EQ(supervise("report")->wait().exitStatus, 0);
  EXPECT_EQ(runJson({"job", "show", "2"})["bytes"], 20 << 20);
}

}  // namespace
}  // namespace orrery::test
