#include "fixtures.h"

#include "orrery/platform/instance_properties.h"
#include "orrery/platform/testing/test_backend.h"

namespace orrery::test {

std::shared_ptr<const Services> HomeTest::open() const {
  std::shared_ptr<const Services> services;
  EXPECT_TRUE(succeeded(platform::openHome(home(), services)));
  return services;
}

std::ostream& operator<<(std::ostream& stream, const Backend& backend) {
  return stream << backend.name;
}

std::string nameOfBackend(const ::testing::TestParamInfo<Backend>& info) {
  return info.param.name;
}

std::vector<Backend> bothBackends() {
  return {{"local",
           [](const TemporaryDirectory& folder) {
             std::shared_ptr<const Services> services;
             EXPECT_TRUE(succeeded(platform::createHome(folder / "home", "thisclient")));
             EXPECT_TRUE(succeeded(platform::openHome(folder / "home", services)));
             return services;
           }},
          {"memory", [](const TemporaryDirectory&) {
             // The services keep the backend: its directory lives as long as they do.
             const auto backend = std::make_shared<platform::testing::TestBackend>("thisclient");
             return std::shared_ptr<const Services>(backend, backend->services().get());
           }}};
}

Id Conformance::addInstance(const std::string& name, const std::map<std::string, std::string>& properties) {
  platform::Client own;
  EXPECT_TRUE(succeeded(services_->inventory->ownClient(own)));
  platform::InstanceRecord record;
  record.clientId = own.id;
  record.applicationType = platform::property::applicationTypeMySql;
  record.name = name;
  record.properties = properties;
  Id id = 0;
  EXPECT_TRUE(succeeded(services_->inventory->addInstance(record, id)));
  return id;
}

Id Conformance::onlyBackupSet(Id instance) {
  std::vector<platform::BackupSet> sets;
  EXPECT_TRUE(succeeded(services_->inventory->listBackupSets(instance, sets)));
  EXPECT_EQ(sets.size(), 1U);
  return sets.empty() ? 0 : sets.front().id;
}

Id Conformance::defaultSubclient(Id instance) {
  std::vector<platform::SubclientRecord> subclients;
  EXPECT_TRUE(succeeded(services_->inventory->listSubclients(onlyBackupSet(instance), subclients)));
  return subclients.empty() ? 0 : subclients.front().id;
}

}  // namespace orrery::test
