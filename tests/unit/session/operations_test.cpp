#include <gtest/gtest.h>

#include "session/session_fixture.h"

namespace {

using Operations = orrery::test::SessionTest;

TEST_F(Operations, CommandModeAnswersSomeRequestsWithoutAskingTheServer) {
  GetMySqlInfo session;
  EXPECT_EQ(session.isPartitionedTable("d", "t"), 0);
  EXPECT_EQ(session.recoverTable("d", "t", "p", "x"), -1);
  EXPECT_FALSE(session.isMySQL8orMore());
  bool mariaDb = true;
  bool greater = true;
  EXPECT_EQ(session.isVersionGreaterThan(1, 0, mariaDb, greater), -1);
  EXPECT_TRUE(mariaDb && greater) << "unknown leaves the outputs alone";
  EXPECT_EQ(session.fillDatabaseInfo("d", nullptr), -1);
  EXPECT_EQ(session.fillTableInfoForDataBase("d", nullptr), -1);
  EXPECT_EQ(backend_.log().lines().back(),
            "<<FALLBACK>> GetMySqlInfo::fillTableInfoForDataBase: We dont support this for mysql CommandLine");
}

TEST_F(Operations, OnAccountsFailInCommandModeAndSaySo) {
  GetMySqlInfo session;
  std::vector<std::string> texts;
  std::string text = "before";
  const std::pair<const char*, int> results[] = {{"getUsers", session.getUsers(texts)},
                                                 {"getCreateUserQuery", session.getCreateUserQuery("u", text)},
                                                 {"getGrantQueries", session.getGrantQueries("u", texts)},
                                                 {"setIdentifiedWithAsHex", session.setIdentifiedWithAsHex("ON")}};
  for (const auto& [name, result] : results) {
    EXPECT_EQ(result, -1);
    EXPECT_THAT(backend_.log().lines(),
                testing::Contains(std::string("<<FALLBACK>> GetMySqlInfo::") + name +
                                  ": accounts are read over a client library only, in library mode"));
  }
  EXPECT_EQ(session.strErrorString, "accounts are read over a client library only, in library mode");
  EXPECT_EQ(text, "before");
}

TEST_F(Operations, ThatAreNotBuiltYetFailAndSaySo) {
  GetMySqlInfo session;
  EXPECT_EQ(session.isXtrabackupPossible(), -1);
  EXPECT_TRUE(logged("not offered by this version of the library"));
  EXPECT_EQ(session.strErrorString, "GetMySqlInfo::isXtrabackupPossible is not offered by this version of the library");
}

TEST_F(Operations, RefuseNamesThatCouldEndTheirQuotingBeforeAnythingIsStarted) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  std::string value;
  const int results[] = {session.CreateDB("a`; DROP DATABASE b; `"),
                         session.DropDB("a`b"),
                         session.PurgeLogsTo("a'b"),
                         session.UseDatabase("a'b"),
                         session.UseDatabase("a`b"),
                         session.UseDatabase("a\\b"),
                         session.QueryVariable("a' OR '1", value),
                         session.createDatabaseUsingSchema("CREATE DATABASE \"x\""),
                         session.discardTableSpace("d", "t`"),
                         session.importTableSpace("d'", "t")};
  for (const int result : results) EXPECT_EQ(result, -1);
  EXPECT_EQ(session.iErrorCode, -1);
  EXPECT_EQ(session.strErrorString, "the database name holds a single quote");
  EXPECT_EQ(session.executeMySqlCommand("SELECT 1\" --socket=/other -e \"x", value, false), -1);
  session.strSaUser.clear();
  EXPECT_EQ(session.PingServer(), -1) << "the next argument would become the account";
  EXPECT_FALSE(backend_.log().contains("Command to run")) << "nothing may be sent";
}

TEST_F(Operations, RefuseCommandLinesWhosePartsWouldFallApart) {
  GetMySqlInfo session;
  for (std::string GetMySqlInfo::*part :
       {&GetMySqlInfo::strBinaryPath, &GetMySqlInfo::strSaUser, &GetMySqlInfo::strSocketFile, &GetMySqlInfo::strHost}) {
    ASSERT_EQ(session.Init(id()), 0);
    session.*part = "a --execute=b";
    EXPECT_EQ(session.FlushLogs(), -1);
    EXPECT_NE(session.strErrorString.find("holds a blank or a quote"), std::string::npos);
    session.strHost.clear();
  }
  EXPECT_FALSE(backend_.log().contains("Command to run"));
}

}  // namespace
