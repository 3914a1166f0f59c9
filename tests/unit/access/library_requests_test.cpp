#include "access/library_fixture.h"

namespace {

using orrery::test::LibraryModeTest;
using orrery::test::StandInLibrary;
using LibraryRequests = LibraryModeTest;
using LibraryDropDb = LibraryModeTest;
using LibraryVersion = LibraryModeTest;
using Texts = std::vector<std::string>;

constexpr const char* noConnection = "m_Conn not initialized.";
constexpr const char* noConnectionBare = "m_Conn not initialized";

/// Three sessions, each in its state: without a connection, with a server that agrees, with one that refuses.
class LibraryForwarders : public LibraryModeTest {
 protected:
  using Run = int (*)(GetMySqlInfoExt&);
  enum Error { kept, left };

  LibraryForwarders() {
    EXPECT_EQ(session_.Init(id()), 0);
    library_.variable("SHOW VARIABLES LIKE 'a'", "a", "1");
    library_.variable("SHOW VARIABLES LIKE 'max_allowed_packet'", "m", "16777216");
    library_.give("SELECT @orrery_read_lock", 1, {"1"});
  }
  void check(const char* name, Run run, const char* nullText, const char* statement, Error error,
             const Texts& onFailure, const Texts& onSuccess) {
    SCOPED_TRACE(name);
    const std::string tag = std::string("GetMySqlInfoExt::") + name;
    GetMySqlInfoExt unconnected;
    EXPECT_EQ(run(unconnected), -1);
    EXPECT_EQ(under(tag), Texts{nullText});
    EXPECT_EQ(unconnected.iErrorCode, 0) << "the session's error is untouched";

    backend_.log().clear();
    EXPECT_EQ(run(session_), 0);
    EXPECT_EQ(under(tag), onSuccess);
    EXPECT_NE(library_.calls().find(std::string("query ") + statement + "\n"), std::string::npos);

    backend_.log().clear();
    StandInLibrary other("bare");
    other.refuse(statement, 1205, "busy");
    backend_.setSetting("MySQL", "sLibPath", other.path());
    GetMySqlInfoExt refused;
    EXPECT_EQ(refused.Init(id()), 0);
    refused.SetErrorStatus(42, "earlier");
    EXPECT_EQ(run(refused), -1);
    EXPECT_EQ(under(tag), onFailure);
    EXPECT_EQ(std::to_string(refused.iErrorCode) + refused.strErrorString, error == kept ? "1205busy" : "42earlier");
    backend_.log().clear();
  }
};

TEST_F(LibraryForwarders, SendTheirStatementAndTellHowItEnded) {
  using Session = GetMySqlInfoExt;
  const std::string lock = "Running command [FLUSH TABLES WITH READ LOCK]";
  const std::string unlock = "Running command [UNLOCK TABLES]";
  check("QuiesceDB", [](Session& session) { return session.QuiesceDB(); }, noConnection, "FLUSH TABLES WITH READ LOCK",
        kept, {lock, "Failing to QuiesceDB[1205:busy]"}, {lock, lock + " successful."});
  check("UnQuiesceDB", [](Session& session) { return session.UnQuiesceDB(); }, noConnection, "UNLOCK TABLES", kept,
        {unlock, "UnQuiesceDB failed. [1205:busy]"}, {unlock, unlock + " successful."});
  const Run query = [](Session& session) {
    std::string value;
    const int result = session.QueryVariable("a", value);
    EXPECT_EQ(value, result == 0 ? "1" : "");
    return result;
  };
  check("QueryVariable", query, noConnectionBare, "SHOW VARIABLES LIKE 'a'", kept,
        {"cannot query variable [1205:busy]"}, {});
  const Run packet = [](Session& session) {
    long long size = 0;
    const int result = session.GetMaxAllowedPacket(size);
    EXPECT_EQ(size, result == 0 ? 16777216 : 0);
    return result;
  };
  check("GetMaxAllowedPacket", packet, noConnectionBare, "SHOW VARIABLES LIKE 'max_allowed_packet'", kept,
        {"Failed to fetch MaxAllowedPacket"}, {});
  check("CreateDB", [](Session& session) { return session.CreateDB("d"); }, noConnection,
        "CREATE DATABASE IF NOT EXISTS `d`", kept, {"CreateDB failed : [ d ]"}, {"CreateDB Succeeded : [ d ]"});
  check("FlushPrivileges", [](Session& session) { return session.FlushPrivileges(); }, noConnection, "FLUSH PRIVILEGES",
        left, {"Flush Privileges"}, {"Flush Privileges Succeeded"});
  check("createDatabaseUsingSchema", [](Session& session) { return session.createDatabaseUsingSchema("CREATE x"); },
        noConnection, "CREATE x", kept, {"createDatabaseUsingSchema failed : [ CREATE x ]"}, {});
  check("createTableUsingSchema", [](Session& session) { return session.createTableUsingSchema("d", "CREATE t"); },
        noConnection, "CREATE t", kept, {"createTableUsingSchema failed : [ d ]"}, {});
  check("discardTableSpace", [](Session& session) { return session.discardTableSpace("d", "t"); }, noConnection,
        "ALTER TABLE `t` DISCARD TABLESPACE", kept, {"discardTableSpace failed : [ d.t ]"}, {});
  check("importTableSpace", [](Session& session) { return session.importTableSpace("d", "t"); }, noConnection,
        "ALTER TABLE `t` IMPORT TABLESPACE", kept, {"importTableSpace failed : [ d.t ]"}, {});
  check("setForeignKeyConstraint", [](Session& session) { return session.setForeignKeyConstraint(-1); }, noConnection,
        "SET foreign_key_checks=-1", left, {}, {});
  check("ResetMaster", [](Session& session) { return session.ResetMaster(); }, noConnection, "RESET MASTER", left, {},
        {});
}

TEST_F(LibraryForwarders, PingTellsTheReason) {
  GetMySqlInfoExt unconnected;
  EXPECT_EQ(unconnected.PingServer(), -1);
  EXPECT_EQ(session_.PingServer(), 0);
  session_.Disconnect();
  library_->connect_error = 2002;
  EXPECT_EQ(session_.PingServer(), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::PingServer"),
            (Texts{noConnectionBare, "PingServer failed. [2002:refused Failed to execute mysql_real_connect ]"}));
  EXPECT_EQ(failure(), "2002 refused Failed to execute mysql_real_connect ");
}

TEST_F(LibraryRequests, RunExeQueryTellsTheStatementAndKeepsTheError) {
  ASSERT_EQ(session_.Init(id()), 0);
  EXPECT_EQ(session_.runExeQuery("SET a=1"), 0);
  library_.refuse("SET b=1", 1193, "unknown variable");
  EXPECT_EQ(session_.runExeQuery("SET b=1"), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::runExeQuery"), (Texts{"Executing query [SET a=1]", "Executing query [SET b=1]",
                                                          "[SET b=1] query execution failed:unknown variable"}));
  EXPECT_EQ(failure(), "1193 unknown variable");
  backend_.log().clear();
  backend_.log().setThreshold(4);
  EXPECT_EQ(session_.runExeQuery("SET a=1"), 0);
  EXPECT_EQ(under("GetMySqlInfoExt::runExeQuery"), Texts{}) << "level 5";
}

