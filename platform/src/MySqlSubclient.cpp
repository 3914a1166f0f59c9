#include "orrery/platform/MySqlSubclient.h"

#include <exception>
#include <optional>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/services.h"

using orrery::platform::ContentEntry;
using orrery::platform::services;
using orrery::platform::Status;
using orrery::platform::SubclientRecord;

ApplProperties::~ApplProperties() = default;
MySqlSubclient::~MySqlSubclient() = default;

int ApplProperties::keep(int code, std::string text) const {
  lastCode_ = code;
  lastText_ = std::move(text);
  return code;
}

std::string ApplProperties::getErrorString(int code) const {
  return code != 0 && code == lastCode_ ? lastText_ : std::string();
}

int ApplProperties::getProperties(std::list<MySqlProperty>& properties) const {
  std::vector<ContentEntry> content;
  const Status status = services().inventory->listContent(subclientId_, content);
  if (!status.ok()) return keep(status.code, status.text);
  std::list<MySqlProperty> found;
  for (ContentEntry& entry : content) {
    found.emplace_back(std::move(entry.name), entry.size, static_cast<long>(entry.created), entry.type);
    found.back().setContentAutoDiscovered(entry.autoDiscovered);
  }
  properties.splice(properties.end(), found);
  return 0;
}

int ApplProperties::setProperties(const std::list<MySqlProperty>& properties) {
  std::vector<ContentEntry> content;
  content.reserve(properties.size());
  for (const MySqlProperty& property : properties) {
    content.push_back({property.getType(), property.getName(), property.getSize(), property.getCreated(),
                       property.isContentAutoDiscovered()});
  }
  const Status status = services().inventory->putContent(subclientId_, content);
  return keep(status.code, status.text);
}

int ApplProperties::removeProperties(const std::list<std::string>& names) {
  const Status status = services().inventory->removeContent(subclientId_, ApplProperty::typeDatabase,
                                                            std::vector<std::string>(names.begin(), names.end()));
  return keep(status.code, status.text);
}

int MySqlSubclient::getSubclientName(std::string& name) const {
  SubclientRecord record;
  const Status status = services().inventory->findSubclient(subclientId(), record);
  if (!status.ok()) return keep(status.code, status.text);
  name = std::move(record.name);
  return 0;
}

bool MySqlSubclient::isDefaultSubclient() const {
  SubclientRecord record;
  const Status status = services().inventory->findSubclient(subclientId(), record);
  if (status.ok()) return record.isDefault;
  EvEvent().Error("MySqlSubclient::isDefaultSubclient", "subclient %lu: %s", subclientId(), status.text.c_str());
  keep(status.code, status.text);
  return false;
}

int MySqlSubclient::getForceFull(bool& forceFull) const {
  SubclientRecord record;
  const Status status = services().inventory->findSubclient(subclientId(), record);
  if (!status.ok()) return keep(status.code, status.text);
  forceFull = record.forceFull;
  return 0;
}

int MySqlSubclient::SetForceFull(bool forceFull) {
  const Status status = services().inventory->setForceFull(subclientId(), forceFull);
  return status.ok() ? 0 : keep(status.code, status.text);
}

int ClientApplicationList::getSubclientList(std::list<unsigned long>& ids, std::list<std::string>& names, unsigned long,
                                            unsigned long backupSetId, const char*, int kind) {
  if (kind != subclientsOfBackupSet) return orrery::platform::statusInvalid;
  std::vector<SubclientRecord> subclients;
  const Status status = services().inventory->listSubclients(backupSetId, subclients);
  if (!status.ok()) return status.code;
  std::list<unsigned long> foundIds;
  std::list<std::string> foundNames;
  for (SubclientRecord& subclient : subclients) {
    foundIds.push_back(subclient.id);
    foundNames.push_back(std::move(subclient.name));
  }
  ids.splice(ids.end(), foundIds);
  names.splice(names.end(), foundNames);
  return 0;
}
