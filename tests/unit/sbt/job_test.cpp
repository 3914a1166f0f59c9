// The job's clients, the working directory, the completion and the look-ups.

#include <signal.h>

#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using platform::Status;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

/// With the clients of a job.
struct JobDriver : Driver {
  JobDriver(long long job, DZJobType type) { EXPECT_EQ(initializeJobControl(job, type, "manager", nullptr), 0); }
};

TEST_F(SbtTest, JobControlIsInitiatedForBothTypesOfAJobThatIsKnown) {
  const struct {
    DZJobType type;
    const char *initiated, *failed;
  } cases[] = {{DZJobType::backup, "0: Intialized DZBkpJobClient", "0: bkpObj->init failed"},
               {DZJobType::restore, "0: Intialized DZRstJobClient", "0: m_jobObjectB->init failed"}};
  for (const auto& row : cases) {
    backend_.log().clear();
    JobDriver driver(jobId_, row.type);
    ASSERT_NE(driver.getJobObject(), nullptr);
    EXPECT_EQ(dynamic_cast<DZBkpJobClient*>(driver.getJobObject()) != nullptr, row.type == DZJobType::backup);
    EXPECT_NE(driver.getJobControl(), nullptr);
    EXPECT_THAT(said("MySqlSBTUtils::initializeJobControl"),
                ElementsAre(row.initiated, "0: getting the new m_jobControl for job [" + std::to_string(jobId_) + "]",
                            "0: m_jobControl.init(CONTROL) ", "2: new m_jobControl has initiated."));
    Driver jobless;
    EXPECT_EQ(jobless.initializeJobControl(jobId_ + 1, row.type, "manager", nullptr), -1);
    EXPECT_EQ(said("MySqlSBTUtils::initializeJobControl").back(), row.failed);
    EXPECT_EQ(jobless.getJobControl(), nullptr);
  }
}

TEST_F(SbtTest, FailedJobControlIsToldToTheJobUnderTheTextOfASuccessKept) {
  Driver driver;
  backend_.failures().failNth("JobManager::find", 2, Status::failure("busy"));
  EXPECT_EQ(driver.initializeJobControl(jobId_, DZJobType::restore, "manager", nullptr), -1);
  EXPECT_THAT(causes(), ElementsAre("12000080 6 300 "));
  ASSERT_EQ(backend_.events().size(), 1U);
  EXPECT_EQ(backend_.events()[0].code, 0x12000080U);
  EXPECT_EQ(backend_.events()[0].severity, platform::Severity::major);
  EXPECT_EQ(said("MySqlSBTUtils::initializeJobControl").back(), "2: new m_jobControl has initiated.");
  EXPECT_EQ(driver.getJobControl(), nullptr);
  EXPECT_NE(driver.getJobObject(), nullptr);
}

TEST_F(SbtTest, OtherJobTypesHaveNoJobObjectAndBecomeRestoresWithTheFirstCounterKept) {
  JobDriver driver(jobId_, static_cast<DZJobType>(7));
  EXPECT_EQ(driver.getJobObject(), nullptr);
  EXPECT_EQ(driver.jobType_, static_cast<DZJobType>(7));
  EXPECT_EQ(driver.addFilesXferred(1), -1);
  EXPECT_EQ(driver.jobType_, DZJobType::restore);
  EXPECT_EQ(driver.setUncompBytesToAdd(1), -1);
  EXPECT_FALSE(driver.updateInfo(false));
  EXPECT_EQ(driver.NotifyArbiterJobComplete(DZJobStatus::success, DZJobStatusFor::job, 0), -1);
  EXPECT_EQ(job().finished, 0);
}

TEST_F(SbtTest, WorkingDirectoryIsNamedAndNotMadeAndNoneIsChosenWithoutResultsOrHome) {
  const std::string second = "/1767225600/7";
  const struct {
    DZJobType type;
    std::string folder;
  } cases[] = {
      {DZJobType::backup, "/results/DZ_JobResults/2/0/BKP"},
      {DZJobType::restore, "/results/DZ_JobResults/2/0/RST"},
      {static_cast<DZJobType>(3), "/results"},
  };
  for (const auto& row : cases) {
    JobDriver driver(jobId_, row.type);
    EXPECT_EQ(driver.initializeCommonParams(7), 0);
    EXPECT_EQ(driver.jobResultsDir_, backend_.directory() + row.folder + second);
    EXPECT_EQ(driver.sbtLibraryPath_, backend_.directory() + "/libobk.so");
    EXPECT_FALSE(std::filesystem::exists(driver.jobResultsDir_));
  }
  JobDriver driver(jobId_, DZJobType::backup);
  backend_.setJobResults(std::nullopt);
  EXPECT_EQ(driver.initializeCommonParams(7), -1);
  backend_.setJobResults(backend_.directory() + "/results");
  backend_.failures().failAlways("Directories::baseHome", Status::failure("no"));
  EXPECT_EQ(driver.initializeCommonParams(7), -1);
  EXPECT_EQ(driver.jobResultsDir_, "");
}