TEST_F(LibraryRequests, ALostReadLockIsAnEventAndTheResultStaysTheStatements) {
  ASSERT_EQ(session_.Init(id()), 0);
  library_.give("SELECT @orrery_read_lock", 1, {nullptr});
  ASSERT_EQ(session_.QuiesceDB(), 0);
  EXPECT_EQ(session_.UnQuiesceDB(), 0);
  ASSERT_EQ(backend_.events().size(), 1U);
  EXPECT_EQ(backend_.events()[0].severity, orrery::platform::Severity::major);
  EXPECT_EQ(backend_.events()[0].arguments, Texts{"/run/db1.sock"});
  EXPECT_EQ(under("GetMySqlInfoExt::UnQuiesceDB").back(), "Running command [UNLOCK TABLES] successful.");
  EXPECT_EQ(session_.UnQuiesceDB(), 0);
  EXPECT_EQ(backend_.events().size(), 1U) << "told once";
}

TEST_F(LibraryDropDb, AttemptsAndPausesFollowTheSetting) {
  const struct {
    const char* setting;  // null: absent
    std::size_t attempts;
  } table[] = {{nullptr, 1}, {"0", 1}, {"1", 1}, {"3", 3}, {"-2", 1}};
  ASSERT_EQ(session_.Init(id()), 0);
  for (const auto& row : table) {
    SCOPED_TRACE(row.setting == nullptr ? "absent" : row.setting);
    if (row.setting != nullptr) backend_.setSetting("MySQL", "nRetryDropDB", row.setting);
    backend_.log().clear();
    library_.forgetAnswers();
    for (std::size_t i = 1; i < row.attempts; ++i) library_.refuse("DROP DATABASE `d`", 1205, "busy", 1);
    library_.refuse("DROP DATABASE `d`", 1010, "not empty");
    const std::size_t before = backend_.sleeps().size();
    EXPECT_EQ(session_.DropDB("d"), -1);
    const auto sleeps = backend_.sleeps();
    EXPECT_EQ(std::vector<std::int64_t>(sleeps.begin() + static_cast<std::ptrdiff_t>(before), sleeps.end()),
              std::vector<std::int64_t>(row.attempts - 1, 5000));
    EXPECT_EQ(failure(), "1010 not empty") << "the error of the last attempt";
    const Texts texts = under("GetMySqlInfoExt::DropDB");
    EXPECT_EQ(static_cast<std::size_t>(std::count(texts.begin(), texts.end(), "DropDB failed : [ d ]")), row.attempts);
    EXPECT_EQ(texts.back(), "DropDB of database [d] failed. Error code [1010], error message [not empty]");
  }
  EXPECT_EQ(under("GetMySqlInfoExt::DropDB").front(), "MySQL/nRetryDropDB is set to 18446744073709551614");
}

