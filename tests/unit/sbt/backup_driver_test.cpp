// A backup from its arguments to the index, with a script in place of `mysqlbackup`.

#include <functional>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/arguments.h"

#include "sbt/driver_fixture.h"

namespace orrery::test {
namespace {

using platform::Status;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace property = platform::property;

/// Counts its clean-ups.
class Backup : public MySqlSBTBackupUtils {
 public:
  void cleanUp() override {
    ++cleanUps;
    MySqlSBTBackupUtils::cleanUp();
  }
  using MySqlSBTUtils::params_;
  int cleanUps = 0;
};

/// Keeps which backup the paths were added for.
class KeyOfIndex final : public platform::Index {
 public:
  explicit KeyOfIndex(std::shared_ptr<platform::Index> shown) : shown_(std::move(shown)) {}
  Status addPaths(const platform::IndexKey& key, const std::vector<platform::BrowsePath>& paths) override {
    key_ = key;
    return shown_->addPaths(key, paths);
  }
  Status listPaths(platform::Id, long long, std::vector<platform::BrowsePath>&) override { return notUsed_; }
  Status addRecord(const platform::IndexKey&, const std::string&, const std::string&, const std::string&) override {
    return notUsed_;
  }
  Status addRecords(const platform::IndexKey&, const std::vector<platform::IndexRecord>&) override { return notUsed_; }
  Status listRecords(long long, const std::string&, std::vector<std::pair<std::string, std::string>>&) override {
    return notUsed_;
  }
  Status eachRecord(long long, const std::function<bool(const platform::IndexRecord&)>&) override { return notUsed_; }
  Status removeRecords(long long, const std::string&, const std::string&) override { return notUsed_; }

  platform::IndexKey key_;

 private:
  const std::shared_ptr<platform::Index> shown_;
  const Status notUsed_ = Status::failure("not used");
};

class BackupDriver : public DriverTest {
 protected:
  void SetUp() override {
    DriverTest::SetUp();
    args_.jobId = jobId_;
    args_.applicationInstance = static_cast<std::uint32_t>(instance_);
    args_.applicationSubclient = static_cast<std::uint32_t>(backend_.defaultSubclient(instance_));
    args_.indexImage = "image";
  }
  /// The defaults file's name has the process in it.
  std::string command() {
    std::string text = ranCommand();
    const auto file = text.find("HOME/tmp/");
    if (file != std::string::npos) text.replace(file, text.find('"', file) - file, "DEFAULTS");
    return text;
  }

