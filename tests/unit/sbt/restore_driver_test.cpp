// A restore from its images to a server that answers, with a script in place of `mysqlbackup`.

#include "sbt/restore_fixture.h"

namespace orrery::test {
namespace {

using platform::JobState;
using platform::Status;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
namespace fs = std::filesystem;

TEST_F(RestoreDriver, TakesItsStepsInTheirOrder) {
  addImages(2);
  Restore driver;
  driver.atStop = [&] { EXPECT_TRUE(isOldThere()) << "nothing is removed before the server is stopped"; };
  ASSERT_EQ(restore(driver), 0);
  EXPECT_THAT(driver.asked, ElementsAre("ping", "stop", "start by default", "ping"));
  EXPECT_THAT(
      steps(),
      ElementsAre("0: Cleaning MySQL data directory", "0: bManualServerStart not set, server start will be attempted",
                  "0: Restore completed, starting MySQL Server.", "0: sServerStartCmd not set, using default command.",
                  "0: Sleeping for [180] seconds", "0: MySQL Server started successfully."));
  EXPECT_THAT(backend_.sleeps(), Contains(180000));
  EXPECT_EQ(applied(), "image1\nimage2\n");
  EXPECT_FALSE(isOldThere());
  EXPECT_THAT(said("MySqlSBTRestoreUtils::setPermissionsToDataDir"),
              ElementsAre("0: Executing command [chown -R " + user_ + ":" + user_ + " " + data_ + "]"));
  EXPECT_TRUE(forceFull());
  EXPECT_EQ(job().state, JobState::succeeded);
  EXPECT_THAT(causes(), IsEmpty());
}

TEST_F(RestoreDriver, ProgressIsTheShareOfImagesThatWereApplied) {
  const struct {
    int images, failing, progress;
  } cases[] = {{1, 1, 0}, {1, 0, 100}, {4, 2, 25}, {4, 3, 50}, {4, 4, 75}, {4, 0, 100}, {3, 3, 66}, {7, 0, 100}};
  options_[DZRestoreTask::optionRestoreToTime] = "10000";
  int turn = 0;
  for (const auto& row : cases) {
    SetUp();
    options_[DZRestoreTask::optionRestoreToTime] = "10000";
    const std::string name = "turn" + std::to_string(++turn) + "-";
    addImages(row.images, name, 1000 * turn);
    writeFile(folder_ / "failing", name + std::to_string(row.failing));
    Restore driver;
    EXPECT_EQ(restore(driver), row.failing == 0 ? 0 : -1);
    EXPECT_EQ(job().progress, row.progress) << row.images << " " << row.failing;
  }
}

TEST_F(RestoreDriver, EachFailureHasItsCauseAndEndsTheJob) {
  const std::string old = data_ + "/old";
  const std::string stopped = "the server is stopped; nothing was removed; start it again";
  const auto quit = [&] { EXPECT_TRUE(backend_.services()->jobs->requestQuit(jobId_).ok()); };
  const auto forgetLast = [&] {
    std::vector<platform::ArchiveFile> files;
    EXPECT_TRUE(backend_.services()->archive->findFiles(104, "image3", files).ok());
    for (const auto& file : files) EXPECT_TRUE(backend_.services()->archive->removeFile(file.id).ok());
  };
  const auto damaged = [&](const char* text) {
    backend_.failures().failAlways("ArchiveManager::restoreChain", Status::failure(text));
  };
  const std::string home = backend_.directory();
  const std::string homesParent = fs::path(home).parent_path();
  const std::string intact = "old there";  // and the server asked nothing
  using Arrange = std::function<void(Restore&)>;
  const struct {
    const char* name;
    Arrange arrange;
    std::string causes, left;
  } cases[] = {
      {"no image", [&](Restore&) { options_[DZRestoreTask::optionRestoreToTime] = "50"; },
       "5700006f 0 300 No backup images found.|", intact},
      {"an image that cannot be read", [&](Restore&) { damaged("image2 is damaged"); },
       "5700006f 0 300 image2 is damaged|", intact},
      {"asked to stop before", [&](Restore&) { quit(); }, "570000f9 0 300 before anything was changed|", intact},
      {"no program", [&](Restore&) { fs::remove(bin_ + "/mysqlbackup"); },
       "570000f7 0 300 " + bin_ + "/mysqlbackup: No such file or directory|", intact},
      {"into the agent's home", [&](Restore&) { into(home + "/media"); },
       "570000f7 0 300 " + home + "/media is, holds or lies in the agent's folder " + home + "|", intact},
      {"into a parent of it", [&](Restore&) { into(homesParent); },
       "570000f7 0 300 " + homesParent + " is, holds or lies in the agent's folder " + home + "|", intact},
      {"into the root", [&](Restore&) { into("//tmp/.."); }, "570000f7 0 300 //tmp/.. is the root of this machine|",
       intact},
      {"into a relative path", [&](Restore&) { into("data"); }, "570000f7 0 300 data is no whole path|", intact},
      {"into a file", [&](Restore&) { into(old); }, "570000f7 0 300 " + old + " is no folder|", intact},
      {"below a file", [&](Restore&) { into(old + "/below"); }, "570000f7 0 300 " + old + " is no folder|", intact},
      {"a quote in the path", [&](Restore&) { into(folder_ / "a\"b"); },
       "570000f6 0 300 the directory to restore into [" + (folder_ / "a\"b") + "]|", intact},
      {"an owner that is an option",
       [&](Restore&) { setProperty(platform::property::dataDirOwner, "datadir:" + data_ + ";usergroup:--from=0#0;"); },
       "570000f7 0 300 [--from=0:0] is no user and group|", intact},
      {"a server that refuses the agent", [&](Restore& driver) { driver.pingError = 1045; },
       "57000072 0 300 the server answered and refused the agent: 1045 no; nothing was stopped or removed|",
       "ping, old there"},
      {"a server that agrees on no encryption", [&](Restore& driver) { driver.pingError = 2026; },
       "57000072 0 300 the server answered and refused the agent: 2026 no; nothing was stopped or removed|",
       "ping, old there"},
      {"an image that goes while the server stops",
       [&](Restore& driver) { driver.atStop = [&] { damaged("image2 is not there"); }; },
       "5700006f 0 300 image2 is not there; " + stopped + "|", "ping, stop, old there"},
      {"an image that is forgotten while the server stops", [&](Restore& driver) { driver.atStop = forgetLast; },
       "5700006f 0 300 the images are other ones than those that were read; " + stopped + "|", "ping, stop, old there"},
      {"a server that does not stop", [&](Restore& driver) { driver.stopResult = -1; },
       "57000072 0 300 it still answers; nothing was removed|", "ping, stop, old there"},
      {"asked to stop while the server stops", [&](Restore& driver) { driver.atStop = quit; },
       "570000f9 0 300 after the server was stopped and before anything was removed, so start the server again|",
       "ping, stop, old there"},
      {"a directory that cannot be emptied",
       [&](Restore& driver) {
         driver.atStop = [&] {
           fs::remove_all(data_);
           writeFile(data_, "no folder any more");
         };
       },
       "570000f8 0 300 " + data_ + ": Not a directory; " + stopped + "|", "ping, stop"},
      {"a directory that cannot be made",
       [&](Restore& driver) {
         driver.atStop = [&] {
           fs::remove_all(data_);
           fs::create_symlink(folder_ / "nowhere", data_);
         };
       },
       "570000f8 0 300 " + data_ + ": Not a directory; " + stopped + "|", "ping, stop"},
      {"files in the directory of a custom restore", [&](Restore&) { into(data_); }, "57000070 0 300 ", intact},
      {"an image that fails", [&](Restore&) { writeFile(folder_ / "failing", "image2"); },
       "5700006b 0 300 ERROR: the image is broken|, 5700006c 0 300 , 570000fa 0 300 ", "ping, stop, image1"},
      {"asked to stop while an image is applied",
       [&](Restore&) {
         writeFile(folder_ / "lasting", "image2");
         atSleep_ = [&] {
           if (fs::exists(folder_ / "begun")) quit();
         };
       },
       "570000f9 0 300 after the image image2; the data directory is not complete and the server is down|",
       "ping, stop, image1"},
      {"a server that does not answer", [&](Restore& driver) { driver.pingResult = -1; },
       "57000071 0 300 no connection|", "ping, stop, start by default, ping, image1, image2, image3"},
      {"a server with the accounts of before",
       [&](Restore& driver) { driver.pingResult = -1, driver.lastPingError = 1045; },
       "57000071 0 300 it runs and refused the agent, whose account is that of the restored data: 1045 no|",
       "ping, stop, start by default, ping, image1, image2, image3"},
      {"a server that does not start", [&](Restore& driver) { driver.startResult = driver.pingResult = -1; },
       "57000071 0 300 no connection|", "ping, stop, start by default, ping, image1, image2, image3"},
  };
  for (const auto& row : cases) {
    addImages(3);
    DriverTest::TearDown();
    fs::remove_all(data_);
    for (const char* const name : {"failing", "lasting", "begun"}) fs::remove(folder_ / name);
    DriverTest::writeProgram();
    writeJob();
    fs::create_directories(data_);
    writeFile(old, "");
    setProperty(platform::property::dataDirOwner, dataDirProperty());
    backend_.failures().clear();
    atSleep_ = [] {};
    Restore driver;
    row.arrange(driver);
    EXPECT_EQ(restore(driver), -1) << row.name;
    EXPECT_EQ(joined(causes()), row.causes) << row.name;
    EXPECT_EQ(joined(whatIsLeft(driver)), row.left) << row.name;
    EXPECT_EQ(job().state, JobState::failed) << row.name;
    EXPECT_EQ(driver.getJobStatus(), DZJobStatus::failed) << row.name;
    EXPECT_TRUE(isWorkingCopyGone()) << row.name;
  }
}

TEST_F(RestoreDriver, ClockThatWasSetBackAndABackupMadeMeanwhileDoNotStopIt) {
  addImage(1, "full", 414);
  addImage(2, "second", 417);
  addImage(2, "third", 416);
  Restore driver;
  driver.atStop = [&] { addImage(2, "meanwhile", 450); };
  EXPECT_EQ(restore(driver), 0) << joined(causes());
  EXPECT_EQ(applied(), "full\nsecond\nthird\n");
}

TEST_F(RestoreDriver, StagingFolderIsFilledInPlaceOfTheServersDirectory) {
  addImages(2);
  options_[DZRestoreTask::optionStagingFolder] = folder_ / "staging";
  Restore driver;
  ASSERT_EQ(restore(driver), 0) << joined(causes());
  EXPECT_THAT(driver.asked, ElementsAre("ping", "stop", "start by default", "ping"));
  EXPECT_EQ(readFile(folder_ / "staging/applied"), "image1\nimage2\n");
  EXPECT_TRUE(isOldThere());
}

TEST_F(RestoreDriver, CustomDirectoryIsMadeAndTheServerLeftAloneAndItsOwnerTaken) {
  addImages(1);
  for (const char* const property : {"full", "datadir:/d;", ""}) {
    writeJob();
    backend_.log().clear();
    const bool hasOwner = std::string(property) == "full";
    setProperty(platform::property::dataDirOwner, hasOwner ? dataDirProperty() : property);
    const std::string target = folder_ / "a b/it's " + std::to_string(jobId_);
    into(target);
    Restore driver;
    ASSERT_EQ(restore(driver), 0) << property;
    EXPECT_THAT(driver.asked, IsEmpty());
    EXPECT_EQ(readFile(target + "/applied"), "image1\n");
    EXPECT_TRUE(isOldThere());
    EXPECT_EQ(isSaid("chown"), hasOwner);
    EXPECT_EQ(isSaid("its files stay those of the agent's account"), !hasOwner);
    EXPECT_EQ(job().state, JobState::succeeded);
  }
}

TEST_F(RestoreDriver, ServerIsStartedAsTheSettingsSay) {
  addImages(1);
  const struct {
    std::map<std::string, std::string> settings;
    std::vector<std::string> asked;
    std::int64_t wait;
  } cases[] = {
      {{{"bManualServerStart", "1"}}, {"ping", "stop"}, 0},
      {{{"bManualServerStart", "0"}, {"nStartServerWaitTime", "5"}},
       {"ping", "stop", "start by default", "ping"},
       5000},
      {{{"sServerStartCmd", "/opt/start it"}}, {"ping", "stop", "start /opt/start it", "ping"}, 5000},
      {{{"sServerStartCmd", ""}, {"nStartServerWaitTime", "-3"}}, {"ping", "stop", "start by default", "ping"}, 0},
  };
  for (const auto& row : cases) {
    writeJob();
    for (const auto& [key, value] : row.settings) backend_.setSetting("MySQL", key, value);
    Restore driver;
    EXPECT_EQ(restore(driver), 0);
    EXPECT_EQ(driver.asked, row.asked);
    if (driver.asked.size() > 2) {
      EXPECT_EQ(backend_.sleeps().back(), row.wait);
    }
  }
}

TEST_F(RestoreDriver, OwnerThatCannotBeSetEndsTheJobWithErrorsKept) {
  addImages(2);
  for (const bool imageFails : {false, true}) {
    writeJob();
    setProperty(platform::property::dataDirOwner, "datadir:" + data_ + ";usergroup:no-such-user#0;");
    if (imageFails) writeFile(folder_ / "failing", "image2");
    Restore driver;
    EXPECT_EQ(restore(driver), -1);
    EXPECT_THAT(causes(), Contains("5700006a 0 300 "));
    EXPECT_TRUE(isSaid("Command [chown -R no-such-user:0 " + data_ + "] failed to set ownership to datadir, error["));
    EXPECT_THAT(driver.asked, ElementsAre("ping", "stop")) << "the server is not started";
    EXPECT_EQ(job().state, imageFails ? JobState::failed : JobState::completedWithErrors);
    EXPECT_EQ(isSaid("Failed to notify JOB:JMSUCCESS to Job Manager."), imageFails) << "kept: an ended job stays so";
    EXPECT_TRUE(forceFull()) << "kept: whatever failed";
  }
}

TEST_F(RestoreDriver, SuccessThatCannotBeToldIsAFailure) {
  addImages(1);
  backend_.failures().failNth("JobManager::complete", 1, Status::failure("no"));
  Restore driver;
  EXPECT_EQ(restore(driver), -1);
  EXPECT_EQ(steps().back(), "error: Failed to notify JOB:JMSUCCESS to Job Manager.");
}

TEST_F(RestoreDriver, OwnershipReachesTheDirectoryAndNothingElse) {
  for (const char* const name : {"plain", "a b", "it's \"x\"", "-R", "$HOME;`id`", "link"}) {
    const std::string directory = folder_ / name;
    const std::string real = std::string(name) == "link" ? folder_ / "real" : directory;
    fs::create_directories(real + "/-db");
    if (real != directory) fs::create_directory_symlink(real, directory);
    writeFile(real + "/-db/file", "");
    Restore driver;
    driver.targetDirectory_ = directory;
    // As root another account's, else one's own: what everybody may do.
    driver.ownerUser_ = driver.ownerGroup_ = getuid() == 0 ? "12345" : user_;
    if (getuid() != 0) driver.ownerGroup_ = std::to_string(getgid());
    ASSERT_EQ(driver.setPermissionsToDataDir(), 0) << name;
    struct stat info {};
    ASSERT_EQ(stat((real + "/-db/file").c_str(), &info), 0);
    EXPECT_EQ(std::to_string(info.st_uid), driver.ownerUser_) << name;
  }
  EXPECT_TRUE(isSaid("Executing command [chown -R "));
  EXPECT_TRUE(isSaid(" '" + folder_.path() + "/a b'"));
  EXPECT_TRUE(isSaid(folder_ / "link/]"));
  Restore driver;
  driver.ownerUser_ = driver.ownerGroup_ = user_;
  driver.targetDirectory_ = "--reference=x";
  EXPECT_EQ(driver.setPermissionsToDataDir(), -1);
  driver.targetDirectory_ = data_;
  driver.ownerGroup_ = "";
  EXPECT_EQ(driver.setPermissionsToDataDir(), -1);
}

TEST_F(RestoreDriver, DirectoryIsThatOfTheLastFullImageWhenNobodySaysIt) {
  const struct {
    const char* content;
    int result;
    std::string said;
  } cases[] = {
      {"[mysqld]\ndatadir=DATA\t\r\n", 0, "Found datadir=" + data_},
      {"[mysqld]\n", -1, "] failed to find datadir, error["},
      {"datadir=/a\ndatadir=/b\n", -1, "Valid datadir not found in the output [datadir=/a\ndatadir=/b\n], err[]"},
      {"datadir=\n", -1, "Valid datadir not found in the output [datadir=\n], err[]"},
  };
  for (const auto& row : cases) {
    std::string content = row.content;
    if (const auto at = content.find("DATA"); at != std::string::npos) content.replace(at, 4, data_);
    fs::create_directories(folder_ / "run of it");
    writeFile(folder_ / "run of it/server-my.cnf", content);
    Restore driver;
    driver.driverText2_ = folder_ / "run of it";
    driver.ownerUser_ = driver.ownerGroup_ = user_;
    EXPECT_EQ(driver.setPermissionsToDataDir(), row.result) << row.content;
    EXPECT_TRUE(isSaid(row.said)) << row.said;
  }
  EXPECT_TRUE(isSaid("Executing command [cat '" + folder_.path() + "/run of it'/server-my.cnf | grep \"datadir=\"]"));
}

TEST_F(RestoreDriver, ImagesAreTheLastFullOneAndWhatFollowsItUpToTheTime) {
  addImages(2, "a");  // at 100 and 200
  addImages(4, "b");  // the same and 300, 400: the later full one of second 100 begins the chain
  options_[DZRestoreTask::optionRestoreToTime] = "300";
  Restore driver;
  ASSERT_EQ(initialize(driver), 0);
  std::vector<ArchFileListByTimeElement_t> images;
  ASSERT_EQ(driver.getBackupImages(images), 0);
  std::vector<std::string> names;
  for (const auto& image : images) names.push_back(image.fileName);
  EXPECT_EQ(names.front(), "b1");
  EXPECT_EQ(names.back(), "b3");
  EXPECT_EQ(said("MySqlSBTRestoreUtils::getBackupImages").front(),
            "0: Querying Images for Instance [" + std::to_string(instance_) + "]!");
  EXPECT_EQ(said("MySqlSBTRestoreUtils::getBackupImages").back(), "0: Adding afile:b3, ctime:300, scId:9");
  driver.params_.instanceId = 99;
  EXPECT_EQ(driver.getBackupImages(images), -1);
  EXPECT_TRUE(isSaid("Failed to get backupset id for [db1]"));
}

TEST_F(RestoreDriver, NextBackupOfEverySubclientIsAFullOne) {
  std::vector<platform::BackupSet> sets;
  ASSERT_TRUE(backend_.services()->inventory->listBackupSets(instance_, sets).ok());
  platform::Id second = 0;
  ASSERT_TRUE(backend_.services()->inventory->addSubclient(sets.at(0).id, "second", second).ok());
  Restore driver;
  ASSERT_EQ(initialize(driver), 0);
  EXPECT_EQ(driver.setForceFullFlags(), 0);
  platform::SubclientRecord record;
  ASSERT_TRUE(backend_.services()->inventory->findSubclient(second, record).ok());
  EXPECT_TRUE(record.forceFull && forceFull());
  EXPECT_EQ(said("MySqlSBTRestoreUtils::setForceFullFlags").back(), "0: Setting FORCE_FULL flag for [second]");

  backend_.failures().failNth("Inventory::findSubclient", 1, Status::failure("no"));
  backend_.failures().failNth("Inventory::setForceFull", 1, Status::failure("no"));
  EXPECT_EQ(driver.setForceFullFlags(), -1);
  EXPECT_TRUE(isSaid("] cannot be retrived."));
  EXPECT_EQ(said("MySqlSBTRestoreUtils::setForceFullFlags").back(), "error: SetForceFull failed");
  driver.params_.destinationInstanceId = 99;
  EXPECT_EQ(driver.setForceFullFlags(), -1);
  EXPECT_EQ(said("MySqlSBTRestoreUtils::setForceFullFlags").back(), "error: AppTypeId lookup failed with retcode=[2]");
}

}  // namespace
}  // namespace orrery::test
