#include <algorithm>

#include "memory.h"

namespace orrery::platform::testing {
namespace {

Status none(const char* what, Id id) {
  return Status::notFound(std::string("there is no ") + what + " " + std::to_string(id));
}

/// Copies the entry of an id; notFound otherwise.
template <class Value>
Status copyOf(const std::map<Id, Value>& entries, Id id, const char* what, Value& value) {
  const auto entry = entries.find(id);
  if (entry == entries.end()) return none(what, id);
  value = entry->second;
  return Status::success();
}

template <class Value, class Condition>
const Value* findIf(const std::map<Id, Value>& entries, Condition condition) {
  for (const auto& [id, value] : entries)
    if (condition(value)) return &value;
  return nullptr;
}

class MemoryInventory final : public Inventory {
 public:
  explicit MemoryInventory(SharedMemory memory) : memory_(std::move(memory)) {}

  Status ownClient(Client& client) override {
    return attempt(*memory_, "Inventory::ownClient", {},
                   [&] { return copyOf(memory_->clients, memory_->ownClient, "client", client); });
  }

  Status putClient(const std::string& name, int applicationType, Id& id) override {
    return attempt(*memory_, "Inventory::putClient", {name}, [&] {
      if (name.empty()) return Status::invalid("the name of a client cannot be empty");
      const Client* known = clientNamed(name);
      const Id put = known != nullptr ? known->id : ++memory_->lastId;
      memory_->clients[put] = {put, name, applicationType};
      id = put;
      return Status::success();
    });
  }

  Status findClient(Id id, Client& client) override {
    return attempt(*memory_, "Inventory::findClient", {std::to_string(id)},
                   [&] { return copyOf(memory_->clients, id, "client", client); });
  }

  Status findClient(const std::string& name, Client& client) override {
    return attempt(*memory_, "Inventory::findClient", {name}, [&] {
      const Client* known = clientNamed(name);
      if (known == nullptr) return Status::notFound("there is no client " + name);
      client = *known;
      return Status::success();
    });
  }

  Status addInstance(const InstanceRecord& record, Id& id) override {
    return attempt(*memory_, "Inventory::addInstance", {record.name, std::to_string(record.clientId)}, [&] {
      if (record.name.empty()) return Status::invalid("the name of an instance cannot be empty");
      if (memory_->clients.count(record.clientId) == 0) return none("client", record.clientId);
      if (instanceNamed(record.clientId, record.applicationType, record.name) != nullptr)
        return Status::exists("there is an instance " + record.name + " already");
      const Id added = ++memory_->lastId;
      memory_->instances[added] = record;
      memory_->instances[added].id = added;
      const Id set = ++memory_->lastId;
      memory_->backupSets[set] = {set, added, "defaultBackupSet", true};
      const Id subclient = ++memory_->lastId;
      memory_->subclients[subclient] = {subclient, set, "default", true, false};
      id = added;
      return Status::success();
    });
  }

  Status findInstance(Id id, InstanceRecord& record) override {
    return attempt(*memory_, "Inventory::findInstance", {std::to_string(id)},
                   [&] { return copyOf(memory_->instances, id, "instance", record); });
  }

  Status findInstance(Id clientId, int applicationType, const std::string& name, InstanceRecord& record) override {
    return attempt(*memory_, "Inventory::findInstance", {name, std::to_string(clientId)}, [&] {
      const InstanceRecord* known = instanceNamed(clientId, applicationType, name);
      if (known == nullptr) return Status::notFound("there is no instance " + name);
      record = *known;
      return Status::success();
    });
  }

  Status listInstances(std::vector<InstanceRecord>& records) override {
    return attempt(*memory_, "Inventory::listInstances", {}, [&] {
      records.clear();
      for (const auto& [id, record] : memory_->instances) records.push_back(record);
      return Status::success();
    });
  }

  Status writeProperties(Id instanceId, const std::map<std::string, std::string>& properties) override {
    std::vector<std::string> arguments{std::to_string(instanceId)};
    for (const auto& [key, value] : properties) arguments.push_back(key);
    return attempt(*memory_, "Inventory::writeProperties", arguments, [&] {
      const auto instance = memory_->instances.find(instanceId);
      if (instance == memory_->instances.end()) return none("instance", instanceId);
      for (const auto& [key, value] : properties) instance->second.properties[key] = value;
      return Status::success();
    });
  }

  Status readProperty(Id instanceId, const std::string& key, std::optional<std::string>& value) override {
    return attempt(*memory_, "Inventory::readProperty", {key, std::to_string(instanceId)}, [&] {
      const auto instance = memory_->instances.find(instanceId);
      if (instance == memory_->instances.end()) return none("instance", instanceId);
      const auto property = instance->second.properties.find(key);
      value.reset();
      if (property != instance->second.properties.end()) value = property->second;
      return Status::success();
    });
  }

  Status removeInstance(Id id) override {
    return attempt(*memory_, "Inventory::removeInstance", {std::to_string(id)}, [&] {
      if (memory_->instances.erase(id) == 0) return none("instance", id);
      std::vector<Id> sets;
      for (const auto& [setId, set] : memory_->backupSets)
        if (set.instanceId == id) sets.push_back(setId);
      for (const Id set : sets) removeSet(set);
      return Status::success();
    });
  }

