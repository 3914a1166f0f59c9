#include <limits>

#include <gmock/gmock.h>

#include "orrery/platform/instance_properties.h"

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::Gt;

class InventoryConformance : public Conformance {
 protected:
  Inventory& inventory() { return *services_->inventory; }
  Client own() {
    return got<Client>([&](Client& out) { return inventory().ownClient(out); });
  }
  Id put(const std::string& client, int type) {
    return got<Id>([&](Id& out) { return inventory().putClient(client, type, out); });
  }
  InstanceRecord instance(Id id) {
    return got<InstanceRecord>([&](InstanceRecord& out) { return inventory().findInstance(id, out); });
  }
  std::vector<SubclientRecord> subclients(Id set) {
    using List = std::vector<SubclientRecord>;
    return got<List>([&](List& out) { return inventory().listSubclients(set, out); });
  }
  std::optional<std::string> property(Id id, const std::string& key) {
    using Value = std::optional<std::string>;
    return got<Value>([&](Value& out) { return inventory().readProperty(id, key, out); });
  }
};

INSTANTIATE_TEST_SUITE_P(Backends, InventoryConformance, ::testing::ValuesIn(bothBackends()), nameOfBackend);

TEST_P(InventoryConformance, PutClientAddsThenChangesTheOwnOneToo) {
  EXPECT_THAT(own(), FieldsAre(Gt(0U), "thisclient", 0));
  const Id first = put("cloud", platform::property::clientTypeCloudDatabase);
  EXPECT_EQ(put("cloud", 0), first);
  const auto isFirst = FieldsAre(first, "cloud", 0);
  EXPECT_THAT(got<Client>([&](Client& out) { return inventory().findClient("cloud", out); }), isFirst);
  EXPECT_THAT(got<Client>([&](Client& out) { return inventory().findClient(first, out); }), isFirst);
  EXPECT_EQ(put(own().name, 1), own().id);
  EXPECT_EQ(own().applicationType, 1);
}

TEST_P(InventoryConformance, UnknownThingsAreNotFoundAndOutputsStay) {
  const Id far = std::numeric_limits<Id>::max();
  for (const Id unknown : {Id{0}, Id{999999}, far}) {
    Client client{7, "before", 7};
    InstanceRecord record;
    record.name = "before";
    std::optional<std::string> value = "before";
    std::vector<BackupSet> sets(3);
    std::vector<SubclientRecord> subclients(3);
    SubclientRecord subclient;
    std::vector<ContentEntry> content(3);
    Id id = 77;
    EXPECT_TRUE(failed(inventory().findClient(unknown, client), statusNotFound));
    EXPECT_TRUE(failed(inventory().findInstance(unknown, record), statusNotFound));
    EXPECT_TRUE(failed(inventory().readProperty(unknown, "k", value), statusNotFound));
    EXPECT_TRUE(failed(inventory().writeProperties(unknown, {{"k", "v"}}), statusNotFound));
    EXPECT_TRUE(failed(inventory().removeInstance(unknown), statusNotFound));
    EXPECT_TRUE(failed(inventory().listBackupSets(unknown, sets), statusNotFound));
    EXPECT_TRUE(failed(inventory().addSubclient(unknown, "s", id), statusNotFound));
    EXPECT_TRUE(failed(inventory().listSubclients(unknown, subclients), statusNotFound));
    EXPECT_TRUE(failed(inventory().findSubclient(unknown, subclient), statusNotFound));
    EXPECT_TRUE(failed(inventory().listContent(unknown, content), statusNotFound));
    EXPECT_TRUE(failed(inventory().putContent(unknown, {}), statusNotFound));
    EXPECT_TRUE(failed(inventory().removeContent(unknown, 120, {"a"}), statusNotFound));
    EXPECT_EQ(client.name, "before");
    EXPECT_EQ(record.name, "before");
    EXPECT_EQ(value, "before");
    EXPECT_EQ(sets.size() + subclients.size() + content.size(), 9U);
    EXPECT_EQ(id, 77U);
  }
  Client client;
  InstanceRecord record;
  EXPECT_TRUE(failed(inventory().findClient("nobody", client), statusNotFound));
  EXPECT_TRUE(failed(inventory().findInstance(1, 104, "nothing", record), statusNotFound));
}

TEST_P(InventoryConformance, InstanceComesWithItsDefaults) {
  const std::map<std::string, std::string> properties{{platform::property::saUser, "root"},
                                                      {"odd key", std::string("a\0b\nc'\"\xff", 8)}};
  const Id id = addInstance("db1", properties);
  EXPECT_THAT(instance(id), FieldsAre(id, own().id, platform::property::applicationTypeMySql, "db1", properties));
  std::vector<BackupSet> sets;
  ASSERT_TRUE(succeeded(inventory().listBackupSets(id, sets)));
  ASSERT_THAT(sets, ElementsAre(FieldsAre(_, id, "defaultBackupSet", true)));
  EXPECT_THAT(subclients(sets[0].id), ElementsAre(FieldsAre(_, sets[0].id, "default", true, false)));
}

