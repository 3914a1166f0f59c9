#include "access/library_fixture.h"

namespace {

using orrery::platform::Status;
using orrery::test::LibraryModeTest;

/// Servers as their version and its comment describe them.
class Flavour : public LibraryModeTest {
 protected:
  Flavour() { EXPECT_EQ(session_.Init(id()), 0); }
  void serve(const char* version, const char* comment) {
    library_.forgetAnswers();
    library_->server_info = version;
    library_.variable("SHOW VARIABLES LIKE 'version'", "version", version);
    library_.variable("SHOW VARIABLES LIKE 'version_comment'", "version_comment", comment);
    library_.calls();
  }
  static constexpr const char* stars = "-- Please help get to 10k stars at https://github.com/MariaDB/Server";
};

TEST_F(Flavour, IsToldByTheCommentAndOnlyThenByTheVersion) {
  const struct {
    const char *version, *comment;
    bool mariaDb, asksVersion;
  } table[] = {
      {"10.11.19-MariaDB-0+deb12u1-log", "Debian 12", true, true},
      {"11.8.6-MariaDB-0+deb13u1 from Debian-log", stars, true, false},
      {"9.7.4-2", "(Debian)", false, true},
      {"8.0.36", "MySQL Community Server - GPL", false, false},
      {"10.6.12", "mariadb.org binary distribution", true, false},
      {"8.0.36-28", "Percona Server (GPL)", false, true},
      {"10.3.1", "MARIADB and MySQL", true, false},
      {"10.3.1-mariadb", "", true, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.comment);
    serve(row.version, row.comment);
    bool mariaDb = !row.mariaDb;
    EXPECT_EQ(session_.isMariaDb(mariaDb), 0);
    EXPECT_EQ(mariaDb, row.mariaDb);
    EXPECT_EQ(library_.calls().find("LIKE 'version'") != std::string::npos, row.asksVersion);
  }
}

TEST_F(Flavour, CannotBeToldWithoutTheVariables) {
  bool mariaDb = true;
  EXPECT_EQ(session_.isMariaDb(mariaDb), -1);
  EXPECT_FALSE(mariaDb);
  EXPECT_EQ(under("GetMySqlInfo::isMariaDb").back(), "cannot get 'version_comment' value from server.");
  library_.variable("SHOW VARIABLES LIKE 'version_comment'", "version_comment", "Debian 12");
  EXPECT_EQ(session_.isMariaDb(mariaDb), -1) << "better unknown than wrong";
}

TEST_F(Flavour, VersionsCompareStrictlyByTheirFirstTwoNumbers) {
  const struct {
    const char *version, *comment;
    int major, minor;
    bool greater, mariaDb, is8;
  } table[] = {
      {"8.0.36", "MySQL", 8, 0, false, false, true},
      {"8.1.0", "MySQL", 8, 0, true, false, true},
      {"5.7.44-log", "MySQL", 5, 6, true, false, false},
      {"5.7.44-log", "MySQL", 5, 7, false, false, false},
      {"7.9.1", "MySQL", 8, 0, false, false, false},
      {"10.6.12-MariaDB", "mariadb.org", 8, 0, true, true, false},
      {"11.8.6-MariaDB", stars, 11, 8, false, true, false},
      {"10.11.19-MariaDB-0+deb12u1-log", "Debian 12", 10, 9, true, true, false},
      {"9.7.4-2", "(Debian)", 8, 10, true, false, true},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.version);
    serve(row.version, row.comment);
    bool mariaDb = !row.mariaDb;
    bool greater = !row.greater;
    EXPECT_EQ(session_.isVersionGreaterThan(row.major, row.minor, mariaDb, greater), 0);
    EXPECT_EQ(mariaDb, row.mariaDb);
    EXPECT_EQ(greater, row.greater);
    EXPECT_EQ(session_.isMySQL8orMore(), row.is8);
  }
}

TEST_F(Flavour, VersionsThatCannotBeToldFailEachInItsWords) {
  constexpr const char* tag = "GetMySqlInfoExt::isVersionGreaterThen";  // kept as people search for it
  bool mariaDb = true;
  bool greater = true;
  EXPECT_EQ(session_.isVersionGreaterThan(5, 0, mariaDb, greater), -1);
  EXPECT_FALSE(mariaDb || greater);
  EXPECT_EQ(under(tag).back(), "Failed to check MySql version.");
  EXPECT_FALSE(session_.isMySQL8orMore());
  EXPECT_EQ(under("GetMySqlInfoExt::isMySQL8orMore").back(), "Failed to get source server version");

  library_->server_info = "8";
  EXPECT_EQ(session_.isVersionGreaterThan(5, 0, mariaDb, greater), -1);
  EXPECT_EQ(under(tag).back(), "Got improper MySql version [8].");
  library_->server_info = "8.1";
  EXPECT_EQ(session_.isVersionGreaterThan(5, 0, mariaDb, greater), -1);
  EXPECT_TRUE(greater) << "kept: what was found before the failure stays";
  EXPECT_EQ(under(tag).back(), "MariaDB check failed.");
  EXPECT_FALSE(session_.isMySQL8orMore());
  EXPECT_EQ(under("GetMySqlInfoExt::isMySQL8orMore").back(), "MariaDB check failed.");
}

TEST_F(Flavour, StoredFlagFollowsTheServer) {
  constexpr const char* tag = "GetMySqlInfo::updateMariaDbFlag";
  const auto stored = [&] {
    bool value = false;
    EXPECT_EQ(MySqlInstance(instance_).getIsMariaDB(value), 0);
    return value;
  };
  const auto writes = [&] { return backend_.failures().calls("Inventory::writeProperties"); };
  EXPECT_EQ(session_.updateMariaDbFlag(), -1);
  EXPECT_EQ(under(tag).back(), "MariaDB check failed.");

  serve("10.6.12-MariaDB", "mariadb.org");
  EXPECT_EQ(session_.updateMariaDbFlag(), 0);
  EXPECT_TRUE(stored());
  EXPECT_EQ(under(tag).back(), "Setting MariaDB falg.");
  const auto before = writes();
  EXPECT_EQ(session_.updateMariaDbFlag(), 0);
  EXPECT_EQ(writes(), before) << "nothing to change, nothing written";

  serve("8.0.36", "MySQL");
  backend_.failures().failNth("Inventory::writeProperties", 1, Status::failure("no"));
  EXPECT_EQ(session_.updateMariaDbFlag(), -1);
  EXPECT_EQ(under(tag).back(), "Failed to set MariaDB flag: 0");
  EXPECT_EQ(session_.updateMariaDbFlag(), 0);
  EXPECT_FALSE(stored());
  backend_.failures().failWhen("Inventory::readProperty", orrery::platform::property::isMariaDb, Status::failure("no"));
  EXPECT_EQ(session_.updateMariaDbFlag(), -1);
  EXPECT_EQ(under(tag).back(), "Failed to fetch MariaDB flag");
}

}  // namespace
