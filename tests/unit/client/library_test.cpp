#include "client/client_fixture.h"
#include "client/family.h"

namespace {

using orrery::mysql::familyOf;
using orrery::test::ClientTest;
using orrery::test::StandInLibrary;
using Library = ClientTest;

TEST_F(Library, ThatLacksAFunctionIsRefusedInTheWordsPeopleSearchFor) {
  const struct {
    const char* function;
    const char* logged = nullptr;  // null: the function's name
    const char* stored = nullptr;  // null: the rule's text
  } table[] = {{"mysql_init"},
               {"mysql_close"},
               {"mysql_error"},
               {"mysql_errno"},
               {"mysql_real_connect"},
               {"mysql_ssl_set"},
               {"mysql_get_server_info"},
               {"mysql_store_result"},
               {"mysql_fetch_row"},
               {"mysql_field_count"},
               {"mysql_list_dbs"},
               {"mysql_num_fields"},
               {"mysql_free_result"},
               {"mysql_num_rows"},
               {"mysql_options", "mysql_options_fp\n", "could not locate symbol mysql_options_fp"},
               {"mysql_real_query", nullptr, "cound not locate symbol mysql_real_query"},
               {"mysql_select_db", "mysql_select db"},
               {"mysql_affected_rows", "mysql_affected_row", "could not locate symbol mysql_affected_row"},
               {"mysql_ping", "mysql_ping_fp", "could not locate symbol mysql_ping_fp"}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.function);
    StandInLibrary library(std::string("without_") + row.function);
    MySqlInterface server("u", "p", "s", 0);
    EXPECT_EQ(server.LoadAndInitialize(library.path()), -1);
    EXPECT_EQ(server.getLastError(), -1);
    EXPECT_EQ(server.getLastErrorStr(),
              row.stored != nullptr ? row.stored : std::string("could not locate symbol ") + row.function);
    EXPECT_TRUE(logged("Using Library : " + library.path()));
    EXPECT_EQ(backend_.log().texts().back(),
              std::string("[[ MySqlInterface::LoadAndInitialize ]] could not locate symbol ") +
                  (row.logged != nullptr ? row.logged : row.function));
    EXPECT_EQ(server.GetConnection(), -1) << "it does not count as loaded";
  }
}

TEST_F(Library, ThatCannotBeOpenedLeavesTheLoadersText) {
  MySqlInterface server("u", "p", "s", 0);
  EXPECT_EQ(server.LoadAndInitialize("/nowhere/libmysqlclient.so"), -1);
  EXPECT_EQ(server.getLastError(), -1);
  EXPECT_NE(server.getLastErrorStr().find("/nowhere/libmysqlclient.so: cannot open"), std::string::npos);
  EXPECT_TRUE(logged("[ MySqlInterface::LoadAndInitialize ] dlopen(/nowhere/libmysqlclient.so) failed with error " +
                     server.getLastErrorStr()));
}

TEST_F(Library, RequestsBeforeItIsLoadedFail) {
  MySqlInterface server("u", "p", "s", 0);
  std::string text;
  EXPECT_EQ(server.GetConnection(), -1);
  EXPECT_EQ(server.PingServer(), -1);
  EXPECT_EQ(server.UseDatabase("d"), -1);
  EXPECT_EQ(server.GetServerVersion(text), -1);
  EXPECT_EQ(server.RunQuery("SELECT 1", nullptr), -1);
  EXPECT_EQ(server.getLastErrorStr(), "no client library is loaded");
  EXPECT_TRUE(logged("[ MySqlInterface::RunQuery ] Connection creation failed:no client library is loaded"));
  server.Disconnect();
}

TEST_F(Library, LoadedAnewTakesThePlaceOfTheEarlierOneAndItsConnection) {
  StandInLibrary first("unknown");
  StandInLibrary second("mysql_8");
  MySqlInterface server("u", "p", "s", 0);
  ASSERT_EQ(server.LoadAndInitialize(first.path()), 0);
  ASSERT_EQ(server.GetConnection(), 0);
  ASSERT_EQ(server.LoadAndInitialize(second.path()), 0);
  EXPECT_EQ(first->closes, 1U);
  EXPECT_EQ(server.RunQuery("SET x=1", nullptr), 0);
  EXPECT_EQ(second->requests, 1U);
  ASSERT_EQ(server.LoadAndInitialize(second.path()), 0) << "the same one";
  EXPECT_EQ(server.PingServer(), 0);
  EXPECT_EQ(server.LoadAndInitialize("/nowhere.so"), -1);
  EXPECT_EQ(second->closes, 2U);
  EXPECT_EQ(server.PingServer(), -1) << "nothing may go to the earlier server";
}

// What the eight libraries of the tests do not reach: the borders between families.
TEST(ClientFamily, ChangesAtTheseVersions) {
  const struct {
    bool isConnector;
    unsigned long version;
    const char* info;
    bool hasCa;
    int reconnect;
    int tlsOption;  // 0: none
    bool keepsTls;
  } table[] = {
      {false, 0, "", true, 15, 35, false},
      {false, 50710, "5.7.10", true, 20, 0, false},
      {false, 50711, "5.7.11", false, 20, 42, true},
      {false, 60011, "6.0.11", true, 20, 0, false},
      {false, 80000, "8.0.0", false, 15, 35, true},
      {false, 90704, "9.7.4", true, 15, 35, true},
      {false, 100148, "10.1.48-MariaDB", true, 20, 0, false},
      {true, 30399, "3.3.99", true, 20, 0, false},
      {true, 30400, "3.4.0", true, 20, 21, true},
      {true, 30400, "3.4.0", false, 20, 0, false},
      {true, 0, "", true, 20, 0, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(std::to_string(row.version) + " " + row.info);
    const auto family = familyOf({row.isConnector, row.version, row.info}, row.hasCa);
    EXPECT_EQ(family.charsetName, 7);
    EXPECT_EQ(family.reconnect, row.reconnect);
    EXPECT_EQ(family.requireTls ? family.requireTls->number : 0, row.tlsOption);
    EXPECT_EQ(family.keepsTls, row.keepsTls);
  }
}

}  // namespace
