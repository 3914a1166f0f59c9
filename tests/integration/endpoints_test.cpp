// Roads to a server: socket and TCP, encrypted and plain, and a server that is down.

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/real_session.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::MariaDbSandbox;

class Endpoints : public orrery::test::RealSessionTest {
 protected:
  static void SetUpTestSuite() {
    MariaDbSandbox::Options options;
    options.tcp = true;
    options.tls = true;
    server_ = std::make_unique<MariaDbSandbox>(options);
  }
  static void TearDownTestSuite() { server_.reset(); }

  std::map<std::string, std::string> overTcp() const {
    auto properties = propertiesOf(*server_);
    properties[property::socketFile] = "127.0.0.1:" + std::to_string(server_->port());
    return properties;
  }
  static std::string cipher(GetMySqlInfo& session) {
    std::string output;
    EXPECT_EQ(session.executeMySqlCommand("SHOW STATUS LIKE 'Ssl_cipher'", output, false), 0) << session.strErrorString;
    return output.substr(std::string("Ssl_cipher\t").size());
  }
  static std::unique_ptr<MariaDbSandbox> server_;
};
std::unique_ptr<MariaDbSandbox> Endpoints::server_;

TEST_F(Endpoints, TcpUsesHostAndPort) {
  const auto session = sessionFor(overTcp());
  EXPECT_EQ(session->strHost, "127.0.0.1");
  EXPECT_EQ(session->PingServer(), 0) << session->strErrorString;
  std::string peer;
  ASSERT_EQ(session->executeMySqlCommand(
                "SELECT SUBSTRING_INDEX(host, ':', 1) FROM information_schema.processlist WHERE id = CONNECTION_ID()",
                peer, false),
            0);
  EXPECT_THAT(peer, testing::AnyOf("localhost\n", "127.0.0.1\n"));
  EXPECT_EQ(session->DropDB("no_such_db"), -1);
  EXPECT_EQ(session->iErrorCode, 1008);
}

TEST_F(Endpoints, TlsIsTheLastArgumentOfBothFormsAndEncrypts) {
  for (auto properties : {overTcp(), propertiesOf(*server_)}) {
    properties[property::sslCa] = server_->tlsDirectory() + "/ca.pem";
    const auto session = sessionFor(properties);
    backend_.log().clear();
    EXPECT_EQ(session->PingServer(), 0) << session->strErrorString;
    EXPECT_GT(cipher(*session).size(), 1U);
    int commands = 0;
    for (const auto& text : backend_.log().texts()) {
      if (text.rfind("Command to run [", 0) != 0) continue;
      ++commands;
      EXPECT_THAT(text, testing::EndsWith(" --ssl]"));
    }
    EXPECT_EQ(commands, 2);
  }
}

TEST_F(Endpoints, WithoutTlsNothingIsAskedFor) {
  const auto session = sessionFor(overTcp());
  session->PingServer();
  EXPECT_FALSE(backend_.log().contains("--ssl"));
}

TEST_F(Endpoints, StoppedServerKeepsTheClientsTextAndComesBack) {
  const auto bySocket = sessionFor(propertiesOf(*server_));
  const auto byTcp = sessionFor(overTcp());
  server_->stop();
  EXPECT_EQ(bySocket->PingServer(), -1);
  EXPECT_THAT(bySocket->strErrorString, testing::HasSubstr(server_->socket()));
  EXPECT_EQ(bySocket->FlushLogs(), -1);
  EXPECT_EQ(bySocket->iErrorCode, 2002);
  EXPECT_EQ(byTcp->FlushLogs(), -1);
  EXPECT_THAT(byTcp->iErrorCode, testing::AnyOf(2002, 2003));
  server_->start();
  EXPECT_EQ(bySocket->PingServer(), 0);
}

}  // namespace
