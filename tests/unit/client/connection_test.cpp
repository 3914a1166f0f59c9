#include "client/client_fixture.h"

namespace {

using orrery::test::ClientTest;
using orrery::test::Loaded;
using orrery::test::StandInLibrary;
using Connection = ClientTest;
using ConnectionTls = ClientTest;
using ConnectionLost = ClientTest;

constexpr const char* everyLibrary[] = {"unknown",      "bare",      "connector_3_3", "connector_3_4",
                                        "mariadb_10_1", "mysql_5_5", "mysql_5_7",     "mysql_8"};
constexpr const char* askServer = "SHOW SESSION STATUS LIKE 'Ssl_cipher'";
constexpr const char* tlsFailed =
    " Failed to execute mysql_real_connect , SSL parameteres may be incorrect /tls/key.pem /tls/cert.pem /tls/ca.pem";

TEST_F(Connection, OptionsAreNumberedAsTheLibraryNumbersThem) {
  const std::string charset = "option 7 utf8\n";
  const struct {
    const char* library;
    std::string before;     // asks for TLS
    std::string reconnect;  // of a connection without TLS
    bool keepsTls;
    bool onlyWithCa = false;
  } table[] = {{"unknown", "option 35 3\n", "option 15 1\n", false},
               {"bare", "option 35 3\n", "option 15 1\n", false},
               {"connector_3_3", "", "option 20 1\n", false},
               {"connector_3_4", "option 21 1\n", "option 20 1\n", true, true},
               {"mariadb_10_1", "", "option 20 1\n", false},
               {"mysql_5_5", "", "option 20 1\n", false},
               {"mysql_5_7", "option 42 3\n", "option 20 1\n", true},
               {"mysql_8", "option 35 3\n", "option 15 1\n", true}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.library);
    const std::string asked = row.library == std::string("bare") ? std::string("query ") + askServer + "\n" : "";
    for (const bool withCa : {true, false}) {
      Loaded tls(row.library);
      tls.library.give(askServer, 2, {"Ssl_cipher", "TLS_AES_256_GCM_SHA384"});
      tls.useTls(withCa);
      const bool asks = withCa || !row.onlyWithCa;
      EXPECT_EQ(tls.server.GetConnection(), 0);
      EXPECT_EQ(tls.library.calls(), std::string("ssl_set /tls/key.pem /tls/cert.pem ") +
                                         (withCa ? "/tls/ca.pem" : "-") + " /tls" + ciphers + (asks ? row.before : "") +
                                         charset + (asks && row.keepsTls ? row.reconnect : "") + connectLine + asked);
    }
    Loaded plain(row.library);
    EXPECT_EQ(plain.server.GetConnection(), 0);
    EXPECT_EQ(plain.server.GetConnection(), 0) << "used again";
    EXPECT_EQ(plain.library.calls(), charset + row.reconnect + connectLine);
  }
}

TEST_F(Connection, GoesWhereTheEndpointSays) {
  const struct {
    const char* endpoint;
    const char* host;
    unsigned port;
  } table[] = {{"db.example.org:3307", "db.example.org", 3307},
               {"host:", "host", 0},
               {"host:33x", "host", 33},
               {":3306", "", 3306},
               {"/run/db.sock", "", 0},  // kept: what is no address is the library's default socket on this machine
               {"[::1]:3306", "", 0},
               {"", "", 0}};
  for (const auto& row : table) {
    SCOPED_TRACE(row.endpoint);
    StandInLibrary library("unknown");
    MySqlInterface server("u", "p", row.endpoint);
    EXPECT_EQ(server.getHost(), row.host);
    EXPECT_EQ(server.getPort(), row.port);
    ASSERT_EQ(server.LoadAndInitialize(library.path()), 0);
    EXPECT_EQ(server.GetConnection(), 0);
    const std::string host = *row.host == '\0' ? "localhost" : row.host;
    EXPECT_NE(library.calls().find("connect " + host + " u p - " + std::to_string(row.port) + " - 0\n"),
              std::string::npos);
  }
}

