#pragma once

#include <memory>

#include "database.h"

namespace orrery::platform::local {

/// Clients, instances and their properties, backup sets, subclients and content in the store.
class InventoryStore final : public Inventory {
 public:
  explicit InventoryStore(std::shared_ptr<Database> database) : database_(std::move(database)) {}

  Status ownClient(Client& client) override;
  Status putClient(const std::string& name, int applicationType, Id& id) override;
  Status findClient(Id id, Client& client) override;
  Status findClient(const std::string& name, Client& client) override;

  Status addInstance(const InstanceRecord& record, Id& id) override;
  Status findInstance(Id id, InstanceRecord& record) override;
  Status findInstance(Id clientId, int applicationType, const std::string& name, InstanceRecord& record) override;
  Status listInstances(std::vector<InstanceRecord>& records) override;
  Status writeProperties(Id instanceId, const std::map<std::string, std::string>& properties) override;
  Status readProperty(Id instanceId, const std::string& key, std::optional<std::string>& value) override;
  Status removeInstance(Id id) override;

  Status listBackupSets(Id instanceId, std::vector<BackupSet>& sets) override;
  Status addSubclient(Id backupSetId, const std::string& name, Id& id) override;
  Status removeSubclient(Id id) override;
  Status listSubclients(Id backupSetId, std::vector<SubclientRecord>& subclients) override;
  Status findSubclient(Id id, SubclientRecord& subclient) override;
  Status setForceFull(Id subclientId, bool forceFull) override;
  Status listContent(Id subclientId, std::vector<ContentEntry>& content) override;
  Status putContent(Id subclientId, const std::vector<ContentEntry>& content) override;
  Status removeContent(Id subclientId, int type, const std::vector<std::string>& names) override;

 private:
  template <class... Values>
  Status findClientWhere(const char* condition, Client& client, const Values&... values);
  template <class... Values>
  Status findInstancesWhere(const char* condition, bool oneIsMeant, std::vector<InstanceRecord>& records,
                            const Values&... values);

  const std::shared_ptr<Database> database_;
};

/// Enters this machine's own client into a new store.
void addOwnClient(Database& database, const std::string& name);

}  // namespace orrery::platform::local
