// With TLS files the connection is encrypted or it fails. The server itself is asked for the cipher.

#include <dlfcn.h>

#include <filesystem>
#include <memory>
#include <string>

#include "integration/real_session.h"
#include "support/program.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::MariaDbSandbox;

class Encryption : public orrery::test::ServerSuite<Encryption> {
 public:
  static MariaDbSandbox::Options options() { return {.tcp = true, .tls = true}; }

 protected:
  static void SetUpTestSuite() {
    ServerSuite::SetUpTestSuite();
    server_->execute(
        "CREATE USER tls_only@localhost IDENTIFIED BY 'p' REQUIRE SSL; "
        "CREATE USER with_certificate@localhost IDENTIFIED BY 'p' REQUIRE X509");
  }

  struct Files {
    const char* key;
    const char* cert;
    const char* ca;
  };
  std::unique_ptr<MySqlInterface> connection(const std::string& user, const Files& files, bool overTcp = false) {
    const std::string password = user == "agent" ? server_->agentPassword() : "p";
    auto made = overTcp
                    ? std::make_unique<MySqlInterface>(user, password, "127.0.0.1:" + std::to_string(server_->port()))
                    : std::make_unique<MySqlInterface>(user, password, server_->socket(), 0U);
    const auto path = [](const char* name) {
      return *name == '\0' ? std::string() : server_->tlsDirectory() + "/" + name;
    };
    EXPECT_EQ(made->setSslParameters(path(files.key), path(files.cert), path(files.ca), "", ""), 1);
    EXPECT_EQ(made->LoadAndInitialize(clientLibrary), 0);
    return made;
  }
  static std::string cipherOf(MySqlInterface& connection) {
    QueryResult* result = new QueryResult;
    std::list<std::string> row;
    EXPECT_EQ(connection.RunQuery("SHOW SESSION STATUS LIKE 'Ssl_cipher'", result), 0) << connection.getLastErrorStr();
    EXPECT_EQ(connection.FetchNextRow(result, row), 0);
    connection.FreeResultSet(result);
    return row.empty() ? "" : row.back();
  }
  /// Starts the server again with or without its certificate.
  static void restart(bool withTls) {
    const std::string file = server_->directory() + "/server.cnf";
    const std::string from = withTls ? "\n#ssl_" : "\nssl_";
    const std::string to = withTls ? "\nssl_" : "\n#ssl_";
    std::string content = orrery::test::readFile(file);
    for (std::size_t at = content.find(from); at != std::string::npos; at = content.find(from, at + to.size())) {
      content.replace(at, from.size(), to);
    }
    server_->stop();
    orrery::test::writeFile(file, content, 0644);
    server_->start();
  }

  /// Whether the machine's library asks a server for more than encryption when it is given no authority, and does not
  /// keep to encryption by itself: both changed with Connector/C 3.4.
  static bool isBefore34() {
    void* const library = dlopen(clientLibrary, RTLD_LAZY);
    const auto version = reinterpret_cast<unsigned long (*)()>(dlsym(library, "mysql_get_client_version"));
    return version() < 30400;
  }

  static constexpr Files authority{"", "", "ca.pem"};
};

TEST_F(Encryption, IsThereWhereItIsAskedFor) {
  for (const bool overTcp : {false, true}) {
    EXPECT_NE(cipherOf(*connection("agent", authority, overTcp)), "");
    EXPECT_NE(cipherOf(*connection("agent", {"client-key.pem", "client-cert.pem", "ca.pem"}, overTcp)), "");
  }
}

// Kept: without an authority's file the key's folder is the folder of authorities. Libraries find one there by a link
// named for its hash, as `openssl rehash` makes it. Older ones refuse a server that none of them vouches for.
TEST_F(Encryption, WithoutAnAuthorityTheKeysFolderIsLookedInto) {
  const orrery::test::TemporaryDirectory folder;
  for (const char* name : {"ca.pem", "client-key.pem", "client-cert.pem"}) {
    orrery::test::writeFile(folder / name, orrery::test::readFile(server_->tlsDirectory() + "/" + name), 0644);
  }
  MySqlInterface byFolder("with_certificate", "p", server_->socket(), 0);
  byFolder.setSslParameters(folder / "client-key.pem", folder / "client-cert.pem", "", "", "");
  ASSERT_EQ(byFolder.LoadAndInitialize(clientLibrary), 0);
  EXPECT_EQ(byFolder.PingServer(), isBefore34() ? -1 : 0);
  EXPECT_EQ(byFolder.getLastError(), isBefore34() ? 2026 : 0);
  const std::string hash =
      orrery::test::runProgram({"/usr/bin/openssl", "x509", "-hash", "-noout", "-in", folder / "ca.pem"}, {}).output;
  std::filesystem::create_symlink("ca.pem", folder / (hash.substr(0, hash.find('\n')) + ".0"));
  EXPECT_EQ(byFolder.PingServer(), 0) << byFolder.getLastErrorStr();
  EXPECT_NE(cipherOf(byFolder), "");
}