TEST_F(Connection, FailuresLeaveNumberAndTextAndNoHandle) {
  const std::string tlsRefused = std::string("1045 refused") + tlsFailed;
  const struct {
    const char* name;
    bool tls;
    void (*arrange)(stand_in& script);
    std::string failure;
    const char* logged;
  } table[] = {
      {"init", false, [](stand_in& script) { script.no_init = 1; }, "-1 mysql_init failed",
       "[ MySqlInterface::GetConnection ] mysql_init failed:mysql_init failed"},
      {"charset", false, [](stand_in& script) { script.refused_option = 7; },
       "2054 no such option Failed to execute mysql_options ",
       "[MySqlInterface::GetConnection] mysql_options failed : Errno[2054] no such option Failed to execute "
       "mysql_options "},
      {"connect over TLS", true, [](stand_in& script) { script.connect_error = 1045; }, tlsRefused,
       "[ MySqlInterface::GetConnection ] mysql_real_connect failed: Errno [1045] refused Failed to execute "
       "mysql_real_connect , SSL parameteres may be incorrect /tls/key.pem /tls/cert.pem /tls/ca.pem"},
      {"connect", false, [](stand_in& script) { script.connect_error = 1045; },
       "1045 refused Failed to execute mysql_real_connect ",
       "[ MySqlInterface::GetConnection ] mysql_real_connect failed: Errno [1045] refused Failed to execute "
       "mysql_real_connect "},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    Loaded loaded("unknown");
    if (row.tls) loaded.useTls();
    row.arrange(*loaded.library.operator->());
    EXPECT_EQ(loaded.server.GetConnection(), -1);
    EXPECT_EQ(loaded.failure(), row.failure);
    EXPECT_EQ(backend_.log().texts().back(), row.logged);
    EXPECT_EQ(loaded.library->closes, loaded.library->inits) << "no handle is left";
    EXPECT_EQ(loaded.server.RunQuery("SET x=1", nullptr), -1) << "nor taken for a connection";

    *loaded.library.operator->() = stand_in{};
    loaded.library->cipher = "X";
    EXPECT_EQ(loaded.server.RunQuery("SET x=1", nullptr), 0) << "the next attempt is a new one";
  }
}

TEST_F(Connection, DisconnectClosesOnceAndTheNextRequestConnects) {
  Loaded loaded("unknown");
  loaded.server.Disconnect();
  EXPECT_FALSE(logged("[ MySqlInterface::Disconnect ] MySQL Disconnected Gracefully"));
  ASSERT_EQ(loaded.server.UseDatabase("shop"), 0);
  loaded.server.Disconnect();
  loaded.server.Disconnect();
  EXPECT_TRUE(logged("[ MySqlInterface::Disconnect ] MySQL Disconnected Gracefully"));
  EXPECT_EQ(loaded.library->closes, 1U);
  loaded.library.calls();
  EXPECT_EQ(loaded.server.PingServer(), 0);
  EXPECT_EQ(loaded.library.calls(), std::string("option 7 utf8\noption 15 1\n") + connectLine + "ping\n")
      << "a connection without a default database";
}

TEST_F(ConnectionTls, ArgumentsComeFromTheKeysFolderAndNotFromTheCaller) {
  const struct {
    const char *key, *cert, *ca, *expected;
  } table[] = {
      {"/etc/tls/k.pem", "/c.pem", "/ca.pem", "/etc/tls/k.pem /c.pem /ca.pem /etc/tls"},
      {"", "", "/ca.pem", "- - /ca.pem -"},
      {"/k.pem", "/c.pem", "", "/k.pem /c.pem - /"},
      {"k.pem", "c.pem", "", "k.pem c.pem - -"},
  };
  for (const auto& row : table) {
    Loaded loaded("mysql_8");
    loaded.library->cipher = "X";
    EXPECT_EQ(loaded.server.setSslParameters(row.key, row.cert, row.ca, "/capath", "CIPHER"), 1);
    ASSERT_EQ(loaded.server.GetConnection(), 0);
    EXPECT_EQ(loaded.library.calls().substr(0, 8 + std::string(row.expected + std::string(ciphers)).size()),
              "ssl_set " + std::string(row.expected) + ciphers);
  }
}

TEST_F(ConnectionTls, PlainTextIsRefusedOnEveryLibrary) {
  for (const char* name : everyLibrary) {
    SCOPED_TRACE(name);
    for (const char* cipher : {static_cast<const char*>(nullptr), ""}) {
      Loaded loaded(name);
      loaded.useTls();
      loaded.library->cipher = cipher;
      loaded.library.give(askServer, 2, {"Ssl_cipher", cipher});
      EXPECT_EQ(loaded.server.RunQuery("SELECT secret", nullptr), -1);
      EXPECT_EQ(loaded.failure(),
                std::string("2026 the connection is not encrypted, as TLS files of the instance ask for") + tlsFailed);
      EXPECT_EQ(loaded.library.calls().find("SELECT secret"), std::string::npos);
      EXPECT_EQ(loaded.library->closes, 1U);
    }
  }
}

