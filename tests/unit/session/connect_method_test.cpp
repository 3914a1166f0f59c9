#include <gtest/gtest.h>

#include "session/session_fixture.h"

namespace {

using ConnectMethod = orrery::test::SessionTest;

TEST_F(ConnectMethod, IsTcpForHostAndPortAndTheSocketOtherwise) {
  const struct {
    const char* socket;
    const char* method;
  } table[] = {
      {"10.0.0.5:3306", " --host=10.0.0.5 --port=3306"},
      {"/run/db.sock", " --socket=/run/db.sock"},
      {"a:b:c", " --socket=a:b:c"},
      {"::1", " --socket=::1"},
      {"host:", " --host=host --port="},
      {":3306", " --socket=:3306"},
      {"", " --socket="},
  };
  GetMySqlInfo session;
  for (const auto& row : table) EXPECT_EQ(session.GetConnectMethod(row.socket), row.method) << row.socket;
}

TEST_F(ConnectMethod, LeavesHostAndPortAloneUnlessThereAreExactlyTwoPieces) {
  GetMySqlInfo session;
  std::string host = "before";
  std::string port = "1";
  for (const char* socket : {"/run/db.sock", "a:b:c", ""}) {
    session.GetHostPortFromSocket(socket, host, port);
    EXPECT_EQ(host + port, "before1") << socket;
  }
  session.GetHostPortFromSocket("h:2", host, port);
  EXPECT_EQ(host + port, "h2");
}

TEST_F(ConnectMethod, EscapesLikePatternsOnceAndNothingElse) {
  GetMySqlInfo session;
  EXPECT_EQ(session.SpecialCharactersCheck("my_db%"), "my\\_db\\%");
  EXPECT_EQ(session.SpecialCharactersCheck("a\\b`'\"\n"), "a\\b`'\"\n");
}

TEST_F(ConnectMethod, ShortNamesEndAtTheFirstDot) {
  GetMySqlInfo session;
  std::string name = "before";
  session.GetShortName("plain", name);
  EXPECT_EQ(name, "before");
  session.GetShortName("a.b.c", name);
  EXPECT_EQ(name, "a");
}

TEST_F(ConnectMethod, DirectoriesAreMadeWithTheirParentsAndAFailureIsLoggedWithItsReason) {
  GetMySqlInfo session;
  EXPECT_EQ(session.CreateDir(backend_.directory() + "/a/b/c"), 0);
  EXPECT_EQ(session.CreateDir(backend_.directory() + "/a/b/c"), 0) << "an existing one will do";
  EXPECT_EQ(session.CreateDir("/dev/null/x"), -1);
  EXPECT_TRUE(logged(" unable to create jobfolder =[/dev/null/x], errno=[/dev/null: Not a directory]"))
      << testing::PrintToString(backend_.log().texts());
}

}  // namespace
