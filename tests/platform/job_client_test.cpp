// The agent's ends of a job, clients and instances by name, and folders that vanish.

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/DZJobClient.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/FXFile.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/MySqlInstance.h"
#include "orrery/platform/testing/test_backend.h"

#include "fixtures.h"
#include "support/backend_test.h"

namespace orrery::test {
namespace {

using platform::JobRecord;
using platform::services;
using platform::Status;

class JobClients : public BackendTest {
 protected:
  void SetUp() override { ASSERT_TRUE(succeeded(services().jobs->start({}, id_))); }
  JobRecord job() const {
    JobRecord record;
    EXPECT_TRUE(succeeded(services().jobs->find(id_, record)));
    return record;
  }
  long long id_ = 0;
};

/// Both kinds of clients by the same names.
struct Reporter {
  std::function<bool(std::int64_t)> setBytes, setFiles;
  std::function<bool()> update, completePhase, completeJob;
  std::shared_ptr<DZJobClient> client;
};

Reporter backupReporter(long long id) {
  auto client = std::make_shared<DZBkpJobClient>();
  EXPECT_TRUE(client->init("", id, 0, 4, 0, nullptr));
  return {[=](std::int64_t n) { return client->setUnCompBytesToAdd(n); },
          [=](std::int64_t n) { return client->addFilesXferred(n); },
          [=] { return client->updateInfo(false, nullptr); },
          [=] { return client->complete(DZJobStatus::success, DZJobStatusFor::phase, 0, 0); },
          [=] { return client->complete(DZJobStatus::success, DZJobStatusFor::job, 0, 0); },
          client};
}

Reporter restoreReporter(long long id) {
  auto client = std::make_shared<DZRstJobClient>();
  EXPECT_TRUE(client->init("", id, 4, 0, nullptr));
  return {[=](std::int64_t n) { return client->setUncompBytes2Add(n); },
          [=](std::int64_t n) { return client->setNumSuccessful2Add(n); },
          [=] { return client->updateInfo(false, nullptr); },
          [=] { return client->complete(DZJobStatus::success, 0, 0, DZJobStatusFor::phase, 0, 0); },
          [=] { return client->complete(DZJobStatus::success, 0, 0, DZJobStatusFor::job, 0, 0); },
          client};
}

TEST_F(JobClients, CountersAreAddedOnceHoweverUpdatesEnd) {
  for (const auto make : {backupReporter, restoreReporter}) {
    ASSERT_TRUE(succeeded(services().jobs->start({}, id_)));
    const Reporter reporter = make(id_);
    reporter.setBytes(100);
    reporter.setFiles(1);
    EXPECT_EQ(job().bytes, 0) << "told by an update and not before";
    EXPECT_TRUE(reporter.update());
    EXPECT_TRUE(reporter.update()) << "nothing is left to add";
    EXPECT_EQ(job().bytes, 100);
    EXPECT_EQ(job().files, 1);

    backend_.failures().failNth("JobManager::addCounters", 1, Status::failure("busy"));
    reporter.setBytes(10);
    EXPECT_FALSE(reporter.update());
    EXPECT_EQ(job().bytes, 100);
    reporter.setBytes(30);  // the reporter repeats the whole difference
    reporter.setFiles(-1);
    EXPECT_TRUE(reporter.update());
    EXPECT_EQ(job().bytes, 130);
    EXPECT_EQ(job().files, 0);

    backend_.failures().failNth("JobManager::addCounters", 1, Status::failure("busy"));
    reporter.setBytes(5);
    EXPECT_FALSE(reporter.update());
    EXPECT_TRUE(reporter.completePhase());
    EXPECT_EQ(job().bytes, 130) << "a phase is followed by reports that may repeat it";
    EXPECT_TRUE(reporter.completeJob());
    EXPECT_EQ(job().bytes, 135);
  }
}

TEST_F(JobClients, WithoutAJobNothingIsTold) {
  DZRstJobClient client;
  EXPECT_FALSE(client.init("", id_ + 1, 4, 0, nullptr));
  EXPECT_FALSE(client.updateInfo(false, nullptr));
  EXPECT_FALSE(client.updateJobProgress(50));
  EXPECT_FALSE(client.complete(DZJobStatus::failed, 0, 0, DZJobStatusFor::job, 0, 0));
  DZJobCtrlClient control(2);
  EXPECT_FALSE(control.finishedWorkWithoutExit(1));
  EXPECT_EQ(control.Init2(id_, "", 1, 4, "", 0), 1);
  EXPECT_TRUE(control.finishedWorkWithoutExit(1));
  ASSERT_TRUE(client.init("", id_, 4, 0, nullptr));
  EXPECT_TRUE(client.updateJobProgress(50));
  EXPECT_FALSE(client.updateJobProgress(101));
  EXPECT_EQ(job().progress, 50);
}

TEST_F(JobClients, ClientsAndInstancesAreFoundByNameAndById) {
  platform::Id cloud = 0;
  ASSERT_TRUE(succeeded(services().inventory->putClient("cloud", 1, cloud)));
  const platform::Id instance = backend_.addInstance(cloud, "db", {});
  DZClient byName("cloud");
  DZClient byId(cloud);
  DZClient unknown("nobody");
  EXPECT_EQ(byName.lookup(), 0);
  EXPECT_EQ(byName.getClientId(), cloud);
  EXPECT_EQ(byId.lookup(), 0);
  EXPECT_EQ(byId.getName(), "cloud");
  EXPECT_EQ(unknown.lookup(), platform::statusNotFound);

  unsigned long found = 77;
  platform::InstanceRecord record;
  ASSERT_TRUE(succeeded(services().inventory->findInstance(instance, record)));
  EXPECT_EQ(InstanceByName::getInstanceId(cloud, record.applicationType, "db", found), 1);
  EXPECT_EQ(found, instance);
  EXPECT_EQ(InstanceByName::getInstanceId(cloud, record.applicationType, "other", found), -platform::statusNotFound);
  backend_.failures().failAlways("Inventory::findInstance", Status::failure("no"));
  EXPECT_EQ(InstanceByName::getInstanceId(cloud, record.applicationType, "db", found), -1);
  EXPECT_EQ(found, instance);

  DZPI_CommClient information;
  EXPECT_EQ(information.getArbiterClientName(), "testclient");
  information.setFocusClientName("cloud");
  EXPECT_EQ(information.getFocusClientName(true), "cloud");
  std::string path;
  EXPECT_EQ(information.getBaseHomeDirectory(path), 0);
  EXPECT_EQ(path, backend_.directory());
}

TEST(Folders, AreRemovedWithAllTheyHoldAndNothingElse) {
  namespace fs = std::filesystem;
  const TemporaryDirectory directory;
  const std::string folder = directory / "folder";
  writeFile(directory / "kept", "kept");
  fs::create_directories(folder + "/a/b");
  fs::create_directory(directory / "other");
  writeFile(directory / "other/file", "kept");
  writeFile(folder + "/a/b/file", "");
  fs::create_symlink(directory / "other", folder + "/a/link");
  fs::create_symlink(directory / "kept", folder + "/link");
  EXPECT_FALSE(FXFile::RemoveFolder(folder, 113).isError());
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_FALSE(FXFile::RemoveFolder(folder, 113).isError()) << "it is gone already";

  fs::create_symlink(directory / "other", directory / "link");
  EXPECT_FALSE(FXFile::RemoveFolder(directory / "link/", 113).isError());
  EXPECT_FALSE(fs::is_symlink(directory / "link"));
  EXPECT_EQ(readFile(directory / "other/file"), "kept");
  EXPECT_EQ(readFile(directory / "kept"), "kept");
  for (const std::string& path : {std::string(), std::string("/"), std::string("//"), std::string("relative"),
                                  std::string((directory / "other") + std::string("\0x", 2))})
    EXPECT_TRUE(FXFile::RemoveFolder(path, 113).isError()) << path;
  EXPECT_EQ(readFile(directory / "other/file"), "kept");
}

}  // namespace
}  // namespace orrery::test