TEST_F(ConnectionTls, WhereOnlyTheServerCanTellAnythingButACipherIsARefusal) {
  stand_in_answer unreadable{askServer, 0, "", 2, 0, nullptr, nullptr, 0, 1, 0};
  Loaded loaded("bare");
  loaded.useTls();
  const auto refused = [&](const char* what) {
    EXPECT_EQ(loaded.server.GetConnection(), -1) << what;
    EXPECT_EQ(loaded.server.getLastError(), 2026) << what;
    loaded.library.forgetAnswers();
  };
  refused("no result set");
  loaded.library.refuse(askServer, 1142, "denied");
  refused("error");
  loaded.library.give(askServer, 2, {});
  refused("no row");
  loaded.library.give(askServer, 1, {"Ssl_cipher"});
  refused("one column");
  loaded.library.answer(unreadable);
  refused("rows that cannot be held");
}

TEST_F(ConnectionTls, ALibraryThatRefusesTheOptionIsNotLetReconnect) {
  Loaded loaded("mysql_8");
  loaded.useTls();
  loaded.library->refused_option = 35;
  EXPECT_EQ(loaded.server.GetConnection(), 0) << "the connection itself is encrypted";
  EXPECT_EQ(loaded.library.calls().find("option 15"), std::string::npos);
}

TEST_F(ConnectionLost, IsMadeAgainByTheNextRequestAndLookedAtAgain) {
  for (const unsigned error : {2006U, 2013U, 2055U}) {
    SCOPED_TRACE(error);
    Loaded loaded("connector_3_3");
    loaded.useTls();
    ASSERT_EQ(loaded.server.UseDatabase("shop"), 0);
    loaded.library->lost_at = 2;
    loaded.library->lost_error = error;
    EXPECT_EQ(loaded.server.RunQuery("SET a=1", nullptr), -1);
    EXPECT_EQ(loaded.failure(), std::to_string(error) + " gone");
    loaded.library.calls();
    EXPECT_EQ(loaded.server.RunQuery("SET b=1", nullptr), 0);
    EXPECT_EQ(loaded.library.calls(), std::string("ssl_set /tls/key.pem /tls/cert.pem /tls/ca.pem /tls") + ciphers +
                                          "option 7 utf8\n" + connectLine + "select_db shop\nquery SET b=1\n");

    loaded.library->lost_at = loaded.library->requests + 1;
    EXPECT_EQ(loaded.server.PingServer(), -1);
    loaded.library->cipher = nullptr;
    EXPECT_EQ(loaded.server.RunQuery("SET c=1", nullptr), -1);
    EXPECT_EQ(loaded.server.getLastError(), 2026) << "the server came back without TLS";
  }
}

TEST_F(ConnectionLost, KeepsItsDefaultDatabaseUntilTheServerIsBack) {
  Loaded loaded("connector_3_3");
  loaded.useTls();
  ASSERT_EQ(loaded.server.UseDatabase("shop"), 0);
  loaded.library->lost_at = 2;
  loaded.library->lost_error = 2013;
  EXPECT_EQ(loaded.server.PingServer(), -1);
  loaded.library->connect_error = 2002;
  EXPECT_EQ(loaded.server.PingServer(), -1) << "still starting";
  loaded.library->connect_error = 0;
  loaded.library.calls();
  EXPECT_EQ(loaded.server.RunQuery("SET b=1", nullptr), 0);
  EXPECT_NE(loaded.library.calls().find("select_db shop\nquery SET b=1\n"), std::string::npos);
}

TEST_F(ConnectionLost, IsTheLibrarysBusinessWhereItKeepsTls) {
  for (const char* name : {"connector_3_4", "mysql_5_7", "mysql_8"}) {
    SCOPED_TRACE(name);
    Loaded loaded(name);
    loaded.useTls();
    loaded.library->lost_at = 2;
    loaded.library->lost_error = 2013;
    ASSERT_EQ(loaded.server.PingServer(), 0);
    loaded.library.calls();
    EXPECT_EQ(loaded.server.RunQuery("SET a=1", nullptr), 0);
    EXPECT_EQ(loaded.library.calls(), "query SET a=1\nreconnect\n");
  }
}

TEST_F(ConnectionLost, IsMadeAgainWithoutTlsTooWhereTheLibraryDoesNotKnowHow) {
  Loaded loaded("unknown");
  loaded.library->refused_option = 15;
  ASSERT_EQ(loaded.server.PingServer(), 0);
  loaded.library.refuse("BAD", 1064, "syntax");
  EXPECT_EQ(loaded.server.RunQuery("BAD", nullptr), -1);
  EXPECT_EQ(loaded.server.PingServer(), 0);
  EXPECT_EQ(loaded.library->inits, 1U) << "an error of the server is no lost connection";
  loaded.library->lost_at = 4;
  loaded.library->lost_error = 2006;
  EXPECT_EQ(loaded.server.PingServer(), -1);
  EXPECT_EQ(loaded.server.PingServer(), 0);
  EXPECT_EQ(loaded.library->inits, 2U);
}

}  // namespace
