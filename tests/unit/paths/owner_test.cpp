#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include "session/session_fixture.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

namespace property = platform::property;

constexpr id_t withoutEntry = 3999999111;  // a signed number below zero when it is written

class Owner : public SessionTest {
 protected:
  /// Of what this process makes.
  static std::string own() {
    return "usergroup:" + std::string(::getpwuid(::geteuid())->pw_name) + "#" + ::getgrgid(::getegid())->gr_name + ";";
  }
  void open(GetMySqlInfo& session) const { ASSERT_EQ(session.Init(id()), 0); }
  std::string stored() const {
    std::string value;
    EXPECT_EQ(MySqlInstance(instance_).getMySqlDataDir(value), 0);
    return value;
  }

  TemporaryDirectory folder_;
};

TEST_F(Owner, IsNamedAndLinksAreFollowed) {
  GetMySqlInfo session;
  std::string owner;
  ASSERT_EQ(::symlink("/proc/self", (folder_ / "link").c_str()), 0);
  EXPECT_EQ(session.getUserGroupOfPath(folder_ / "link/", owner), 0);
  EXPECT_EQ(owner, own());
  EXPECT_TRUE(logged("find out user:group details for [" + folder_ / "link" + "]"));
}

TEST_F(Owner, WithoutAPathStays) {
  GetMySqlInfo session;
  std::string owner = "before";
  EXPECT_EQ(session.getUserGroupOfPath(folder_ / "missing", owner), -1);
  EXPECT_EQ(owner, "before");
  EXPECT_TRUE(logged("failed to stat on datadir:rc=2"));
}

TEST_F(Owner, KeptAMissingUserFallsBackToNumbersAndAMissingGroupFails) {
  if (::geteuid() != 0) GTEST_SKIP() << "ONLY ROOT can give files away: run ./check as root";
  ASSERT_EQ(::getpwuid(withoutEntry), nullptr);
  ASSERT_EQ(::getgrgid(withoutEntry), nullptr);
  const auto ownerOf = [&](uid_t user, gid_t group, std::string& owner) {
    EXPECT_EQ(::chown(folder_.path().c_str(), user, group), 0);
    return GetMySqlInfo().getUserGroupOfPath(folder_.path(), owner);
  };
  std::string owner;
  EXPECT_EQ(ownerOf(withoutEntry, 0, owner), 0);
  EXPECT_EQ(owner, "usergroup:-294968185#0;") << "the group is not looked up";
  EXPECT_TRUE(logged("could not fetch group details. getpwuid  received error 0"));
  EXPECT_EQ(ownerOf(0, withoutEntry, owner), -1);
  EXPECT_EQ(owner, "usergroup:-294968185#0;");
  EXPECT_TRUE(logged("could not fetch group details. getgrgid received error 0"));
}

TEST_F(Owner, GoesToTheInventoryWithTheDataDirectory) {
  GetMySqlInfo session;
  open(session);
  ASSERT_EQ(session.setDataPathsToARDB(folder_.path() + "/"), 0);
  EXPECT_EQ(stored(), "datadir:" + folder_.path() + ";" + own());
  std::string dataDir;
  EXPECT_EQ(session.getDataDir(session.pMySqlInstance, dataDir), 0);
  EXPECT_EQ(dataDir, folder_.path());
}

TEST_F(Owner, KeptOfTheCurrentDirectoryIsReadBackAsTheDataDirectory) {
  GetMySqlInfo session;
  open(session);
  ASSERT_EQ(session.setDataPathsToARDB("./"), 0);
  EXPECT_TRUE(logged("variable [datadir] points to [./], it will be same as datapath"));
  std::string owner, dataDir;
  ASSERT_EQ(session.getUserGroupOfPath(".", owner), 0);
  EXPECT_EQ(stored(), owner);
  EXPECT_EQ(session.getDataDir(session.pMySqlInstance, dataDir), 0);
  EXPECT_EQ("usergroup:" + dataDir + ";", owner);
}

TEST_F(Owner, OfACloudDatabaseIsNobody) {
  platform::Id client = 0;
  ASSERT_TRUE(backend_.services()->inventory->putClient("cloud", property::clientTypeCloudDatabase, client).ok());
  auto values = properties();
  values[property::socketFile] = "db.example:3306";
  backend_.setProxyDirectory(client, property::applicationTypeMySql, values[property::version], "/proxy/bin");
  instance_ = backend_.addInstance(client, "cloud-db", values);
  GetMySqlInfo session;
  open(session);
  EXPECT_EQ(session.setDataPathsToARDB("/rdsdbdata/db/"), 0);
  EXPECT_EQ(stored(), "datadir:/rdsdbdata/db;");
  EXPECT_EQ(session.setDataPathsToARDB(".\\"), 0);
  EXPECT_EQ(stored(), "");
}

TEST_F(Owner, ThatCannotBeToldOrKeptFails) {
  GetMySqlInfo session;
  open(session);
  EXPECT_EQ(session.setDataPathsToARDB(folder_ / "missing"), -1);
  EXPECT_TRUE(logged("failed to get user and group of datadir"));
  backend_.failures().failAlways("Inventory::writeProperties", platform::Status::failure("full"));
  EXPECT_EQ(session.setDataPathsToARDB(folder_.path()), -1);
  EXPECT_TRUE(logged("Failed to set the datadir details to AR, MySqlInstance::setMySqlDataDir failed."));
  EXPECT_EQ(stored(), "");

  std::string dataDir = "before";
  EXPECT_EQ(session.getDataDir(nullptr, dataDir), -1);
  EXPECT_TRUE(logged("MySqlInst is null."));
  backend_.failures().failAlways("Inventory::readProperty", platform::Status::failure("gone"));
  EXPECT_EQ(session.getDataDir(session.pMySqlInstance, dataDir), -1);
  EXPECT_EQ(dataDir, "before");
}

TEST(DataDirectoryProperty, IsTakenApart) {
  const struct {
    const char* property;
    const char* dataDir;
    const char* user;
    const char* group;
  } table[] = {
      {"datadir:/var/lib/mysql;usergroup:mysql#mysql;", "/var/lib/mysql", "mysql", "mysql"},
      {"usergroup:1001#1002;", "d", "1001", "1002"},
      {"datadir:C:\\data;usergroup:a#b;", "d", "a", "b"},
      {"datadir:;usergroup:#", "", "", ""},
      {"datadir:/x;usergroup:a#b#c;", "/x", "u", "g"},
      {"usergroup:a;other:b;datadir", "d", "u", "g"},
      {"", "d", "u", "g"},
  };
  for (const auto& row : table) {
    std::string dataDir = "d", user = "u", group = "g";
    GetMySqlInfo::extractDataDir(row.property, dataDir, user, group);
    EXPECT_EQ(dataDir, row.dataDir) << row.property;
    EXPECT_EQ(user, row.user) << row.property;
    EXPECT_EQ(group, row.group) << row.property;
  }
}

}  // namespace
}  // namespace orrery::test
