#pragma once

#include <algorithm>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/testing/test_backend.h"

namespace orrery::test {

/// A session's surroundings in memory, with one complete instance. Its accounts and programs do not exist: what needs
/// them for real lies in other tests.
class SessionTest : public testing::Test {
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
  bool logged(const std::string& text) {
    const auto texts = backend_.log().texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }

  platform::testing::TestBackend backend_;
  platform::ScopedServices installed_{backend_.services()};
  platform::Id instance_ = 0;
};

}  // namespace orrery::test
