#include "client/client_fixture.h"

namespace {

using orrery::test::ClientTest;
using orrery::test::Loaded;
using Requests = ClientTest;

TEST_F(Requests, SayWhenTheServerHasNoRow) {
  Loaded loaded("unknown");
  auto& library = loaded.library;
  auto& server = loaded.server;
  library.give("SHOW VARIABLES LIKE 'nil'", 2, {});
  library.give("SHOW MASTER STATUS", 4, {});
  library.give("SHOW SLAVE STATUS", 54, {});
  library.give("SHOW DATABASES LIKE 'gone'", 1, {});
  std::string text = "before";
  std::list<std::string> list{"before"};
  bool found = true;
  EXPECT_EQ(server.QueryVariable("nil", text), -1);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::QueryVariable ] mysql_fetch_row() Failed: Expected One Row...");
  EXPECT_EQ(server.FetchMasterInfo(text), -1);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::FetchMasterInfo ] mysql_fetch_row() Failed: Expected One Row...");
  EXPECT_EQ(server.GetLastLogName(text), -1);
  EXPECT_EQ(backend_.log().texts().back(), "[ MySqlInterface::GetLastLogName ] mysql_fetch_row() failed...");
  EXPECT_NE(server.getLastErrorStr(), "");
  EXPECT_EQ(server.GetReplicationStatus(list), 100) << "no replica";
  EXPECT_EQ(server.CheckDBExistence("gone", found), 0);
  EXPECT_FALSE(found);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::CheckDBExistence ] Database << gone >> Not found on the Server");
  EXPECT_EQ(text, "before");
  EXPECT_THAT(list, testing::ElementsAre("before"));
}

TEST_F(Requests, RefuseNamesThatCouldEndTheirQuoting) {
  Loaded loaded("unknown");
  auto& server = loaded.server;
  std::string text;
  bool flag = false;
  unsigned long long size = 0;
  const int results[] = {server.CreateDB("a`b"),
                         server.DropDB("a`b"),
                         server.PurgeLogsTo("a'b"),
                         server.QueryVariable("a\\", text),
                         server.CheckDBExistence(std::string("a\0b", 3), flag),
                         server.GetDBProperties(std::string("a\0b", 3), size, text),
                         server.isUsesInnoDBEngine(std::string("a\0b", 3), flag),
                         server.discardTableSpace("a", "t`"),
                         server.importTableSpace("a", "t`"),
                         server.UseDatabase(std::string("a\0b", 3)),
                         server.createTableUsingSchema(std::string("a\0b", 3), "CREATE TABLE t")};
  for (const int result : results) EXPECT_EQ(result, -1);
  EXPECT_EQ(server.getLastError(), -1);
  EXPECT_EQ(loaded.library.calls(), "") << "nothing may be sent";
}

TEST_F(Requests, FailWithTheServersErrorAndTheirOwnLine) {
  Loaded loaded("unknown");
  loaded.library->select_error = 1049;
  EXPECT_EQ(loaded.server.discardTableSpace("gone", "t"), -1);
  EXPECT_EQ(loaded.failure(), "1049 no such database");
  EXPECT_TRUE(
      logged("[ MySqlInterface::UseDatabase ] mysql_select_db failed : ErrorCode [1049], ErrorStr [no such database]. "
             "Reattempt with new connection"));
  EXPECT_EQ(backend_.log().texts().back(), "[MySqlInterface::discardTableSpace] Failed to create the database")
      << "kept: the text of another request";
  EXPECT_EQ(loaded.library.calls().find("ALTER"), std::string::npos);

  loaded.library->refused_option = 15;
  loaded.server.Disconnect();
  ASSERT_EQ(loaded.server.GetConnection(), 0);
  loaded.library->lost_at = loaded.library->requests + 1;
  loaded.library->lost_error = 2006;
  EXPECT_EQ(loaded.server.PingServer(), -1);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::PingServer ] Ping Server Failed : Check Connection to Server... ErrorCode "
            "[2006],ErrorStr [gone]");
  loaded.library->connect_error = 2002;
  EXPECT_EQ(loaded.server.UseDatabase("d"), -1);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::UseDatabase ] connection creation failed:refused Failed to execute mysql_real_connect ");
}

TEST_F(Requests, VersionComesWithoutWhatIsMeantForOldReplicas) {
  const struct {
    const char *told, *expected;
  } table[] = {{"5.5.5-10.3.39-MariaDB-log", "10.3.39-MariaDB-log"},
               {"10.11.19-MariaDB-0+deb12u1-log", "10.11.19-MariaDB-0+deb12u1-log"},
               {"5.5.5-log", "5.5.5-log"},
               {"5.5.5", "5.5.5"},
               {"5.5.5-", "5.5.5-"},
               {"8.0.36", "8.0.36"}};
  Loaded loaded("unknown");
  std::string version;
  for (const auto& row : table) {
    loaded.library->server_info = row.told;
    EXPECT_EQ(loaded.server.GetServerVersion(version), 0);
    EXPECT_EQ(version, row.expected);
  }
  EXPECT_TRUE(logged("[ MySqlInterface::GetServerVersion ] Got Server Version as : 8.0.36"));
  loaded.library->server_info = nullptr;
  EXPECT_EQ(loaded.server.GetServerVersion(version), -1);
  EXPECT_EQ(backend_.log().texts().back(),
            "[ MySqlInterface::GetServerVersion ] mysql_get_server_info failed:the server told no version");
}

TEST_F(Requests, TellWhetherTheReadLockWasThereToTheEnd) {
  constexpr const char* ask = "SELECT @orrery_read_lock";
  Loaded loaded("unknown");
  loaded.library.give(ask, 1, {"1"}, 1);
  loaded.library.give(ask, 1, {nullptr});
  ASSERT_EQ(loaded.server.QuiesceDB(), 0);
  EXPECT_EQ(loaded.server.UnQuiesceDB(), 0);
  EXPECT_FALSE(loaded.server.readLockWasLost());
  ASSERT_EQ(loaded.server.QuiesceDB(), 0);
  EXPECT_EQ(loaded.server.UnQuiesceDB(), 0) << "the result is the statement's";
  EXPECT_TRUE(loaded.server.readLockWasLost());
  EXPECT_EQ(loaded.server.UnQuiesceDB(), 0);
  EXPECT_FALSE(loaded.server.readLockWasLost()) << "the last one had no lock to lose";
  loaded.library.refuse("FLUSH TABLES WITH READ LOCK", 1205, "timeout");
  ASSERT_EQ(loaded.server.QuiesceDB(), -1);
  EXPECT_EQ(loaded.server.UnQuiesceDB(), 0);
  EXPECT_FALSE(loaded.server.readLockWasLost()) << "none was taken";
}

}  // namespace