TEST_F(Encryption, AnotherAuthorityIsRefused) {
  for (const bool overTcp : {false, true}) {
    const auto wrong = connection("agent", {"", "", "other-ca.pem"}, overTcp);
    EXPECT_EQ(wrong->PingServer(), -1);
    EXPECT_EQ(wrong->getLastError(), 2026);
    EXPECT_THAT(wrong->getLastErrorStr(), testing::AllOf(testing::HasSubstr(" Failed to execute mysql_real_connect "),
                                                         testing::HasSubstr(", SSL parameteres may be incorrect "),
                                                         testing::EndsWith("/other-ca.pem")));
  }
}

TEST_F(Encryption, AccountsThatRequireIt) {
  EXPECT_EQ(connection("tls_only", authority)->PingServer(), 0);
  EXPECT_EQ(connection("with_certificate", {"client-key.pem", "client-cert.pem", "ca.pem"})->PingServer(), 0);
  const auto without = connection("with_certificate", authority);
  EXPECT_EQ(without->PingServer(), -1);
  EXPECT_EQ(without->getLastError(), 1045);
  MySqlInterface plain("tls_only", "p", server_->socket(), 0);
  ASSERT_EQ(plain.LoadAndInitialize(clientLibrary), 0);
  EXPECT_EQ(plain.PingServer(), -1);
  EXPECT_EQ(plain.getLastError(), 1045);
}

TEST_F(Encryption, OutlivesALostConnection) {
  const auto kept = connection("agent", authority);
  ASSERT_EQ(kept->UseDatabase("mysql"), 0);
  killLastConnection(*server_);
  // A library that could go on in plain text by itself may not: the statement that finds the connection lost fails.
  EXPECT_EQ(kept->RunQuery("DO 1", nullptr), isBefore34() ? -1 : 0);
  EXPECT_THAT(kept->getLastError(), testing::AnyOf(isBefore34() ? 2006 : 0, 2013));
  EXPECT_NE(cipherOf(*kept), "");
  EXPECT_EQ(kept->RunQuery("SELECT 1 FROM user LIMIT 1", nullptr), 0) << "in the same database";
}

TEST_F(Encryption, NoServerWithoutTlsIsSpokenToNotEvenInTheMiddleOfASession) {
  const auto before = connection("agent", authority);
  ASSERT_EQ(before->PingServer(), 0);
  restart(false);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(before->RunQuery("DO 1", nullptr), -1) << i;
    EXPECT_THAT(before->getLastError(), testing::AnyOf(2002, 2006, 2013, 2026)) << before->getLastErrorStr();
  }
  EXPECT_EQ(before->getLastError(), 2026);
  for (const bool overTcp : {false, true}) {
    const auto fresh = connection("agent", authority, overTcp);
    EXPECT_EQ(fresh->PingServer(), -1);
    EXPECT_EQ(fresh->getLastError(), 2026);
  }
  EXPECT_EQ(server_->execute("SELECT COUNT(*) FROM information_schema.processlist WHERE user='agent'"), "1\n")
      << "the one that asks";
  restart(true);
  EXPECT_EQ(before->PingServer(), 0) << before->getLastErrorStr();
}

// Clients that are started with the session's defaults file later use the same files: their own reader is asked.
TEST_F(Encryption, TheDefaultsFileCarriesTheFilesForClients) {
  auto properties = propertiesOf(*server_);
  properties[property::sslCa] = server_->tlsDirectory() + "/ca.pem";
  properties[property::sslKey] = server_->tlsDirectory() + "/client-key.pem";
  properties[property::sslCert] = server_->tlsDirectory() + "/client-cert.pem";
  const auto session = librarySessionFor(properties);
  EXPECT_EQ(session->PingServer(), 0) << session->strErrorString;
  const auto read = orrery::test::runProgram(
      {"/usr/bin/my_print_defaults", "--defaults-file=" + session->strConfigPwdFile, "client"}, {});
  for (const auto& [option, key] : {std::pair{"--ssl-ca=", property::sslCa},
                                    {"--ssl-key=", property::sslKey},
                                    {"--ssl-cert=", property::sslCert}}) {
    EXPECT_THAT(read.output, testing::HasSubstr(option + properties[key] + "\n"));
  }
  std::string cipher;
  ASSERT_EQ(session->executeMySqlCommand("SHOW STATUS LIKE 'Ssl_cipher'", cipher, false), 0) << session->strErrorString;
  EXPECT_GT(cipher.size(), std::string("Ssl_cipher\t\n").size());
}

}  // namespace
