#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <sqlite3.h>

#include "orrery/platform/instance_properties.h"

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;

class StoreTest : public HomeTest {
 protected:
  void SetUp() override { create(); }

  void runSql(const std::string& sql) const {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(inHome("store.db").c_str(), &database), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
    sqlite3_free(message);
    sqlite3_close(database);
  }

  Status openFails() const {
    std::shared_ptr<const Services> services;
    Status status = openHome(home(), services);
    EXPECT_EQ(services, nullptr);
    return status;
  }
};

TEST_F(StoreTest, NewerStoreIsRefusedAndLeftAlone) {
  runSql("PRAGMA user_version = 4711");
  EXPECT_TRUE(failed(openFails(), statusUnavailable, "newer version"));
  EXPECT_TRUE(failed(openFails(), statusUnavailable, "4711"));
}

TEST_F(StoreTest, StoreOfTheFirstSchemaIsBroughtForwardWithWhatItHolds) {
  Id client = 0;
  ASSERT_TRUE(succeeded(open()->inventory->putClient("kept", 0, client)));
  runSql(
      "DROP TABLE replica_holders; DROP INDEX archive_files_name; ALTER TABLE subclients DROP COLUMN force_full; "
      "ALTER TABLE archive_files DROP COLUMN base_id; PRAGMA user_version = 1");
  const auto services = open();
  ASSERT_NE(services, nullptr);
  Id holder = 0;
  EXPECT_TRUE(succeeded(services->holders->add({0, 1, {2, "start"}, {}, "command", 3}, holder)));
  Client found;
  EXPECT_TRUE(succeeded(services->inventory->findClient(client, found)));
  EXPECT_EQ(found.name, "kept");
}

TEST_F(StoreTest, DatabaseOfAnotherProgramIsRefused) {
  runSql("PRAGMA application_id = 1");
  EXPECT_TRUE(failed(openFails(), statusUnavailable, "not a store of this agent"));
}

TEST_F(StoreTest, FileThatIsNoDatabaseIsRefusedAndLeftAlone) {
  const std::string garbage(8192, 'g');
  writeFile(inHome("store.db"), garbage, 0600);
  EXPECT_TRUE(failed(openFails(), statusUnavailable, inHome("store.db")));
  EXPECT_EQ(readFile(inHome("store.db")), garbage);
  writeFile(inHome("store.db"), "", 0600);
  EXPECT_TRUE(failed(openFails(), statusUnavailable, inHome("store.db")));
}

TEST_F(StoreTest, StoreThatWasCutOffFailsClearlyAndDoesNotCrash) {
  writeFile(inHome("store.db"), readFile(inHome("store.db")).substr(0, 5000), 0600);
  std::shared_ptr<const Services> services;
  Status status = openHome(home(), services);
  Client own;
  if (status.ok()) status = services->inventory->ownClient(own);
  EXPECT_TRUE(failed(status, statusUnavailable, "store.db"));
}

TEST_F(StoreTest, StoreThatMayNotBeOpenedNamesTheOwner) {
  ASSERT_EQ(::chmod(inHome("store.db").c_str(), 0), 0);
  const int result = asOrdinaryUser([&] {
    const Status status = openFails();
    return failed(status, statusUnavailable, "run the command as its owner") &&
                   failed(status, statusUnavailable, home())
               ? 0
               : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(StoreTest, LinkInPlaceOfTheStoreIsRefused) {
  fs::rename(inHome("store.db"), folder_ / "elsewhere.db");
  fs::create_symlink(folder_ / "elsewhere.db", inHome("store.db"));
  EXPECT_TRUE(failed(openFails(), statusInvalid, "store.db"));
}

TEST_F(StoreTest, ForkedChildIsRefusedAndTheParentGoesOn) {
  const auto services = open();
  ASSERT_NE(services, nullptr);
  Id id = 0;
  ASSERT_TRUE(succeeded(services->inventory->putClient("before", 0, id)));
  const int result = inChild([&] {
    Client client;
    return failed(services->inventory->ownClient(client), statusUnavailable, "child") ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(succeeded(services->inventory->putClient("after", 0, id)));
}

TEST_F(StoreTest, HomeGoneAtRunTimeFailsClearly) {
  const auto services = open();
  ASSERT_NE(services, nullptr);
  fs::remove_all(home());
  std::optional<std::string> value;
  EXPECT_TRUE(failed(services->settings->read("MySQL", "x", value), statusFailed, "settings.ini"));
  EXPECT_TRUE(failed(services->settings->write("MySQL", "x", "1"), statusFailed));
  std::string sealed;
  EXPECT_TRUE(failed(services->vault->seal("x", sealed), statusFailed, "vault.key"));
}

TEST_F(StoreTest, CountersOfManyProcessesAddUp) {
  long long job = 0;
  ASSERT_TRUE(succeeded(open()->jobs->start({}, job)));
  constexpr int processes = 4;
  constexpr int reports = 20;
  inChildrenTogether(processes, [&](int) {
    std::shared_ptr<const Services> services;
    if (!openHome(home(), services).ok()) return 1;
    for (int report = 0; report < reports; ++report)
      if (!services->jobs->addCounters(job, {1, 1, 0}).ok()) return 2;
    return 0;
  });
  JobRecord record;
  ASSERT_TRUE(succeeded(open()->jobs->find(job, record)));
  EXPECT_EQ(record.bytes, processes * reports);
}

TEST_F(StoreTest, WriterKilledAnywhereLeavesAllOrNothing) {
  constexpr int stride = 3;
  int n = 1;
  for (;; n += stride) {
    const std::string name = "db" + std::to_string(n);
    const bool killed = killedAtSystemCall(n, [&] {
      std::shared_ptr<const Services> services;
      InstanceRecord record;
      record.clientId = 1;
      record.applicationType = property::applicationTypeMySql;
      record.name = name;
      record.properties = {{"a", "1"}, {"b", "2"}};
      Id id = 0;
      if (!openHome(home(), services).ok() || !services->inventory->addInstance(record, id).ok()) ::_exit(1);
    });
    if (!killed) break;
    SCOPED_TRACE("killed at system call " + std::to_string(n));
    const auto services = open();
    ASSERT_NE(services, nullptr);
    InstanceRecord record;
    const Status status = services->inventory->findInstance(1, property::applicationTypeMySql, name, record);
    if (status.code == statusNotFound) continue;
    ASSERT_TRUE(succeeded(status));
    EXPECT_EQ(record.properties.size(), 2U);
    std::vector<BackupSet> sets;
    ASSERT_TRUE(succeeded(services->inventory->listBackupSets(record.id, sets)));
    EXPECT_EQ(sets.size(), 1U);
  }
  EXPECT_GT(n, 40) << "opening and adding make more system calls than that, so the kills were not delivered";
}

}  // namespace
}  // namespace orrery::test
