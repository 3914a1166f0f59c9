#pragma once

/// A home of the agent with one private server as its instance, opened for this process.

#include <memory>
#include <optional>
#include <string>

#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/services.h"

#include "bench/pairs.h"
#include "support/mariadb_sandbox.h"

namespace orrery::bench {

class HomeWithServer {
 public:
  HomeWithServer() {
    using namespace orrery::platform;
    require(createHome(path(), "bench").ok(), "the home cannot be made");
    std::shared_ptr<const Services> services;
    require(openHome(path(), services).ok(), "the home cannot be opened");
    installed_.emplace(services);
    std::string password;
    require(services->vault->seal(server_.agentPassword(), password).ok(), "the password cannot be sealed");
    Client client;
    require(services->inventory->ownClient(client).ok(), "no client");
    InstanceRecord record;
    record.clientId = client.id;
    record.applicationType = property::applicationTypeMySql;
    record.name = "bench";
    record.properties = {{property::saUser, "agent"},
                         {property::saPassword, password},
                         {property::unixUser, server_.account()},
                         {property::socketFile, server_.socket()},
                         {property::binaryPath, "/usr/bin"}};
    Id id = 0;
    require(services->inventory->addInstance(record, id).ok(), "the instance cannot be added");
    instance_ = static_cast<long>(id);
  }

  const test::MariaDbSandbox& server() const noexcept { return server_; }
  std::string path() const { return place_ / "home"; }
  long instance() const noexcept { return instance_; }
  void set(const std::string& key, const std::string& value) const {
    require(platform::services().settings->write("MySQL", key, value).ok(), "a setting cannot be written");
  }

 private:
  test::MariaDbSandbox server_;
  test::TemporaryDirectory place_;
  std::optional<platform::ScopedServices> installed_;
  long instance_ = 0;
};

}  // namespace orrery::bench
