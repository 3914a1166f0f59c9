#include "orrery/platform/instance_properties.h"
#include "orrery/platform/testing/test_backend.h"

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
using platform::testing::TestBackend;

TEST(TestBackendFailures, NthCallFailsAndLeavesItsOutput) {
  TestBackend backend;
  const Id id = backend.addInstance("db1", {{"a", "1"}});
  Inventory& inventory = *backend.services()->inventory;
  std::optional<std::string> value;
  ASSERT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  backend.failures().failNth("Inventory::readProperty", 2, Status::unavailable("gone"));
  EXPECT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  value = "before";
  EXPECT_TRUE(failed(inventory.readProperty(id, "a", value), statusUnavailable, "gone"));
  EXPECT_EQ(value, "before");
  EXPECT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  EXPECT_EQ(backend.failures().calls("Inventory::readProperty"), 4U);
  EXPECT_EQ(backend.failures().calls("Inventory::listInstances"), 0U);
}

TEST(TestBackendFailures, FilterLooksAtTheArgument) {
  TestBackend backend;
  const Id id = backend.addInstance("db1", {{property::socketFile, "/s"}, {property::saUser, "root"}});
  backend.failures().failWhen("Inventory::readProperty", property::socketFile, Status::failure("no"));
  std::optional<std::string> value;
  EXPECT_TRUE(succeeded(backend.services()->inventory->readProperty(id, property::saUser, value)));
  EXPECT_TRUE(failed(backend.services()->inventory->readProperty(id, property::socketFile, value), statusFailed, "no"));
  backend.failures().clear();
  EXPECT_TRUE(succeeded(backend.services()->inventory->readProperty(id, property::socketFile, value)));
}

}  // namespace
}  // namespace orrery::test
