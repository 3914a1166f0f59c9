#include "orrery/platform/MySqlInstance.h"

#include <cstdlib>
#include <exception>

#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/services.h"

using orrery::platform::services;
using orrery::platform::Status;
namespace property = orrery::platform::property;

Instance::~Instance() = default;
MySqlInstance::~MySqlInstance() = default;

int Instance::getInstanceName(std::string& name) const {
  orrery::platform::InstanceRecord record;
  const Status status = services().inventory->findInstance(id_, record);
  if (status.ok()) name = std::move(record.name);
  return status.code;
}

int InstanceByName::getInstanceId(unsigned long clientId, int applicationType, const std::string& name,
                                  unsigned long& instanceId) {
  orrery::platform::InstanceRecord record;
  const Status status = services().inventory->findInstance(clientId, applicationType, name, record);
  if (status.ok()) instanceId = record.id;
  return status.ok() ? 1 : -status.code;
}

std::unique_ptr<MySqlInstance> MySqlInstance::create(long id) noexcept {
  try {
    orrery::platform::InstanceRecord record;
    const Status status = services().inventory->findInstance(static_cast<orrery::platform::Id>(id), record);
    if (status.ok()) return std::make_unique<MySqlInstance>(static_cast<unsigned long>(id));
    EvEvent().Error("MySqlInstance::create", "instance %ld: %s", id, status.text.c_str());
  } catch (const std::exception& error) {
    EvEvent().Error("MySqlInstance::create", "instance %ld: %s", id, error.what());
  }
  return nullptr;
}

int MySqlInstance::text(const char* key, std::string& value) const {
  std::optional<std::string> found;
  const Status status = services().inventory->readProperty(getInstanceId(), key, found);
  if (status.ok()) value = found.value_or(std::string());
  return status.code;
}

int MySqlInstance::getMySqlUnixUser(std::string& value) const {
  return text(property::unixUser, value);
}
int MySqlInstance::getSaUser(std::string& value) const {
  return text(property::saUser, value);
}
int MySqlInstance::getMySqlVersion(std::string& value) const {
  return text(property::version, value);
}
int MySqlInstance::getSaPassword(std::string& value) const {
  return text(property::saPassword, value);
}
int MySqlInstance::getMySqlNTUser(std::string& value) const {
  return text(property::ntUser, value);
}
int MySqlInstance::getMySqlNTPassword(std::string& value) const {
  return text(property::ntPassword, value);
}
int MySqlInstance::getMySqlSocketFile(std::string& value) const {
  return text(property::socketFile, value);
}
int MySqlInstance::getMySqlBinaryFilePath(std::string& value) const {
  return text(property::binaryPath, value);
}
int MySqlInstance::getMySqlDataFilePath(std::string& value) const {
  return text(property::dataPath, value);
}
int MySqlInstance::getMySqlConfigFile(std::string& value) const {
  return text(property::configFile, value);
}
int MySqlInstance::getMySqlSslCaPath(std::string& value) const {
  return text(property::sslCa, value);
}
int MySqlInstance::getMySqlSslKey(std::string& value) const {
  return text(property::sslKey, value);
}
int MySqlInstance::getMySqlSslCert(std::string& value) const {
  return text(property::sslCert, value);
}

int MySqlInstance::getMySqlArchiveLogIndexFile(std::string& value) const {
  std::optional<std::string> found;
  const Status status = services().inventory->readProperty(getInstanceId(), property::archiveLogIndex, found);
  if (!status.ok()) return status.code;
  if (!found) return orrery::platform::statusNotFound;
  value = std::move(*found);
  return 0;
}

int MySqlInstance::getDbAutoDiscovery(int& value) const {
  std::string number;
  const int rc = text(property::autoDiscovery, number);
  if (rc == 0) value = static_cast<int>(std::strtol(number.c_str(), nullptr, 10));
  return rc;
}

int MySqlInstance::flag(const char* key, bool& value) const {
  std::string number;
  const int rc = text(key, number);
  if (rc == 0) value = number == "1";
  return rc;
}

int MySqlInstance::getIsMariaDB(bool& value) const {
  return flag(property::isMariaDb, value);
}
int MySqlInstance::getMySqlMEBEnabled(bool& value) const {
  return flag(property::mebEnabled, value);
}
int MySqlInstance::getMySqlNoLockingEnabled(bool& value) const {
  return flag(property::mebNoLocking, value);
}
int MySqlInstance::getMySqlMEBBinPath(std::string& value) const {
  return text(property::mebBinPath, value);
}