  mysqlBackupArgs_t args_;
};

TEST_F(BackupDriver, CommandLineIsThatOfTheLevelAndTheInstanceAndTwoCleanUpsAreKept) {
  const std::string ids = std::to_string(instance_) + "_" + std::to_string(jobId_);
  const std::string thread = "ThreadCommandLine=-j " + std::to_string(jobId_) + " -a " + std::to_string(instance_) +
                             ":" + std::to_string(args_.applicationSubclient) + " -at 104 -t ";
  const struct {
    std::uint32_t level;
    const char* noLocking;
    const char* token;
    std::string options;
  } cases[] = {
      {1, "0", "", ""},
      {7, "0", "/t/file", ""},
      {2, "0", "", "--incremental --incremental-base=history:last_backup"},
      {1, "1", "", " --no-locking --skip-binlog "},
      {2, "1", "", "--incremental --incremental-base=history:last_backup --no-locking --skip-binlog "},
  };
  for (const auto& row : cases) {
    backend_.log().clear();
    setProperty(property::mebNoLocking, row.noLocking);
    args_.backupLevel = row.level;
    const std::string second = std::to_string(backend_.services()->clock->now() / 1000000);
    Backup driver;
    driver.setTokenFile(row.token);
    ASSERT_EQ(driver.initialize(args_), 0);
    ASSERT_EQ(driver.doMEBBackup(), 0);
    EXPECT_EQ(driver.imageName(), "sbt:" + ids + "_" + second);
    EXPECT_EQ(command(),
              "T/bin/mysqlbackup --defaults-file=\"DEFAULTS\" -u agent --socket=\"/run/s\" "
              "--sbt-lib-path=\"HOME/libobk.so\" --backup-dir=\"HOME/results/DZ_JobResults/2/0/BKP/" +
                  second + "/0/" + second + "\" --backup-image=\"sbt:" + ids + "_" + second + "\" " + row.options +
                  " --sbt-environment=\"DzSrcClientName=testclient,DzKycmdTokenFile=" + row.token +
                  ",DzMySQLSBTInstance=db1," + thread + std::to_string(row.level) +
                  "\" --verbose --debug=all backup-to-image");
    EXPECT_EQ(driver.cleanUps, 2) << "kept: before its line and after it";
    EXPECT_TRUE(std::filesystem::is_empty(backend_.directory() + "/results/DZ_JobResults/2/0/BKP"));
    EXPECT_THAT(said("MySqlSBTBackupUtils::doMEBBackup"),
                ElementsAre("1: Successfully backed up image [" + driver.imageName() + "]"));
  }
  const std::string runs = readFile(folder_ / "runs");
  EXPECT_THAT(runs, HasSubstr("|-u|agent|--socket=/run/s|")) << "words as the program gets them";
  EXPECT_THAT(runs, HasSubstr("DzMySQLSBTInstance=db1," + thread + "2|--verbose|"));
}

TEST_F(BackupDriver, SuccessOfTheJobControlIsToldAsAnErrorKept) {
  Backup driver;
  driver.params_.instanceId = 44;
  ASSERT_EQ(driver.initialize(args_), 0);
  EXPECT_THAT(said("MySqlSBTBackupUtils::initialize"), ElementsAre("error: Intialized MySQL SBT Backup Job Control"));
  EXPECT_EQ(driver.params_.instanceId, instance_) << "kept: 44 is for the working directory alone";
}

TEST_F(BackupDriver, EachStepOfTheInitialisationFailsInItsOwnWords) {
  const struct {
    std::function<void()> arrange;
    std::string text, causes;
  } cases[] = {
      {[&] { args_.jobId = 99; }, "Failed to intialize Job Control SBT Agent", ""},
      {[&] { args_.applicationInstance = 0; }, "Failed to intialize GetMySqlInfoEx object", "5700004a 0 300 "},
      {[&] { std::filesystem::remove(backend_.directory() + "/libobk.so"); },
       "Failed to initialize the MEB Parameters.", "12000022 0 300 " + backend_.directory() + "/libobk.so||"},
      {[&] { setProperty(property::mebBinPath, ""); }, "Failed to fetch required properties.", "5700004a 0 300 "},
  };
  for (const auto& row : cases) {
    SbtTest::SetUp();
    args_.jobId = jobId_;
    args_.applicationInstance = static_cast<std::uint32_t>(instance_);
    row.arrange();
    Backup driver;
    EXPECT_EQ(driver.initialize(args_), -1) << row.text;
    EXPECT_EQ(said("MySqlSBTBackupUtils::initialize").back(), "error: " + row.text);
    EXPECT_EQ(joined(causes()), row.causes) << row.text;
    EXPECT_EQ(driver.doMEBBackup(), -1);
    EXPECT_EQ(said("MySqlSBTBackupUtils::doMEBBackup").back(), "error: Initialization not done.");
    EXPECT_EQ(driver.sendIndexingMetaData(), -1);
  }
}

TEST_F(BackupDriver, PropertiesAreReadInTheirOrderAndEachFailureHasItsText) {
  const auto unreadable = [&](const char* key) {
    return [this, key] { backend_.failures().failWhen("Inventory::readProperty", key, Status::failure("no")); };
  };
  const auto empty = [&](const char* key) { return [this, key] { setProperty(key, ""); }; };
  const struct {
    std::function<void()> arrange;
    std::string text;
  } cases[] = {
      {unreadable(property::mebBinPath), "Failed to get MEB path from MySQL instance"},
      {unreadable(property::saUser), "Failed to get SA User from MySQL instance"},
      {unreadable(property::socketFile), "Failed to get Socket from MySQL instance"},
      {[&] { backend_.failures().failNth("Inventory::findInstance", 1, Status::failure("no")); },
       "Failed to get MySql Client Name"},
      {[&] { backend_.failures().failNth("Inventory::findInstance", 2, Status::failure("no")); },
       "Failed to get MySql Instance Name"},
      {empty(property::socketFile), "Failed to get Socket from MySQL instance"},
      {empty(property::saUser), "Failed to get SA User from MySQL instance"},
      {empty(property::mebBinPath), "Failed to get MEB path from MySQL instance"},
  };
  Backup driver;
  ASSERT_EQ(driver.initialize(args_), 0);
  for (const auto& row : cases) {
    row.arrange();
    EXPECT_EQ(driver.fetchProperties(), -1) << row.text;
    EXPECT_EQ(said("MySqlSBTBackupUtils::fetchProperties").back(), "error: " + row.text);
    backend_.failures().clear();
  }
}

TEST_F(BackupDriver, NothingRunsWhenLockingIsUnknownOrAValueCannotBeHandedOver) {
  Backup driver;
  ASSERT_EQ(driver.initialize(args_), 0);
  backend_.failures().failWhen("Inventory::readProperty", property::mebNoLocking, Status::failure("no"));
  EXPECT_EQ(driver.doMEBBackup(), -1);
  EXPECT_EQ(said("MySqlSBTBackupUtils::doMEBBackup").back(), "0: getMySqlNoLockingEnabled failed.");
  backend_.failures().clear();
  driver.params_.clientNameText = "a,b";
  EXPECT_EQ(driver.doMEBBackup(), -1);
  EXPECT_THAT(causes(), ElementsAre("570000f6 0 300 the client [a,b]|"));
  EXPECT_EQ(ranCommand(), "nothing");
}

TEST_F(BackupDriver, FailedProgramLeavesTheWorkingDirectoryAndItsReasonAtTheJob) {
  Backup driver;
  ASSERT_EQ(driver.initialize(args_), 0);
  writeFile(folder_ / "failing", driver.imageName().substr(4));
  EXPECT_EQ(driver.doMEBBackup(), -1);
  EXPECT_EQ(driver.cleanUps, 0);
  EXPECT_THAT(said("MySqlSBTBackupUtils::doMEBBackup").back(),
              testing::AllOf(HasSubstr("error: Failed to run command ["), HasSubstr("], process retcode [0]")));
  EXPECT_THAT(causes(), ElementsAre("5700006b 0 300 ERROR: the image is broken|"));
  EXPECT_TRUE(std::filesystem::exists(backend_.directory() + "/results/DZ_JobResults/2/0/BKP"));
}

TEST_F(BackupDriver, DatabasesGoToTheIndexUnderTheImageThatTheCallerNames) {
  library_.give("SHOW DATABASES", 1, {"shop", "performance_schema", "crm"}, 1);
  library_.give("SHOW DATABASES", 1, {});
  const auto kept = std::make_shared<KeyOfIndex>(backend_.services()->index);
  const auto changed = std::make_shared<platform::Services>(*platform::installedServices());
  changed->index = kept;
  const platform::ScopedServices installed(changed);
  const struct {
    std::uint32_t level;
    const char *first, *later, *image;
  } cases[] = {
      {1, "", "", "image"}, {2, "first", "", "first"}, {7, "first", "later", "first"}, {2, "", "later", "later"}};
  for (const auto& row : cases) {
    args_.indexImageFirst = row.first;
    args_.backupLevel = row.level;
    Backup driver;
    ASSERT_EQ(driver.initialize(args_), 0);
    if (*row.later != '\0') driver.setIndexImage(row.later);
    EXPECT_EQ(driver.sendIndexingMetaData(), 0);
    EXPECT_EQ(kept->key_.image, row.image);
    EXPECT_EQ(kept->key_.level, static_cast<int>(row.level));
    EXPECT_EQ(kept->key_.jobId, jobId_);
    EXPECT_EQ(kept->key_.instanceId, instance_);
    EXPECT_EQ(kept->key_.subclientId, backend_.defaultSubclient(instance_));
    std::vector<platform::BrowsePath> paths;
    ASSERT_TRUE(backend_.services()->index->listPaths(instance_, jobId_, paths).ok());
    ASSERT_EQ(paths.size(), 2U) << "a server without databases adds none and fails nothing";
    EXPECT_EQ(paths[0].path + " " + paths[0].name + " " + std::to_string(paths[0].kind), "/shop shop 2");
    EXPECT_EQ(paths[1].path, "/crm");
    EXPECT_EQ(said("MySqlSBTBackupUtils::sendIndexingMetaData").back(),
              "0: addBrowseAblePath completed. Metadata has been sent to index successfully.");
  }
  EXPECT_THAT(said("MySqlSBTBackupUtils::sendIndexingMetaData"), Contains("5: adding database: [/shop]"));
}

TEST_F(BackupDriver, IndexIsNotTouchedByAFailureBeforeIt) {
  Backup driver;
  ASSERT_EQ(driver.initialize(args_), 0);
  library_.refuse("SHOW DATABASES", 1227, "denied", 1);
  EXPECT_EQ(driver.sendIndexingMetaData(), -1);
  EXPECT_THAT(causes(), ElementsAre("57000034 0 300 "));
  library_.give("SHOW DATABASES", 1, {"shop"});
  backend_.failures().failNth("Index::addPaths", 1, Status::failure("no"));
  EXPECT_EQ(driver.sendIndexingMetaData(), -1);
  EXPECT_EQ(said("MySqlSBTBackupUtils::sendIndexingMetaData").back(),
            "error: IdxUtil::addBrowseAblePath() failed with rc=1");
  ASSERT_TRUE(backend_.services()->jobs->requestQuit(jobId_).ok());
  EXPECT_EQ(driver.sendIndexingMetaData(), -1);
  EXPECT_EQ(said("MySqlSBTBackupUtils::sendIndexingMetaData").back(), "0: Quit Flag set. Exiting...");
}

}  // namespace
}  // namespace orrery::test