TEST_F(LibraryDropDb, SucceedsAtOnceLaterOrWhenThereIsNothingToDrop) {
  ASSERT_EQ(session_.Init(id()), 0);
  backend_.setSetting("MySQL", "nRetryDropDB", "3");
  EXPECT_EQ(session_.DropDB("d"), 0);
  EXPECT_EQ(under("GetMySqlInfoExt::DropDB"), (Texts{"MySQL/nRetryDropDB is set to 3", "DropDB Succeeded : [ d ]"}));
  library_.refuse("DROP DATABASE `d`", 1205, "busy", 1);
  EXPECT_EQ(session_.DropDB("d"), 0);
  EXPECT_EQ(backend_.sleeps().size(), 1U);
  library_.refuse("DROP DATABASE `gone`", 1008, "no such database");
  EXPECT_EQ(session_.DropDB("gone"), 0);
  EXPECT_EQ(backend_.log().texts().back(), "Database [gone] does not exist. Ignoring the failure to drop db.");
  EXPECT_EQ(backend_.sleeps().size(), 1U);
}

TEST_F(LibraryVersion, IsCutAfterItsLastDigit) {
  const struct {
    const char *told, *version;
  } table[] = {{"8.0.36-log", "8.0.36"},
               {"8.0.36", "8.0.36"},
               {"5.7.44-log", "5.7.44"},
               {"10.6.12-MariaDB", "10.6.12"},
               {"10.11.19-MariaDB-0+deb12u1-log", "10.11.19-MariaDB-0+deb12u1"},
               {"11.8.6-MariaDB-0+deb13u1 from Debian-log", "11.8.6-MariaDB-0+deb13u1"},
               {"9.7.4-2", "9.7.4-2"},
               {"MariaDB", "M"},  // kept: the first character is never looked at
               {"8", "8"},
               {"", ""}};
  GetMySqlInfoExt overTcp;
  ASSERT_EQ(session_.Init(id()), 0);
  ASSERT_EQ(overTcp.Init(add("10.0.0.1:3306")), 0);
  std::string version;
  for (const auto& row : table) {
    library_->server_info = row.told;
    EXPECT_EQ(session_.getVersionFromServer(version), 0);
    EXPECT_EQ(version, row.version);
    library_.forgetAnswers();
    library_.variable("SHOW VARIABLES LIKE 'version'", "version", row.told);
    library_->server_info = nullptr;
    EXPECT_EQ(overTcp.getVersionFromServer(version), 0) << "an address may lead to a proxy: the server itself is asked";
    EXPECT_EQ(version, row.version);
  }
  GetMySqlInfoExt cloud;
  ASSERT_EQ(cloud.Init(addCloud("10.0.0.2:3306")), 0);
  cloud.strSocketFile = "/run/db.sock";
  EXPECT_EQ(cloud.getVersionFromServer(version), 0) << "so is a cloud database's, however it is reached";
  EXPECT_EQ(session_.getVersionFromServer(version), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::GetVersionFromServer").back(), "MySqlInterface::GetServerVersion Failed");
  EXPECT_EQ(failure(), "-1 the server told no version");
  library_.forgetAnswers();
  library_.give("SHOW VARIABLES LIKE 'version'", 2, {});
  EXPECT_EQ(overTcp.getVersionFromServer(version), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::GetVersionFromServer").back(), "QueryVariable failed query 'version'");
  GetMySqlInfoExt unconnected;
  EXPECT_EQ(unconnected.getVersionFromServer(version), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::GetVersionFromServer").back(), noConnection);
}

}  // namespace