int MySqlInstance::setIsMariaDB(bool value) {
  return services().inventory->writeProperties(getInstanceId(), {{property::isMariaDb, value ? "1" : "0"}}).code;
}

int MySqlInstance::getMySqlDataDir(std::string& value) const {
  return text(property::dataDirOwner, value);
}

int MySqlInstance::setMySqlDataDir(const std::string& value) {
  return services().inventory->writeProperties(getInstanceId(), {{property::dataDirOwner, value}}).code;
}

ApplicationId::ApplicationId(long, unsigned long, int, unsigned long instanceId, std::string backupSetName, std::string)
    : instanceId_(instanceId), backupSetName_(std::move(backupSetName)) {}

const char* ApplicationId::defaultBackupSetName() noexcept {
  return "defaultBackupSet";
}

std::unique_ptr<Instance> ApplicationId::getInstance() const {
  if (instanceId_ == 0) return nullptr;
  orrery::platform::InstanceRecord record;
  if (!services().inventory->findInstance(instanceId_, record).ok()) return nullptr;
  return std::make_unique<Instance>(instanceId_);
}

std::unique_ptr<MySqlSubclient> ApplicationId::getSubclient() const {
  if (subclientId_ == 0) return nullptr;
  orrery::platform::SubclientRecord record;
  if (!services().inventory->findSubclient(subclientId_, record).ok()) return nullptr;
  return std::make_unique<MySqlSubclient>(subclientId_);
}

std::unique_ptr<MySqlBackupSet> ApplicationId::getBackupSet() const {
  if (subclientId_ == 0) return nullptr;
  orrery::platform::SubclientRecord record;
  if (!services().inventory->findSubclient(subclientId_, record).ok()) return nullptr;
  return std::make_unique<MySqlBackupSet>(record.backupSetId);
}

int ApplicationId::getBackupSetId(unsigned long& backupSetId) const {
  if (subclientId_ != 0) {
    orrery::platform::SubclientRecord record;
    const Status status = services().inventory->findSubclient(subclientId_, record);
    if (status.ok()) backupSetId = record.backupSetId;
    return status.code;
  }
  std::vector<orrery::platform::BackupSet> sets;
  if (const Status status = services().inventory->listBackupSets(instanceId_, sets); !status.ok()) return status.code;
  for (const orrery::platform::BackupSet& set : sets) {
    if (set.name != backupSetName_) continue;
    backupSetId = set.id;
    return 0;
  }
  return orrery::platform::statusNotFound;
}

int ApplicationId::getAppIdInfo(AppIdInfo& info) const {
  orrery::platform::InstanceRecord instance;
  if (const Status status = services().inventory->findInstance(instanceId_, instance); !status.ok()) return status.code;
  AppIdInfo found{subclientId_, instance.clientId, instance.applicationType, instanceId_, 0};
  if (subclientId_ != 0) {
    if (const int rc = getBackupSetId(found.backupSetId); rc != 0) return rc;
  }
  info = found;
  return 0;
}

int ApplicationId::getClientName(std::string& name) const {
  orrery::platform::InstanceRecord instance;
  if (const Status status = services().inventory->findInstance(instanceId_, instance); !status.ok()) return status.code;
  orrery::platform::Client client;
  const Status status = services().inventory->findClient(instance.clientId, client);
  if (status.ok()) name = std::move(client.name);
  return status.code;
}

int ClientFromInstanceId::getClientId(unsigned long instanceId, unsigned long& clientId) {
  orrery::platform::InstanceRecord record;
  const Status status = services().inventory->findInstance(instanceId, record);
  if (status.ok()) clientId = record.clientId;
  return status.code;
}

int ClientProperties::getClientAppType(int& type) const {
  orrery::platform::Client client;
  const Status status = services().inventory->findClient(clientId_, client);
  if (status.ok()) type = client.applicationType;
  return status.code;
}

int DZClient::lookup() {
  orrery::platform::Client client;
  const Status status =
      id_ != 0 ? services().inventory->findClient(id_, client) : services().inventory->findClient(name_, client);
  if (!status.ok()) return status.code;
  id_ = client.id;
  name_ = std::move(client.name);
  return 0;
}
