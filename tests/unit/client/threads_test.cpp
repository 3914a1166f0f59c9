#include <thread>

#include "client/client_fixture.h"

namespace {

using orrery::test::ClientTest;
using orrery::test::StandInLibrary;
using Threads = ClientTest;

// What the library saw of a thread that came too early, without being made known to it, or into the set-up of another,
// is told by the end of `library`.

TEST_F(Threads, HaveConnectionsOfTheirOwnAtTheSameTime) {
  backend_.log().setThreshold(0);
  constexpr unsigned rounds = 20;
  StandInLibrary library("mysql_8");
  library.give("SELECT a", 1, {"1", "2"});
  const auto work = [&] {
    for (unsigned round = 0; round < rounds; ++round) {
      MySqlInterface server("u", "p", "h:3306");
      std::list<std::string> rows;
      auto* result = new QueryResult;
      EXPECT_EQ(server.LoadAndInitialize(library.path()), 0);
      EXPECT_EQ(server.RunQuery("SELECT a", result), 0);
      EXPECT_EQ(server.FetchNextRow(result, rows), 0);
      EXPECT_EQ(server.FetchNextRow(result, rows), 0);
      EXPECT_EQ(server.FreeResultSet(result), 0);
      EXPECT_EQ(rows.size(), 2U);
    }
  };
  std::thread first(work);
  std::thread second(work);
  first.join();
  second.join();
  EXPECT_EQ(library->inits, 2 * rounds);
  EXPECT_EQ(library->attached, 2U) << "once each";
  EXPECT_EQ(library->ended, 2U) << "when the thread ended, after its last connection was gone";
}

TEST_F(Threads, MayEndWhileTheirConnectionLivesOnElsewhere) {
  StandInLibrary library("mysql_5_7");
  library.give("SELECT a", 1, {"1"});
  MySqlInterface server("u", "p", "s", 0);
  ASSERT_EQ(server.LoadAndInitialize(library.path()), 0);
  auto* result = new QueryResult;
  std::thread([&] { EXPECT_EQ(server.RunQuery("SELECT a", result), 0); }).join();
  EXPECT_EQ(library->ended, 1U);
  std::list<std::string> row;
  std::thread([&] { EXPECT_EQ(server.FetchNextRow(result, row), 0); }).join();
  std::thread([&] { EXPECT_EQ(server.FreeResultSet(result), 0); }).join();
  std::thread([&] { EXPECT_EQ(server.PingServer(), 0); }).join();
  std::thread([&] { server.Disconnect(); }).join();
  EXPECT_EQ(library->attached, 5U);
  EXPECT_EQ(library->ended, 5U);
}

TEST_F(Threads, OfALibraryThatKnowsNoThreadsAreLeftAlone) {
  StandInLibrary library("bare");
  std::thread([&] {
    MySqlInterface server("u", "p", "s", 0);
    EXPECT_EQ(server.LoadAndInitialize(library.path()), 0);
    EXPECT_EQ(server.PingServer(), 0);
  }).join();
  EXPECT_EQ(library->closes, 1U);
}

}  // namespace
