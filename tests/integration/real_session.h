#pragma once

#include <map>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/instance_properties.h"

#include "support/backend_test.h"
#include "support/mariadb_sandbox.h"
#include "support/mode.h"

namespace orrery::test {

/// A session's surroundings with everything real but the suite's services.
class RealSessionTest : public BackendTest {
 protected:
  ~RealSessionTest() override { EXPECT_THAT(backend_.leftovers(), testing::IsEmpty()) << "a session left its file"; }

  std::map<std::string, std::string> propertiesOf(const MariaDbSandbox& server) const {
    namespace property = platform::property;
    return {{property::saUser, "agent"},
            {property::saPassword, "sealed:" + server.agentPassword()},
            {property::unixUser, server.account()},
            {property::socketFile, server.socket()},
            {property::binaryPath, "/usr/bin"}};
  }
  long add(const std::map<std::string, std::string>& properties) {
    return static_cast<long>(backend_.addInstance("db" + std::to_string(++instances_), properties));
  }
  std::unique_ptr<GetMySqlInfo> sessionFor(const std::map<std::string, std::string>& properties) {
    auto session = std::make_unique<GetMySqlInfo>();
    EXPECT_EQ(session->Init(add(properties)), 0);
    return session;
  }
  std::unique_ptr<GetMySqlInfoExt> librarySessionFor(const std::map<std::string, std::string>& properties) {
    backend_.setSetting("MySQL", "sLibPath", clientLibrary);
    auto session = std::make_unique<GetMySqlInfoExt>();
    EXPECT_EQ(session->Init(add(properties)), 0) << session->strErrorString;
    return session;
  }
  std::unique_ptr<GetMySqlInfo> sessionFor(Mode mode, const std::map<std::string, std::string>& properties) {
    if (mode == Mode::library) return librarySessionFor(properties);
    return sessionFor(properties);
  }
  /// Ends the last connection that the agent's account made, this one's own not counted.
  static void killLastConnection(const MariaDbSandbox& server) {
    server.execute(
        "SELECT CONCAT('KILL ', id) INTO @k FROM information_schema.processlist WHERE user='agent' AND "
        "id<>CONNECTION_ID() ORDER BY id DESC LIMIT 1; EXECUTE IMMEDIATE @k");
  }
  /// The machine's own, found by the loader.
  static constexpr const char* clientLibrary = "libmariadb.so.3";

 private:
  int instances_ = 0;
};

/// The same with one server for all tests of a suite, which may say in `options()` what it is like.
template <class Suite>
class ServerSuite : public RealSessionTest {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<MariaDbSandbox>(Suite::options()); }
  static void TearDownTestSuite() { server_.reset(); }

  static MariaDbSandbox::Options options() { return {}; }

  static inline std::unique_ptr<MariaDbSandbox> server_;
};

}  // namespace orrery::test
