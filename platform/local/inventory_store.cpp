#include "inventory_store.h"

namespace orrery::platform::local {
namespace {

[[noreturn]] void throwNotFound(const char* what, const std::string& which) {
  throw Failure(Status::notFound(std::string("there is no ") + what + " " + which));
}

void requireRow(Database& database, const char* question, Id id, const char* what) {
  Statement statement(database, question);
  if (!statement.with(id).next()) throwNotFound(what, std::to_string(id));
}

void requireInstance(Database& database, Id id) {
  requireRow(database, "SELECT 1 FROM instances WHERE id = ?", id, "instance");
}

void requireBackupSet(Database& database, Id id) {
  requireRow(database, "SELECT 1 FROM backup_sets WHERE id = ?", id, "backup set");
}

void requireSubclient(Database& database, Id id) {
  requireRow(database, "SELECT 1 FROM subclients WHERE id = ?", id, "subclient");
}

void requireName(const std::string& name, const char* what) {
  if (name.empty()) throw Failure(Status::invalid(std::string("the name of ") + what + " cannot be empty"));
}

void putProperties(Database& database, Id instanceId, const std::map<std::string, std::string>& properties) {
  Statement put(database,
                "INSERT INTO instance_properties (instance_id, key, value) VALUES (?, ?, ?) "
                "ON CONFLICT (instance_id, key) DO UPDATE SET value = excluded.value");
  for (const auto& [key, value] : properties) put.with(instanceId, key, value).run();
}

Id insertSubclient(Database& database, Id backupSetId, const std::string& name, bool isDefault) {
  Statement(database, "INSERT INTO subclients (backup_set_id, name, is_default) VALUES (?, ?, ?)")
      .with(backupSetId, name, isDefault)
      .run();
  return static_cast<Id>(database.lastRowId());
}

Id insertInstance(Database& database, const InstanceRecord& record) {
  Statement(database, "INSERT INTO instances (client_id, application_type, name) VALUES (?, ?, ?)")
      .with(record.clientId, record.applicationType, record.name)
      .run();
  const Id id = static_cast<Id>(database.lastRowId());
  putProperties(database, id, record.properties);
  Statement(database, "INSERT INTO backup_sets (instance_id, name, is_default) VALUES (?, 'defaultBackupSet', 1)")
      .with(id)
      .run();
  insertSubclient(database, static_cast<Id>(database.lastRowId()), "default", true);
  return id;
}

}  // namespace

void addOwnClient(Database& database, const std::string& name) {
  requireName(name, "a client");
  Statement(database, "INSERT INTO clients (name, application_type, own) VALUES (?, 0, 1)").with(name).run();
}

// ------------------------------------------------------------------------------------------------------------ clients

template <class... Values>
Status InventoryStore::findClientWhere(const char* condition, Client& client, const Values&... values) {
  Client found;
  Status status = database_->read("read the client", [&] {
    Statement statement(*database_, std::string("SELECT id, name, application_type FROM clients WHERE ") + condition);
    if (!statement.with(values...).next()) throw Failure(Status::notFound("there is no such client"));
    found = {static_cast<Id>(statement.integer(0)), statement.text(1), static_cast<int>(statement.integer(2))};
  });
  if (status.ok()) client = std::move(found);
  return status;
}

Status InventoryStore::ownClient(Client& client) {
  return findClientWhere("own = 1", client);
}

Status InventoryStore::findClient(Id id, Client& client) {
  return findClientWhere("id = ?", client, id);
}

Status InventoryStore::findClient(const std::string& name, Client& client) {
  return findClientWhere("name = ?", client, name);
}

Status InventoryStore::putClient(const std::string& name, int applicationType, Id& id) {
  Id put = 0;
  Status status = database_->write("enter the client", [&] {
    requireName(name, "a client");
    Statement statement(*database_,
                        "INSERT INTO clients (name, application_type) VALUES (?, ?) ON CONFLICT (name) "
                        "DO UPDATE SET application_type = excluded.application_type RETURNING id");
    if (statement.with(name, applicationType).next()) put = static_cast<Id>(statement.integer(0));
  });
  if (status.ok()) id = put;
  return status;
}

// ---------------------------------------------------------------------------------------------------------- instances

Status InventoryStore::addInstance(const InstanceRecord& record, Id& id) {
  Id added = 0;
  Status status = database_->write("add the instance", [&] {
    requireName(record.name, "an instance");
    requireRow(*database_, "SELECT 1 FROM clients WHERE id = ?", record.clientId, "client");
    Statement present(*database_, "SELECT 1 FROM instances WHERE client_id = ? AND application_type = ? AND name = ?");
    if (present.with(record.clientId, record.applicationType, record.name).next())
      throw Failure(Status::exists("there is an instance " + record.name + " already"));
    added = insertInstance(*database_, record);
  });
  if (status.ok()) id = added;
  return status;
}

/// One statement for instances and properties together, so that a long list costs one pass.
template <class... Values>
Status InventoryStore::findInstancesWhere(const char* condition, bool oneIsMeant, std::vector<InstanceRecord>& records,
                                          const Values&... values) {
  std::vector<InstanceRecord> found;
  Status status = database_->read("read the instances", [&] {
    Statement statement(*database_,
                        std::string("SELECT i.id, i.client_id, i.application_type, i.name, p.key, p.value "
                                    "FROM instances i LEFT JOIN instance_properties p ON p.instance_id = i.id WHERE ") +
                            condition + " ORDER BY i.id");
    statement.with(values...);
    while (statement.next()) {
      const Id id = static_cast<Id>(statement.integer(0));
      if (found.empty() || found.back().id != id)
        found.push_back(
            {id, static_cast<Id>(statement.integer(1)), static_cast<int>(statement.integer(2)), statement.text(3), {}});
      if (!statement.isNull(4)) found.back().properties.emplace(statement.text(4), statement.text(5));
    }
    if (oneIsMeant && found.empty()) throw Failure(Status::notFound("there is no such instance"));
  });
  if (status.ok()) records = std::move(found);
  return status;
}

Status InventoryStore::findInstance(Id id, InstanceRecord& record) {
  std::vector<InstanceRecord> found;
  Status status = findInstancesWhere("i.id = ?", true, found, id);
  if (status.ok()) record = std::move(found.front());
  return status;
}

Status InventoryStore::findInstance(Id clientId, int applicationType, const std::string& name, InstanceRecord& record) {
  std::vector<InstanceRecord> found;
  Status status = findInstancesWhere("i.client_id = ? AND i.application_type = ? AND i.name = ?", true, found, clientId,
                                     applicationType, name);
  if (status.ok()) record = std::move(found.front());
  return status;
}

Status InventoryStore::listInstances(std::vector<InstanceRecord>& records) {
  return findInstancesWhere("1", false, records);
}

Status InventoryStore::writeProperties(Id instanceId, const std::map<std::string, std::string>& properties) {
  return database_->write("write the properties", [&] {
    requireInstance(*database_, instanceId);
    putProperties(*database_, instanceId, properties);
  });
}

Status InventoryStore::readProperty(Id instanceId, const std::string& key, std::optional<std::string>& value) {
  std::optional<std::string> found;
  Status status = database_->readOne("read the property", [&] {
    Statement statement(*database_,
                        "SELECT p.value FROM instances i LEFT JOIN instance_properties p "
                        "ON p.instance_id = i.id AND p.key = ? WHERE i.id = ?");
    if (!statement.with(key, instanceId).next()) throwNotFound("instance", std::to_string(instanceId));
    if (!statement.isNull(0)) found = statement.text(0);
  });
  if (status.ok()) value = std::move(found);
  return status;
}

Status InventoryStore::removeInstance(Id id) {
  return database_->write("remove the instance", [&] {
    Statement(*database_, "DELETE FROM instances WHERE id = ?").with(id).run();
    if (database_->changes() == 0) throwNotFound("instance", std::to_string(id));
  });
}

// ----------------------------------------------------------------------------------- backup sets, subclients, content

Status InventoryStore::listBackupSets(Id instanceId, std::vector<BackupSet>& sets) {
  std::vector<BackupSet> found;
  Status status = database_->read("read the backup sets", [&] {
    requireInstance(*database_, instanceId);
    Statement statement(*database_, "SELECT id, name, is_default FROM backup_sets WHERE instance_id = ? ORDER BY id");
    statement.with(instanceId);
    while (statement.next())
      found.push_back(
          {static_cast<Id>(statement.integer(0)), instanceId, statement.text(1), statement.integer(2) != 0});
  });
  if (status.ok()) sets = std::move(found);
  return status;
}

Status InventoryStore::addSubclient(Id backupSetId, const std::string& name, Id& id) {
  Id added = 0;
  Status status = database_->write("add the subclient", [&] {
    requireName(name, "a subclient");
    requireBackupSet(*database_, backupSetId);
    Statement present(*database_, "SELECT 1 FROM subclients WHERE backup_set_id = ? AND name = ?");
    if (present.with(backupSetId, name).next())
      throw Failure(Status::exists("there is a subclient " + name + " already"));
    added = insertSubclient(*database_, backupSetId, name, false);
  });
  if (status.ok()) id = added;
  return status;
}

Status InventoryStore::removeSubclient(Id id) {
  return database_->write("remove the subclient", [&] {
    Statement subclient(*database_, "SELECT name, is_default FROM subclients WHERE id = ?");
    if (!subclient.with(id).next()) throwNotFound("subclient", std::to_string(id));
    if (subclient.integer(1) != 0)
      throw Failure(Status::invalid("the default subclient " + subclient.text(0) + " cannot be removed"));
    Statement(*database_, "DELETE FROM subclients WHERE id = ?").with(id).run();
  });
}

Status InventoryStore::listSubclients(Id backupSetId, std::vector<SubclientRecord>& subclients) {
  std::vector<SubclientRecord> found;
  Status status = database_->read("read the subclients", [&] {
    requireBackupSet(*database_, backupSetId);
    Statement statement(*database_,
                        "SELECT id, name, is_default, force_full FROM subclients WHERE backup_set_id = ? ORDER BY id");
    statement.with(backupSetId);
    while (statement.next())
      found.push_back({static_cast<Id>(statement.integer(0)), backupSetId, statement.text(1), statement.integer(2) != 0,
                       statement.integer(3) != 0});
  });
  if (status.ok()) subclients = std::move(found);
  return status;
}

Status InventoryStore::findSubclient(Id id, SubclientRecord& subclient) {
  SubclientRecord found;
  Status status = database_->read("read the subclient", [&] {
    Statement statement(*database_, "SELECT backup_set_id, name, is_default, force_full FROM subclients WHERE id = ?");
    if (!statement.with(id).next()) throwNotFound("subclient", std::to_string(id));
    found = {id, static_cast<Id>(statement.integer(0)), statement.text(1), statement.integer(2) != 0,
             statement.integer(3) != 0};
  });
  if (status.ok()) subclient = std::move(found);
  return status;
}

Status InventoryStore::setForceFull(Id subclientId, bool forceFull) {
  return database_->write("change the subclient", [&] {
    requireSubclient(*database_, subclientId);
    Statement(*database_, "UPDATE subclients SET force_full = ? WHERE id = ?").with(forceFull, subclientId).run();
  });
}

Status InventoryStore::listContent(Id subclientId, std::vector<ContentEntry>& content) {
  std::vector<ContentEntry> found;
  Status status = database_->read("read the content", [&] {
    requireSubclient(*database_, subclientId);
    Statement statement(*database_,
                        "SELECT type, name, size, created, auto_discovered FROM content WHERE subclient_id = ? "
                        "ORDER BY type, name");
    statement.with(subclientId);
    while (statement.next())
      found.push_back({static_cast<int>(statement.integer(0)), statement.text(1), statement.integer(2),
                       statement.integer(3), statement.integer(4) != 0});
  });
  if (status.ok()) content = std::move(found);
  return status;
}

Status InventoryStore::putContent(Id subclientId, const std::vector<ContentEntry>& content) {
  return database_->write("write the content", [&] {
    requireSubclient(*database_, subclientId);
    Statement put(*database_,
                  "INSERT OR REPLACE INTO content (subclient_id, type, name, size, created, auto_discovered) "
                  "VALUES (?, ?, ?, ?, ?, ?)");
    for (const ContentEntry& entry : content)
      put.with(subclientId, entry.type, entry.name, entry.size, entry.created, entry.autoDiscovered).run();
  });
}

Status InventoryStore::removeContent(Id subclientId, int type, const std::vector<std::string>& names) {
  return database_->write("remove content", [&] {
    requireSubclient(*database_, subclientId);
    Statement remove(*database_, "DELETE FROM content WHERE subclient_id = ? AND type = ? AND name = ?");
    for (const std::string& name : names) remove.with(subclientId, type, name).run();
  });
}

}  // namespace orrery::platform::local