TEST_F(SbtTest, CleanUpRemovesTheWorkingDirectoryAsOftenAsItIsCalled) {
  Driver driver;
  initialize(driver);
  std::filesystem::create_directories(driver.jobResultsDir_ + "/a");
  writeFile(driver.jobResultsDir_ + "/a/file", "");
  driver.cleanUp();
  EXPECT_FALSE(std::filesystem::exists(driver.jobResultsDir_));
  driver.cleanUp();
  EXPECT_THAT(said("MySqlSBTUtils::cleanUp"),
              testing::Each("1: Cleaning temp backup directory [" + driver.jobResultsDir_ + "]"));
  driver.jobResultsDir_ = "relative";
  driver.cleanUp();
  EXPECT_EQ(said("MySqlSBTUtils::cleanUp").back(),
            "error: failed to remove temporary backup dir [relative], error[[relative] is no folder to remove]");
}

TEST_F(SbtTest, MissingMediaLibraryIsToldToTheJobIfThereIsOne) {
  const std::string library = backend_.directory() + "/libobk.so";
  std::filesystem::remove(library);
  const auto run = [&](Driver& driver) {
    driver.params_.clientNameText = "source";
    driver.params_.clientName = "local";
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver.initializeCommonParams(7), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Library libobk.so is not found in [" + library + "]\n");
    EXPECT_EQ(said("MySqlSBTUtils::initializeCommonParams").back(),
              "error: Library libobk.so is not found in [" + library + "].");
  };
  Driver byHand;
  run(byHand);
  EXPECT_THAT(causes(), ElementsAre());
  for (const auto type : {DZJobType::backup, DZJobType::restore}) {
    JobDriver driver(jobId_, type);
    run(driver);
  }
  EXPECT_THAT(causes(), ElementsAre("12000022 0 300 " + library + "|source|", "12000022 0 300 " + library + "|local|"));
}

class RecordingControl final : public DZJobCtrlClient {
 public:
  explicit RecordingControl(std::vector<int>& told) : DZJobCtrlClient(2), told_(told) {}
  bool finishedWorkWithoutExit(int milliseconds) override {
    told_.push_back(milliseconds);
    return true;
  }

 private:
  std::vector<int>& told_;
};

