#pragma once

/// Homes of the agent with one instance, opened for this process.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/services.h"

#include "bench/pairs.h"
#include "support/mariadb_sandbox.h"

namespace orrery::bench {

class HomeWithInstance {
 public:
  /// Properties as the inventory holds them, but the password is plain.
  explicit HomeWithInstance(std::map<std::string, std::string> properties) {
    using namespace orrery::platform;
    require(createHome(path(), "bench").ok(), "the home cannot be made");
    std::shared_ptr<const Services> services;
    require(openHome(path(), services).ok(), "the home cannot be opened");
    installed_.emplace(services);
    std::string password;
    require(services->vault->seal(properties[property::saPassword], password).ok(), "the password cannot be sealed");
    properties[property::saPassword] = password;
    Client client;
    require(services->inventory->ownClient(client).ok(), "no client");
    InstanceRecord record;
    record.clientId = client.id;
    record.applicationType = property::applicationTypeMySql;
    record.name = "bench";
    record.properties = std::move(properties);
    Id id = 0;
    require(services->inventory->addInstance(record, id).ok(), "the instance cannot be added");
    instance_ = static_cast<long>(id);
  }

  std::string path() const { return place_ / "home"; }
  long instance() const noexcept { return instance_; }
  void set(const std::string& key, const std::string& value) const {
    require(platform::services().settings->write("MySQL", key, value).ok(), "a setting cannot be written");
  }

 private:
  test::TemporaryDirectory place_;
  std::optional<platform::ScopedServices> installed_;
  long instance_ = 0;
};

/// Whose instance is a private server.
class HomeWithServer {
 public:
  const test::MariaDbSandbox& server() const noexcept { return server_; }
  std::string path() const { return home_.path(); }
  long instance() const noexcept { return home_.instance(); }
  void set(const std::string& key, const std::string& value) const { home_.set(key, value); }

 private:
  test::MariaDbSandbox server_;
  HomeWithInstance home_{{{platform::property::saUser, "agent"},
                          {platform::property::saPassword, server_.agentPassword()},
                          {platform::property::unixUser, server_.account()},
                          {platform::property::socketFile, server_.socket()},
                          {platform::property::binaryPath, "/usr/bin"}}};
};

}  // namespace orrery::bench
