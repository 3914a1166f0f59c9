// What a restore is told: by the task of its job, or by hand; and the command line that it makes of it.

#include "sbt/restore_fixture.h"

namespace orrery::test {
namespace {

using platform::Status;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
namespace property = platform::property;

class RestoreTask : public RestoreTest {
 protected:
  int restoreImage(Restore& driver, const std::string& image, bool incremental) {
    testing::internal::CaptureStdout();
    const int result = driver.sbtRestoreFromImage(image, incremental);
    printed_ = testing::internal::GetCapturedStdout();
    return result;
  }
  /// What is said about the source is right in it.
  SBTParams byHand() const {
    SBTParams params;
    params.clientNameText = "testclient";
    params.instanceName = "db1";
    params.binaryDirectory = bin_;
    params.dataDirectory = folder_ / "new";
    return params;
  }
  int initializeByHand(Restore& driver, const SBTParams& params) {
    testing::internal::CaptureStdout();
    const int result = driver.initialize(params, 0);
    printed_ = testing::internal::GetCapturedStdout();
    return result;
  }

  std::string printed_;
  const std::string lastWord_ = " --verbose --debug=all copy-back-and-apply-log";
};

TEST_F(RestoreTask, SaysWhereToWithSuccessAsAnErrorAndAnUnreadableStagingFolderKept) {
  const struct {
    const char *name, *staging, *custom;
    std::string property, target, user;
  } cases[] = {
      {"the server's own", "", "", dataDirProperty(), data_, user_},
      {"staging", "/staging", "", dataDirProperty(), "/staging", ""},
      {"no owner", "", "", "datadir:/d;", "/d", ""},
      {"custom", "", "/c", dataDirProperty(), "/c", ""},
  };
  for (const auto& row : cases) {
    writeJob();
    setProperty(property::dataDirOwner, row.property);
    if (*row.staging != '\0') options_[DZRestoreTask::optionStagingFolder] = row.staging;
    if (*row.custom != '\0') into(row.custom);
    Restore driver;
    ASSERT_EQ(initialize(driver), 0) << row.name;
    EXPECT_EQ(driver.targetDirectory(), row.target) << row.name;
    EXPECT_EQ(driver.isIntoServer(), *row.custom == '\0') << row.name;
    EXPECT_EQ(driver.ownerUser_, row.user) << row.name;
    EXPECT_EQ(driver.params_.restoreTime, 500);
    EXPECT_THAT(said("MySqlSBTRestoreUtils::initialize"), Contains("error: Intialized MySQL SBT Restore Job Control"))
        << "kept: an error that tells a success";
  }
  EXPECT_TRUE(isSaid("Failed to get staging direcory for job [")) << "kept: and the restore goes on";
}

TEST_F(RestoreTask, TimeOfZeroLeavesTheCallers) {
  options_[DZRestoreTask::optionRestoreToTime] = "0";
  for (const auto& [option, value] : options_)
    ASSERT_TRUE(backend_.services()->jobs->writeTaskOption(jobId_, option, value).ok());
  Restore driver;
  SBTParams params;
  params.restoreTime = 7;
  ASSERT_EQ(driver.initialize(params, jobId_), 0);
  EXPECT_EQ(driver.params_.restoreTime, 7);
}

TEST_F(RestoreTask, EachFailureHasItsTextAndEndsTheJob) {
  const std::string instance = "[" + std::to_string(instance_) + "]";
  const auto without = [&](std::uint32_t option) { return [this, option] { options_.erase(option); }; };
  const auto with = [&](std::uint32_t option, const char* value) {
    return [this, option, value] { options_[option] = value; };
  };
  const auto reading = [&](const char* key) {
    return [this, key] { backend_.failures().failWhen("Inventory::readProperty", key, Status::failure("no")); };
  };
  const struct {
    std::function<void()> arrange;
    std::string text;
    const char* cause = "1800003e 0 300 ";
  } cases[] = {
      {without(DZRestoreTask::optionSourceClient), "Failed to get source client id for job [JOB]"},
      {without(DZRestoreTask::optionSourceInstance), "Failed to get source instance id for job [JOB]"},
      {with(DZRestoreTask::optionSourceClient, "99"), "Failed to get client name from client id [99]"},
      {with(DZRestoreTask::optionSourceInstance, "99"), "Failed to get instance name from instance id [99]"},
      {without(DZRestoreTask::optionDestinationClient), "Failed to get destination client id for job [JOB]"},
      {without(DZRestoreTask::optionDestinationInstance), "Failed to get destination instance id for job [JOB]"},
      {reading(property::mebEnabled), "Failed to check if MEB is Enabled for instance " + instance},
      {[&] { setProperty(property::mebEnabled, "0"); }, "MEB backup is not enabled in instance " + instance,
       "5700006d 0 300 Restore|db1|"},
      {reading(property::mebBinPath), "Failed to get MEB binary path for instance " + instance},
      {without(DZRestoreTask::optionRestoreType), "Failed to get restore type for job [JOB]"},
      {with(DZRestoreTask::optionRestoreType, "2"), "Got unknown restore type for job [JOB]"},
      {reading(property::dataDirOwner), "Failed to get datadir from destination instance " + instance},
      {[&] { setProperty(property::dataDirOwner, ""); }, "Empty datadir found for job [JOB] and instance " + instance},
      {with(DZRestoreTask::optionRestoreType, "1"), "Failed to get destination direcory for job [JOB]"},
      {without(DZRestoreTask::optionRestoreToTime), "Failed to get Restore to time for job [JOB]"},
  };
  for (const auto& row : cases) {
    writeJob();
    setProperty(property::mebEnabled, "1");
    setProperty(property::dataDirOwner, dataDirProperty());
    backend_.failures().clear();
    row.arrange();
    std::string text = row.text;
    if (const auto job = text.find("JOB"); job != std::string::npos) text.replace(job, 3, std::to_string(jobId_));
    Restore driver;
    EXPECT_EQ(initialize(driver), -1) << text;
    EXPECT_EQ(said("MySqlSBTRestoreUtils::populateTaskOptions").back(), "error: " + text);
    EXPECT_EQ(said("MySqlSBTRestoreUtils::initialize").back(), "error: Failed to populate task options.");
    EXPECT_THAT(causes(), ElementsAre(row.cause)) << text;
    EXPECT_EQ(job().state, platform::JobState::failed) << text;
    EXPECT_EQ(driver.sbtRestoreToTime(), -1);
    EXPECT_EQ(driver.sbtRestoreFromImage("image", false), -1);
  }
  Restore driver;
  EXPECT_EQ(driver.populateTaskOptions(), -1);
  EXPECT_TRUE(isSaid("jobId [0] or task variables not intialized."));
}

TEST_F(RestoreTask, SessionThatCannotBeMadeLeavesTheEndOfTheJobToTheCaller) {
  setProperty(property::socketFile, "");
  Restore driver;
  EXPECT_EQ(initialize(driver), -1);
  EXPECT_EQ(said("MySqlSBTRestoreUtils::initialize").back(), "error: GetMySqlInfoExt::Init failed.");
  EXPECT_EQ(driver.getJobStatus(), DZJobStatus{});
}

TEST_F(RestoreTask, CommandLineOfAJob) {
  const std::string job = std::to_string(jobId_);
  Restore driver;
  options_[DZRestoreTask::optionStagingFolder] = folder_ / "my data";
  ASSERT_EQ(initialize(driver), 0);
  const std::string head = "T/bin/mysqlbackup  --backup-dir=\"HOME/results/DZ_JobResults/2/0/RST/1767225600/" +
                           std::to_string(instance_) + "/";
  const std::string tail =
      " --sbt-environment=\"DzSrcClientName=testclient,DzKycmdTokenFile=,DzMySQLSBTInstance=db1,ThreadCommandLine=-j " +
      job + " -at 104\"" + lastWord_;
  ASSERT_EQ(restoreImage(driver, "a1", false), 0);
  EXPECT_EQ(printed_, "Successfully restored from image [a1]\n");
  EXPECT_EQ(ranCommand(), head +
                              "1767225600\" --backup-image=\"sbt:a1\" --sbt-lib-path=\"HOME/libobk.so\"  "
                              "--datadir=\"T/my data\"" +
                              tail);
  EXPECT_EQ(said("MySqlSBTRestoreUtils::sbtRestoreFromImage").back(), "1: Successfully restored from image [a1]");
  const std::string full = driver.driverText2_;
  EXPECT_EQ(plain(full), "HOME/results/DZ_JobResults/2/0/RST/1767225600/" + std::to_string(instance_) + "/1767225600");
  backend_.log().clear();
  ASSERT_EQ(restoreImage(driver, "a2", true), 0);
  EXPECT_THAT(ranCommand(), HasSubstr("\"HOME/libobk.so\"  --incremental --datadir=\"T/my data\" --sbt"));
  EXPECT_EQ(driver.driverText2_, full) << "of the last full image";
  EXPECT_EQ(readFile(folder_ / "my data/applied"), "a1\na2\n");
  EXPECT_EQ(restoreImage(driver, "", false), -1);
  EXPECT_TRUE(isSaid("Image name is empty and is not valid."));
  EXPECT_EQ(restoreImage(driver, "a\"b", false), -1);
  EXPECT_TRUE(isSaid("not handed over to mysqlbackup: the image [a\"b]"));
}

TEST_F(RestoreTask, CommandLineByHandReachesTheProgramThroughTheShell) {
  Restore driver;
  SBTParams params = byHand();
  params.dataDirectory = folder_ / "new $HOME's \"data\"";
  params.extraOptions = "--force --verbose";
  params.tokenFile = "/t/to ken";
  ASSERT_EQ(initializeByHand(driver, params), 0) << printed_;
  ASSERT_EQ(restoreImage(driver, "a1", true), 0);
  EXPECT_EQ(ranCommand(),
            "T/bin/mysqlbackup  --backup-dir=\"HOME/results/1767225600/" + std::to_string(instance_) +
                "/1767225600\" --backup-image=\"sbt:a1\" --sbt-lib-path=\"HOME/libobk.so\" --force --verbose "
                "--incremental --datadir=\"T/new \\$HOME's \\\"data\\\"\" --sbt-environment=\"DzSrcClientName="
                "testclient,DzKycmdTokenFile=/t/to ken,DzMySQLSBTInstance=db1,\"" +
                lastWord_);
  EXPECT_EQ(readFile(params.dataDirectory + "/applied"), "a1\n");
  driver.targetDirectory_.clear();
  backend_.log().clear();
  ASSERT_EQ(restoreImage(driver, "a1", false), 0);
  EXPECT_THAT(ranCommand(), HasSubstr("mysqlbackup --defaults-file=\"/etc/my.cnf\" --backup-dir="));
  writeFile(folder_ / "failing", "a1");
  EXPECT_EQ(restoreImage(driver, "a1", false), -1);
  EXPECT_TRUE(isSaid("], process retcode [256]"));
  backend_.failures().failWhen("Inventory::readProperty", property::configFile, Status::failure("no"));
  EXPECT_EQ(restoreImage(driver, "a1", false), -1);
  EXPECT_TRUE(isSaid("Failed to get config file from MySQL instance [" + std::to_string(instance_) + "]"));
  driver.params_.instanceId = 99;
  EXPECT_EQ(restoreImage(driver, "a1", false), -1);
  EXPECT_TRUE(isSaid("lookup failed for MySQL instance [99]"));
}

TEST_F(RestoreTask, ByHandWhatIsMissingIsPrinted) {
  const struct {
    std::function<void(SBTParams&)> change;
    std::string printed, logged;
  } cases[] = {
      {[](SBTParams& p) { p.clientNameText = "no"; },
       "Failed to get properties of client [no].\nInvalid DzSrcClientName [no]\nSpecify correct source Client name "
       "using argument '-sc <Source Client name>'.\n",
       "Failed to get clientId for client [no]"},
      {[](SBTParams& p) { p.instanceName = "no"; },
       "Failed to get instance Id from instance [no] in client [1]\nInvalid DzSrcInstName [no]\nSpecify correct source "
       "Instance name using argument '-si <Source Instance name>'.\n",
       "Failed to get instanceId for client [testclient] and instance [no]"},
      {[](SBTParams& p) { p.dataDirectory = ""; },
       "Specify destination dataDir using argument '-d <data directory to restore>'\n", "Invalid inputs received."},
      {[](SBTParams& p) { p.binaryDirectory = "/none"; },
       "Invalid binary directory provided. 'mysqlbackup' is not found in /none.\n", "Invalid inputs received."},
  };
  for (const auto& row : cases) {
    Restore driver;
    SBTParams params = byHand();
    row.change(params);
    EXPECT_EQ(initializeByHand(driver, params), -1);
    EXPECT_EQ(printed_, row.printed);
    EXPECT_TRUE(isSaid(row.logged)) << row.logged;
  }
  Restore driver;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(driver.isValidInput());
  EXPECT_EQ(
      testing::internal::GetCapturedStdout(),
      "Specify path to mysqlbackup using argument '-b <path to dir containing mysqlbackup>'.\nSpecify destination "
      "dataDir using argument '-d <data directory to restore>'\n");
  backend_.failures().failWhen("Inventory::findClient", "testclient", Status::failure("no"));
  EXPECT_EQ(initializeByHand(driver, byHand()), -1);
}

TEST_F(RestoreTask, ByHandTheProgramIsLookedForOnThePath) {
  const std::string path = std::getenv("PATH");
  SBTParams params = byHand();
  params.binaryDirectory = "";
  EXPECT_EQ(inChild([&] {
              setenv("PATH", (bin_ + ":" + path).c_str(), 1);
              Restore driver;
              return driver.initialize(params, 0) == 0 && driver.commandLineInputs_ &&
                             driver.params_.binaryDirectory == bin_
                         ? 0
                         : 1;
            }),
            0);
  Restore driver;
  EXPECT_EQ(initializeByHand(driver, params), -1);
  EXPECT_TRUE(isSaid("Failed to find mysqlbackup binary path. Error []"));
  EXPECT_TRUE(isSaid("Failed to autopopulate SBT params."));
}

}  // namespace
}  // namespace orrery::test