TEST_F(SbtTest, CompletionIsToldAsItCame) {
  const struct {
    DZJobType type;
    DZJobStatus status;
    DZJobStatusFor what;
    bool refused;
    const char* marked;
    const char* failed;
  } cases[] = {
      {DZJobType::backup, DZJobStatus::success, DZJobStatusFor::job, false, "Marked the JOB as JMSUCCESS", ""},
      {DZJobType::backup, DZJobStatus::failed, DZJobStatusFor::phase, false, "Marked the PHASE as FAIL", ""},
      {DZJobType::backup, DZJobStatus::success, DZJobStatusFor::phase, true, "Marked the PHASE as JMSUCCESS",
       "jobObject.complete(JMSUCCESS,PHASE) failed"},
      {DZJobType::restore, DZJobStatus::success, DZJobStatusFor::job, false, "Marked the JOB as JMSUCCESS", ""},
      {DZJobType::restore, DZJobStatus::completedWithErrors, DZJobStatusFor::job, false, "Marked the JOB as FAIL", ""},
      {DZJobType::restore, DZJobStatus::failed, DZJobStatusFor::job, true, "Marked the JOB as FAIL",
       "jobObject.complete(FAIL,JOB) failed"},
  };
  for (const auto& row : cases) {
    SetUp();
    JobDriver driver(jobId_, row.type);
    std::vector<int> finished;
    driver.jobControl_ = std::make_unique<RecordingControl>(finished);
    backend_.log().clear();
    if (row.refused) backend_.failures().failNth("JobManager::complete", 1, Status::failure("no"));
    EXPECT_EQ(driver.NotifyArbiterJobComplete(row.status, row.what, 31), row.refused ? -1 : 0) << row.marked;
    EXPECT_THAT(finished, ElementsAre(120'000)) << row.marked;
    EXPECT_EQ(driver.getJobStatus(), row.status);
    Lines expected;
    if (row.refused) expected.push_back(std::string("2: ") + row.failed);
    expected.push_back(std::string("2: ") + row.marked);
    EXPECT_EQ(said("MySqlSBTUtils::NotifyArbiterJobComplete"), expected);
    if (!row.refused) {
      const auto told = backend_.completions().back();
      EXPECT_EQ(told.state, static_cast<platform::JobState>(row.status));
      EXPECT_EQ(told.wholeJob, row.what == DZJobStatusFor::job);
      EXPECT_EQ(told.code, 31);
    }
    const bool isWhole = row.type == DZJobType::restore && row.status == DZJobStatus::success;
    EXPECT_EQ(job().progress, isWhole ? 100 : 0) << row.marked;
  }
}

TEST_F(SbtTest, LookupsTellWhatTheyFoundAndWhatTheyDidNotAndNamesInTheWordsOfIdsKept) {
  Driver driver;
  platform::Id client = 0;
  ASSERT_TRUE(backend_.services()->inventory->putClient("hall", 0, client).ok());
  platform::InstanceRecord record;
  record.clientId = client;
  record.applicationType = 104;
  record.name = "shop";
  platform::Id instance = 0;
  ASSERT_TRUE(backend_.services()->inventory->addInstance(record, instance).ok());
  const std::string c = std::to_string(client);
  const std::string i = std::to_string(instance);
  std::uint64_t id = 0;
  std::string name;
  const struct {
    const char* operation;
    std::function<int()> look;
    int result;
    std::string said, printed;
  } cases[] = {
      {"getInstanceIdFromName", [&] { return driver.getInstanceIdFromName(client, "shop", id); }, 0,
       "5: Found instanceId [" + i + "] for client [" + c + "] and instance [shop].", ""},
      {"getInstanceIdFromName", [&] { return driver.getInstanceIdFromName(client, "no", id); }, -1,
       "error: Failed to get instance Id from instance name [no] in client [" + c + "]. errorCode [-2]",
       "Failed to get instance Id from instance [no] in client [" + c + "]\n"},
      {"getInstanceNameFromId", [&] { return driver.getInstanceNameFromId(name, instance); }, 0,
       "5: Found instanceName [shop] for instance [" + i + "].", ""},
      {"getInstanceNameFromId", [&] { return driver.getInstanceNameFromId(name, 99); }, -1,
       "error: Failed to get instance Name from instance id [99]. errorCode [2]", ""},
      {"getClientIdFromName", [&] { return driver.getClientIdFromName("hall", id); }, 0,
       "5: Found clientId [" + c + "] for client [hall].", ""},
      {"getClientIdFromName", [&] { return driver.getClientIdFromName("no", id); }, -1,
       "error: Failed to get properties of client [no]. errorCode [2]", "Failed to get properties of client [no].\n"},
      {"getClientNameFromId", [&] { return driver.getClientNameFromId(name, client); }, 0,
       "5: Found clientId [" + c + "] for client [hall].", ""},  // kept: the words of the other look-up
      {"getClientNameFromId", [&] { return driver.getClientNameFromId(name, 99); }, -1,
       "error: Failed to get properties of client [99]. errorCode [2]", "Failed to get properties of client [99].\n"},
  };
  for (const auto& row : cases) {
    id = 0;
    name = "untouched";
    testing::internal::CaptureStdout();
    EXPECT_EQ(row.look(), row.result) << row.said;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
    EXPECT_EQ(said(std::string("MySqlSBTUtils::") + row.operation).back(), row.said);
    EXPECT_EQ(id != 0 || name != "untouched", row.result == 0) << row.said;
  }
}

TEST_F(SbtTest, CommandOfTheShellWhoseEndIsLostCountsAsDoneKept) {
  Driver driver;
  std::string text;
  int rc = 77;
  const sighandler_t before = signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(driver.runCommand("exit 1", text, text, rc, true), 0);
  signal(SIGCHLD, before);
  EXPECT_EQ(rc, -1);
  const Lines lines = said("MySqlSBTUtils::runCommand");
  EXPECT_EQ(lines.at(lines.size() - 2), "error: How the command [exit 1] ended is not known: No child processes");
  EXPECT_EQ(lines.back(), "0: Successfully executed command [exit 1]");
}

TEST_F(SbtTest, CommandsOfTheShellFillNothingButTheirResultKept) {
  Driver driver;
  const std::string home = backend_.directory() + "/it's home";
  std::filesystem::create_directory(home);
  backend_.setHome(home);
  const struct {
    std::string command;
    int result, rc;
  } cases[] = {
      {"test \"$LD_LIBRARY_PATH\" = \"" + home + "\"; echo said", 0, 0},
      {"exit 1", -1, 256},
      {"kill -TERM $$", -1, 15},
  };
  for (const auto& row : cases) {
    std::string out = "out";
    std::string err = "err";
    int rc = 77;
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver.runCommand(row.command, out, err, rc, true), row.result) << row.command;
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(rc, row.rc);
    EXPECT_EQ(out + err, "outerr");
    const Lines lines = said("MySqlSBTUtils::runCommand");
    EXPECT_EQ(lines.back(), row.result == 0 ? "0: Successfully executed command [" + row.command + "]"
                                            : "error: Failed to run the command [" + row.command + "]");
    EXPECT_EQ(lines.at(lines.size() - 3), "5: Running command [" + row.command + "]");
  }
  backend_.setHome("/opt/agent");
  int rc = 0;
  std::string text;
  driver.runCommand("true", text, text, rc, true);
  EXPECT_EQ(said("MySqlSBTUtils::runCommand").at(10), "0: Executing command [export LD_LIBRARY_PATH=/opt/agent; true]");
}

}  // namespace
}  // namespace orrery::test
