// A restore on a real server, with a script in place of `mysqlbackup` that copies a data directory of before.

#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/DZRestoreTask.h"

#include "integration/real_session.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::platform::JobRecord;
using orrery::platform::JobState;
using orrery::test::MariaDbSandbox;
namespace fs = std::filesystem;
namespace property = orrery::platform::property;

/// The backend's clock, which shows the time that it was told to wait, and waits for real.
class WaitingClock final : public orrery::platform::Clock {
 public:
  explicit WaitingClock(std::shared_ptr<Clock> shown) : shown_(std::move(shown)) {}
  std::int64_t now() noexcept override { return shown_->now(); }
  void sleep(std::int64_t milliseconds) noexcept override {
    shown_->sleep(milliseconds);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }

 private:
  const std::shared_ptr<Clock> shown_;
};

class RealRestore : public orrery::test::RealSessionTest {
 protected:
  /// Into the server of an instance, one full image being there.
  long long startJob(long instance) {
    const auto& services = *backend_.services();
    orrery::platform::ArchiveFile image;
    std::vector<orrery::platform::BackupSet> sets;
    EXPECT_TRUE(services.inventory->listBackupSets(static_cast<std::uint64_t>(instance), sets).ok());
    image.backupSetId = sets.at(0).id;
    image.applicationType = kMySqlApplicationType;
    image.level = 1;
    image.name = "image";
    image.created = 1;
    orrery::platform::Id imageId = 0;
    EXPECT_TRUE(services.archive->addFile(image, imageId).ok());
    orrery::platform::Client client;
    EXPECT_TRUE(services.inventory->ownClient(client).ok());
    JobRecord job;
    long long id = 0;
    EXPECT_TRUE(services.jobs->start(job, id).ok());
    const std::string clientId = std::to_string(client.id);
    const std::string instanceId = std::to_string(instance);
    const std::map<std::uint32_t, std::string> options = {
        {DZRestoreTask::optionSourceClient, clientId},     {DZRestoreTask::optionDestinationClient, clientId},
        {DZRestoreTask::optionSourceInstance, instanceId}, {DZRestoreTask::optionDestinationInstance, instanceId},
        {DZRestoreTask::optionRestoreType, "0"},           {DZRestoreTask::optionRestoreToTime, "1"}};
    for (const auto& [option, value] : options) EXPECT_TRUE(services.jobs->writeTaskOption(id, option, value).ok());
    return id;
  }
};

TEST_F(RealRestore, BringsTheDataOfBeforeBackWhetherTheServerRunsOrNot) {
  MariaDbSandbox server;
  const orrery::test::TemporaryDirectory folder;
  server.execute("CREATE DATABASE shop; CREATE TABLE shop.t (a INT) ENGINE=InnoDB; INSERT INTO shop.t VALUES (1)");
  server.stop();
  fs::copy(server.dataDirectory(), folder / "copy", fs::copy_options::recursive);
  server.start();
  orrery::test::writeFile(folder / "mysqlbackup",
                          "#!/bin/sh\nfor a in \"$@\"; do case $a in --datadir=*) d=${a#--datadir=};; esac; done\n"
                          "cp -R '" +
                              (folder / "copy") + "/.' \"$d\"\n",
                          0755);
  orrery::test::writeFile(backend_.directory() + "/libobk.so", "");
  auto properties = propertiesOf(server);
  properties[property::mebEnabled] = "1";
  properties[property::mebBinPath] = folder.path();
  GetMySqlInfo owner;
  std::string ownerText;
  ASSERT_EQ(owner.getUserGroupOfPath(server.dataDirectory(), ownerText), 0);
  properties[property::dataDirOwner] = "datadir:" + server.dataDirectory() + ";" + ownerText;
  const long instance = add(properties);
  backend_.setSetting("MySQL", "sLibPath", clientLibrary);
  backend_.setSetting("MySQL", "sServerStartCmd", server.startCommand());
  backend_.setSetting("MySQL", "nStartServerWaitTime", "5");
  auto services = std::make_shared<orrery::platform::Services>(*backend_.services());
  services->clock = std::make_shared<WaitingClock>(services->clock);
  const orrery::platform::ScopedServices waiting(services);

  server.execute("INSERT INTO shop.t VALUES (2)");
  for (const bool isRunning : {true, false}) {
    if (!isRunning) {
      const auto session = sessionFor(properties);
      ASSERT_EQ(session->StopServer(nullptr), 0);
      ASSERT_TRUE(orrery::test::waitUntil([&] { return !fs::exists(server.socket()); }));
    }
    const long long id = startJob(instance);
    const orrery::platform::ScopedJob jobOfProcess(id);
    MySqlSBTRestoreUtils driver;
    ASSERT_EQ(driver.initialize({}, id), 0);
    EXPECT_EQ(driver.sbtRestoreToTime(), 0) << testing::PrintToString(backend_.log().texts());
    driver.cleanUp();
    EXPECT_EQ(server.execute("SELECT a FROM shop.t"), "1\n");
    JobRecord job;
    ASSERT_TRUE(backend_.services()->jobs->find(id, job).ok());
    EXPECT_EQ(job.state, JobState::succeeded);
  }
  sessionFor(properties)->StopServer(nullptr);
}

}  // namespace
