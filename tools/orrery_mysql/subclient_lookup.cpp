#include "subclient_lookup.h"

#include <algorithm>
#include <utility>

#include "failure.h"

namespace orrery::tool {

std::vector<platform::SubclientRecord> subclientsOf(Context& context, const platform::InstanceRecord& instance) {
  platform::Inventory& inventory = *context.services().inventory;
  std::vector<platform::BackupSet> sets;
  require(inventory.listBackupSets(instance.id, sets), "the backup sets of " + instance.name + " cannot be read");
  const auto set = std::find_if(sets.begin(), sets.end(), [](const platform::BackupSet& one) { return one.isDefault; });
  if (set == sets.end()) throw Failure("the instance " + instance.name, "has no default backup set");
  std::vector<platform::SubclientRecord> subclients;
  require(inventory.listSubclients(set->id, subclients), "the subclients of " + instance.name + " cannot be read");
  return subclients;
}

platform::SubclientRecord findSubclient(Context& context, const platform::InstanceRecord& instance,
                                        const std::string& name) {
  for (platform::SubclientRecord& subclient : subclientsOf(context, instance)) {
    if (name.empty() ? subclient.isDefault : subclient.name == name) return std::move(subclient);
  }
  throw Failure("the instance " + instance.name + " has no subclient" + (name.empty() ? "" : " " + name), "",
                "orrery-mysql instance subclient list " + instance.name + " lists them");
}

ApplicationId applicationOf(const platform::InstanceRecord& instance, const platform::SubclientRecord& subclient) {
  return {static_cast<unsigned long>(instance.id), static_cast<unsigned long>(subclient.id)};
}

std::vector<platform::ContentEntry> contentOf(Context& context, const platform::SubclientRecord& subclient) {
  std::vector<platform::ContentEntry> content;
  require(context.services().inventory->listContent(subclient.id, content),
          "the content of the subclient " + subclient.name + " cannot be read");
  content.erase(
      std::remove_if(content.begin(), content.end(),
                     [](const platform::ContentEntry& entry) { return entry.type != ApplProperty::typeDatabase; }),
      content.end());
  return content;
}

std::string bareName(const std::string& listed) {
  return !listed.empty() && listed.front() == '/' ? listed.substr(1) : listed;
}

std::string listedName(const std::string& bare) {
  return "/" + bare;
}

}  // namespace orrery::tool
