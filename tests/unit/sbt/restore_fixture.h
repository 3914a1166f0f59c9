#pragma once

#include <functional>
#include <sstream>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZRestoreTask.h"

#include "sbt/driver_fixture.h"

namespace orrery::test {

/// A restore with a server that the test plays; keeps what was asked of it, with the state of the data directory then.
class Restore : public MySqlSBTRestoreUtils {
 public:
  using MySqlSBTRestoreUtils::commandLineInputs_;
  using MySqlSBTRestoreUtils::isInitialized_;
  using MySqlSBTRestoreUtils::ownerGroup_;
  using MySqlSBTRestoreUtils::ownerUser_;
  using MySqlSBTRestoreUtils::params_;
  using MySqlSBTRestoreUtils::sbtLibraryPath_;
  using MySqlSBTRestoreUtils::targetDirectory_;
  using MySqlSBTUtils::driverText2_;

  std::vector<std::string> asked;
  int stopResult = 0, startResult = 0, pingResult = 0;
  int pingError = 0;      // of the ping before the stop, which fails when this is set
  int lastPingError = 0;  // of the one after the start, should that fail
  std::function<void()> atStop = [] {};

 protected:
  int stopServer() override {
    asked.emplace_back("stop");
    atStop();
    return stopResult;
  }
  int startServer(const char* command) override {
    asked.push_back(std::string("start ") + (command == nullptr ? "by default" : command));
    return startResult;
  }
  int pingServer() override {
    const bool isFirst = asked.empty();
    asked.emplace_back("ping");
    const int error = isFirst ? pingError : lastPingError;
    if (error != 0) session_.strErrorString = "no";
    session_.iErrorCode = error;
    return isFirst ? (error == 0 ? 0 : -1) : pingResult;
  }
};

/// A restore job into the server of an instance, with `images_` of them on the media.
class RestoreTest : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    writeJob();
    std::filesystem::create_directories(data_);
    writeFile(data_ + "/old", "");
  }
  /// A new job with the options of a restore into the server.
  void writeJob() {
    platform::JobRecord record;
    record.type = platform::JobType::restore;
    ASSERT_TRUE(backend_.services()->jobs->start(record, jobId_).ok());
    jobOfProcess_ = std::make_unique<platform::ScopedJob>(jobId_);
    platform::Client client;
    ASSERT_TRUE(backend_.services()->inventory->ownClient(client).ok());
    options_ = {{DZRestoreTask::optionSourceClient, std::to_string(client.id)},
                {DZRestoreTask::optionSourceInstance, std::to_string(instance_)},
                {DZRestoreTask::optionDestinationClient, std::to_string(client.id)},
                {DZRestoreTask::optionDestinationInstance, std::to_string(instance_)},
                {DZRestoreTask::optionRestoreType, "0"},
                {DZRestoreTask::optionRestoreToTime, "500"}};
  }
  int initialize(Restore& driver) {
    for (const auto& [option, value] : options_)
      EXPECT_TRUE(backend_.services()->jobs->writeTaskOption(jobId_, option, value).ok());
    return driver.initialize({}, jobId_);
  }
  void into(const std::string& directory) {
    options_[DZRestoreTask::optionRestoreType] = "1";
    options_[DZRestoreTask::optionDestinationFolder] = directory;
  }
  /// Images "name1", "name2" and so on, the first one full; made 100, 200 and so on seconds after a time.
  void addImages(int count, const std::string& name = "image", std::int64_t after = 0) {
    for (int i = 1; i <= count; ++i) addImage(i == 1 ? 1 : 2, name + std::to_string(i), after + 100 * i);
  }
  void addImage(int level, const std::string& name, std::int64_t created) {
    std::vector<platform::BackupSet> sets;
    ASSERT_TRUE(backend_.services()->inventory->listBackupSets(instance_, sets).ok());
    platform::ArchiveFile file;
    file.backupSetId = sets.at(0).id;
    file.subclientId = 9;
    file.applicationType = 104;
    file.level = level;
    file.name = name;
    file.created = created;
    platform::Id id = 0;
    ASSERT_TRUE(backend_.services()->archive->addFile(file, id).ok());
  }
  std::string applied() const {
    return std::filesystem::exists(data_ + "/applied") ? readFile(data_ + "/applied") : "";
  }
  bool isOldThere() const { return std::filesystem::exists(data_ + "/old"); }
  std::vector<std::string> steps() { return said("MySqlSBTRestoreUtils::sbtRestoreToTime"); }
  bool forceFull() const {
    platform::SubclientRecord record;
    EXPECT_TRUE(backend_.services()->inventory->findSubclient(backend_.defaultSubclient(instance_), record).ok());
    return record.forceFull;
  }

  std::map<std::uint32_t, std::string> options_;
};

/// Runs whole restores.
class RestoreDriver : public RestoreTest {
 protected:
  int restore(Restore& driver) {
    EXPECT_EQ(initialize(driver), 0);
    backend_.log().clear();
    testing::internal::CaptureStdout();
    const int result = driver.sbtRestoreToTime();
    testing::internal::GetCapturedStdout();
    driver.cleanUp();
    return result;
  }
  /// What a restore asked of the server, and what the data directory holds after it.
  std::vector<std::string> whatIsLeft(const Restore& driver) const {
    std::vector<std::string> texts = driver.asked;
    if (isOldThere()) texts.emplace_back("old there");
    std::istringstream images(applied());
    for (std::string image; std::getline(images, image);) texts.push_back(image);
    return texts;
  }
  bool isWorkingCopyGone() const {
    const std::string runs = backend_.directory() + "/results/DZ_JobResults/2/0/RST";
    return !std::filesystem::exists(runs) || std::filesystem::is_empty(runs);
  }
};

}  // namespace orrery::test
