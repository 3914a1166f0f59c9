// Roads to a server: socket and TCP, encrypted and plain.

#include <memory>
#include <string>

#include "integration/real_session.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::MariaDbSandbox;

class Endpoints : public orrery::test::ServerSuite<Endpoints> {
 public:
  static MariaDbSandbox::Options options() { return {.tcp = true, .tls = true}; }

 protected:
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
};

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

}  // namespace