TEST_P(InventoryConformance, InstanceNamesAreUniquePerClientAndApplication) {
  InstanceRecord record = instance(addInstance("db1"));
  Id id = 0;
  EXPECT_TRUE(failed(inventory().addInstance(record, id), statusExists, "db1"));
  record.applicationType = 1;
  EXPECT_TRUE(succeeded(inventory().addInstance(record, id)));
  const Id other = put("other", 0);
  record.applicationType = platform::property::applicationTypeMySql;
  record.clientId = other;
  EXPECT_TRUE(succeeded(inventory().addInstance(record, id)));
  record.name = "DB1";
  EXPECT_TRUE(succeeded(inventory().addInstance(record, id)));

  InstanceRecord found;
  ASSERT_TRUE(succeeded(inventory().findInstance(other, platform::property::applicationTypeMySql, "db1", found)));
  EXPECT_EQ(found.clientId, other);
  std::vector<InstanceRecord> all;
  ASSERT_TRUE(succeeded(inventory().listInstances(all)));
  ASSERT_EQ(all.size(), 4U);
  for (std::size_t i = 1; i < all.size(); ++i) EXPECT_LT(all[i - 1].id, all[i].id);
}

TEST_P(InventoryConformance, InstanceNeedsANameAndAClient) {
  InstanceRecord record;
  Id id = 0;
  record.clientId = 424242;
  record.name = "db";
  EXPECT_TRUE(failed(inventory().addInstance(record, id), statusNotFound));
  record.clientId = own().id;
  record.name.clear();
  EXPECT_TRUE(failed(inventory().addInstance(record, id), statusInvalid));
  EXPECT_TRUE(failed(inventory().putClient("", 0, id), statusInvalid));
}

TEST_P(InventoryConformance, PropertiesAreSetOneByOne) {
  const Id id = addInstance("db1", {{"a", "1"}, {"b", "2"}});
  ASSERT_TRUE(succeeded(inventory().writeProperties(id, {{"b", ""}, {"c", "'; DROP TABLE instances; --"}})));
  EXPECT_EQ(property(id, "a"), "1");
  EXPECT_EQ(property(id, "b"), "");
  EXPECT_EQ(property(id, "c"), "'; DROP TABLE instances; --");
  EXPECT_EQ(property(id, "A"), std::nullopt);
}

TEST_P(InventoryConformance, RemovedInstanceTakesItsPartsAlong) {
  const Id id = addInstance("db1", {{"a", "1"}});
  const Id set = onlyBackupSet(id);
  const Id subclient = defaultSubclient(id);
  ASSERT_TRUE(succeeded(inventory().putContent(subclient, {{120, "shop", 1, 2, true}})));
  ASSERT_TRUE(succeeded(inventory().removeInstance(id)));
  SubclientRecord record;
  std::vector<SubclientRecord> records;
  EXPECT_TRUE(failed(inventory().findSubclient(subclient, record), statusNotFound));
  EXPECT_TRUE(failed(inventory().listSubclients(set, records), statusNotFound));
  EXPECT_GT(addInstance("db1"), id) << "ids are not used twice";
}

TEST_P(InventoryConformance, SubclientsOfABackupSet) {
  const Id set = onlyBackupSet(addInstance("db1"));
  Id id = 0;
  Id again = 0;
  ASSERT_TRUE(succeeded(inventory().addSubclient(set, "nightly", id)));
  EXPECT_TRUE(failed(inventory().addSubclient(set, "nightly", again), statusExists, "nightly"));
  EXPECT_TRUE(failed(inventory().addSubclient(set, "", again), statusInvalid));
  SubclientRecord record;
  ASSERT_TRUE(succeeded(inventory().findSubclient(id, record)));
  EXPECT_THAT(record, FieldsAre(id, set, "nightly", false, false));
  ASSERT_TRUE(succeeded(inventory().putContent(id, {{120, "shop", 1, 2, true}})));
  ASSERT_TRUE(succeeded(inventory().removeSubclient(id)));
  EXPECT_TRUE(failed(inventory().removeSubclient(id), statusNotFound));
  EXPECT_TRUE(failed(inventory().removeSubclient(subclients(set).front().id), statusInvalid, "default"));
  std::vector<ContentEntry> content;
  EXPECT_TRUE(failed(inventory().listContent(id, content), statusNotFound));
}

TEST_P(InventoryConformance, ContentIsReplacedByTypeAndName) {
  const Id subclient = defaultSubclient(addInstance("db1"));
  ASSERT_TRUE(succeeded(inventory().putContent(
      subclient, {{120, "b", 10, 100, true}, {120, "a", 20, 200, false}, {7, "a", 1, 1, false}})));
  ASSERT_TRUE(succeeded(inventory().putContent(subclient, {{120, "b", -1, 300, false}})));
  ASSERT_TRUE(succeeded(inventory().removeContent(subclient, 7, {"a", "never was there"})));
  std::vector<ContentEntry> content;
  ASSERT_TRUE(succeeded(inventory().listContent(subclient, content)));
  EXPECT_THAT(content, ElementsAre(FieldsAre(120, "a", 20, 200, false), FieldsAre(120, "b", -1, 300, false)));
}

}  // namespace
}  // namespace orrery::test
