#include "instance_lookup.h"

#include <charconv>
#include <vector>

#include "orrery/platform/instance_properties.h"

#include "failure.h"
#include "instance_checks.h"

namespace orrery::tool {
namespace {

constexpr const char* kCannotRead = "the inventory cannot be read";

[[noreturn]] void throwUnknown(const std::string& nameOrId) {
  throw Failure("there is no instance " + nameOrId, "", "orrery-mysql instance list shows those there are");
}

platform::InstanceRecord findById(Context& context, const std::string& text) {
  platform::Id id = 0;
  const bool fits = std::from_chars(text.data(), text.data() + text.size(), id).ec == std::errc();
  platform::InstanceRecord record;
  if (!fits || id == 0) throwUnknown(text);
  const platform::Status status = context.services().inventory->findInstance(id, record);
  if (status.code == platform::statusNotFound) throwUnknown(text);
  require(status, kCannotRead);
  if (record.applicationType != platform::property::applicationTypeMySql) throwUnknown(text);
  return record;
}

platform::InstanceRecord findByName(Context& context, const std::string& name) {
  std::vector<platform::InstanceRecord> records;
  require(context.services().inventory->listInstances(records), kCannotRead);
  std::erase_if(records, [&](const platform::InstanceRecord& record) {
    return record.name != name || record.applicationType != platform::property::applicationTypeMySql;
  });
  if (records.empty()) throwUnknown(name);
  if (records.size() == 1) return std::move(records.front());
  std::string ids;
  for (const platform::InstanceRecord& record : records) ids += (ids.empty() ? "" : ", ") + std::to_string(record.id);
  throw Failure("several clients have an instance " + name, "", "name it by its id, one of " + ids);
}

}  // namespace

platform::InstanceRecord findInstance(Context& context, const std::string& nameOrId) {
  return looksLikeId(nameOrId) ? findById(context, nameOrId) : findByName(context, nameOrId);
}

std::string clientNameOf(Context& context, const platform::InstanceRecord& record) {
  platform::Client client;
  require(context.services().inventory->findClient(record.clientId, client), kCannotRead);
  return client.name;
}

}  // namespace orrery::tool