  Status listBackupSets(Id instanceId, std::vector<BackupSet>& sets) override {
    return attempt(*memory_, "Inventory::listBackupSets", {std::to_string(instanceId)}, [&] {
      if (memory_->instances.count(instanceId) == 0) return none("instance", instanceId);
      sets.clear();
      for (const auto& [id, set] : memory_->backupSets)
        if (set.instanceId == instanceId) sets.push_back(set);
      return Status::success();
    });
  }

  Status addSubclient(Id backupSetId, const std::string& name, Id& id) override {
    return attempt(*memory_, "Inventory::addSubclient", {name, std::to_string(backupSetId)}, [&] {
      if (name.empty()) return Status::invalid("the name of a subclient cannot be empty");
      if (memory_->backupSets.count(backupSetId) == 0) return none("backup set", backupSetId);
      const auto same = [&](const SubclientRecord& s) { return s.backupSetId == backupSetId && s.name == name; };
      if (findIf(memory_->subclients, same) != nullptr)
        return Status::exists("there is a subclient " + name + " already");
      id = ++memory_->lastId;
      memory_->subclients[id] = {id, backupSetId, name, false, false};
      return Status::success();
    });
  }

  Status removeSubclient(Id id) override {
    return attempt(*memory_, "Inventory::removeSubclient", {std::to_string(id)}, [&] {
      const auto found = memory_->subclients.find(id);
      if (found == memory_->subclients.end()) return none("subclient", id);
      if (found->second.isDefault)
        return Status::invalid("the default subclient " + found->second.name + " cannot be removed");
      memory_->subclients.erase(found);
      memory_->content.erase(id);
      return Status::success();
    });
  }

  Status listSubclients(Id backupSetId, std::vector<SubclientRecord>& subclients) override {
    return attempt(*memory_, "Inventory::listSubclients", {std::to_string(backupSetId)}, [&] {
      if (memory_->backupSets.count(backupSetId) == 0) return none("backup set", backupSetId);
      subclients.clear();
      for (const auto& [id, subclient] : memory_->subclients)
        if (subclient.backupSetId == backupSetId) subclients.push_back(subclient);
      return Status::success();
    });
  }

  Status findSubclient(Id id, SubclientRecord& subclient) override {
    return attempt(*memory_, "Inventory::findSubclient", {std::to_string(id)},
                   [&] { return copyOf(memory_->subclients, id, "subclient", subclient); });
  }

  Status setForceFull(Id subclientId, bool forceFull) override {
    return attempt(*memory_, "Inventory::setForceFull", {std::to_string(subclientId)}, [&] {
      const auto found = memory_->subclients.find(subclientId);
      if (found == memory_->subclients.end()) return none("subclient", subclientId);
      found->second.forceFull = forceFull;
      return Status::success();
    });
  }

  Status listContent(Id subclientId, std::vector<ContentEntry>& content) override {
    return attempt(*memory_, "Inventory::listContent", {std::to_string(subclientId)}, [&] {
      if (memory_->subclients.count(subclientId) == 0) return none("subclient", subclientId);
      content.clear();
      for (const auto& [key, entry] : memory_->content[subclientId]) content.push_back(entry);
      return Status::success();
    });
  }

  Status putContent(Id subclientId, const std::vector<ContentEntry>& content) override {
    std::vector<std::string> arguments{std::to_string(subclientId)};
    for (const ContentEntry& entry : content) arguments.push_back(entry.name);
    return attempt(*memory_, "Inventory::putContent", arguments, [&] {
      if (memory_->subclients.count(subclientId) == 0) return none("subclient", subclientId);
      for (const ContentEntry& entry : content) memory_->content[subclientId][{entry.type, entry.name}] = entry;
      return Status::success();
    });
  }

  Status removeContent(Id subclientId, int type, const std::vector<std::string>& names) override {
    std::vector<std::string> arguments{std::to_string(subclientId)};
    arguments.insert(arguments.end(), names.begin(), names.end());
    return attempt(*memory_, "Inventory::removeContent", arguments, [&] {
      if (memory_->subclients.count(subclientId) == 0) return none("subclient", subclientId);
      for (const std::string& name : names) memory_->content[subclientId].erase({type, name});
      return Status::success();
    });
  }

 private:
  const Client* clientNamed(const std::string& name) const {
    return findIf(memory_->clients, [&](const Client& client) { return client.name == name; });
  }

  const InstanceRecord* instanceNamed(Id clientId, int applicationType, const std::string& name) const {
    return findIf(memory_->instances, [&](const InstanceRecord& record) {
      return record.clientId == clientId && record.applicationType == applicationType && record.name == name;
    });
  }

  void removeSet(Id set) {
    std::vector<Id> members;
    for (const auto& [id, subclient] : memory_->subclients)
      if (subclient.backupSetId == set) members.push_back(id);
    for (const Id member : members) {
      memory_->subclients.erase(member);
      memory_->content.erase(member);
    }
    memory_->backupSets.erase(set);
  }

  const SharedMemory memory_;
};

}  // namespace

std::shared_ptr<Inventory> makeInventory(SharedMemory memory) {
  return std::make_shared<MemoryInventory>(std::move(memory));
}

}  // namespace orrery::platform::testing
