#pragma once

#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/instance_properties.h"

#include "support/backend_test.h"

namespace orrery::test {

/// A session's surroundings in memory, with one complete instance. Its accounts and programs do not exist: what needs
/// them for real lies in other tests.
class SessionTest : public BackendTest {
 protected:
  SessionTest() { instance_ = backend_.addInstance("db1", properties()); }
  ~SessionTest() override { EXPECT_THAT(backend_.leftovers(), testing::IsEmpty()) << "a session left its file behind"; }

  static std::map<std::string, std::string> properties() {
    namespace property = platform::property;
    return {{property::saUser, "agent"},
            {property::saPassword, "sealed:secret"},
            {property::version, "10.11"},
            {property::socketFile, "/run/db1.sock"},
            {property::binaryPath, "/opt/db/bin"},
            {property::dataPath, "/var/db1"},
            {property::configFile, "/etc/db1.cnf"},
            {property::archiveLogIndex, "/var/db1/binlog.index"},
            {property::autoDiscovery, "1"}};
  }
  long id() const { return static_cast<long>(instance_); }
  /// An instance reached over this socket or address.
  long add(const std::string& socket, platform::Id client = 0) {
    auto properties = this->properties();
    properties[platform::property::socketFile] = socket;
    const std::string name = "at " + socket;
    return static_cast<long>(client == 0 ? backend_.addInstance(name, properties)
                                         : backend_.addInstance(client, name, properties));
  }
  /// A cloud database's instance, with a client of its own, and its proxy's folder of clients; empty: there is none.
  long addCloud(const std::string& socket, const std::string& clients = "/proxy/bin") {
    EXPECT_TRUE(backend_.services()->inventory->putClient("cloud " + socket, 1, cloudClient_).ok());
    backend_.setProxyDirectory(cloudClient_, platform::property::applicationTypeMySql, "", clients);
    return add(socket, cloudClient_);
  }

  platform::Id instance_ = 0;
  platform::Id cloudClient_ = 0;  // of the last one
};

}  // namespace orrery::test
