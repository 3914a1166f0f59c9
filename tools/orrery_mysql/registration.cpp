#include "registration.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "orrery/platform/instance_properties.h"

#include "failure.h"
#include "instance_checks.h"
#include "instance_fields.h"
#include "posix.h"

namespace orrery::tool {
namespace {

namespace property = platform::property;
using State = RegistrationOutcome::State;
using Kind = mysql::RegistrationDecision::Kind;

constexpr int mostAttempts = 5;
constexpr const char* nothingTellsIt =
    "it has no socket, and no port with a data folder, by which it could be told again";

/// The path without links; as it is where there is nothing.
std::string resolved(const std::string& path) {
  if (path.empty() || path.front() != '/') return path;
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  return error ? path : real.string();
}

std::string valueOf(const platform::InstanceRecord& record, const char* key) {
  const auto found = record.properties.find(key);
  return found == record.properties.end() ? std::string() : found->second;
}

/// The port that an instance is known by: discovery's, else that of its address.
std::string portOf(const platform::InstanceRecord& record) {
  std::string port = valueOf(record, property::port);
  const std::string socket = valueOf(record, property::socketFile);
  if (!port.empty() || socket.empty() || socket.front() == '/') return port;
  return socket.substr(socket.find(':') + 1);
}

std::vector<mysql::KnownInstance> knownInstances(Context& context, platform::Id client) {
  std::vector<platform::InstanceRecord> records;
  require(context.services().inventory->listInstances(records), "the inventory cannot be read");
  std::vector<mysql::KnownInstance> known;
  for (const platform::InstanceRecord& record : records) {
    if (record.clientId != client || record.applicationType != property::applicationTypeMySql) continue;
    known.push_back({record.name, resolved(valueOf(record, property::socketFile)), portOf(record),
                     resolved(valueOf(record, property::dataPath))});
  }
  return known;
}

std::list<MysqlInstanceInfo> withoutLinks(std::list<MysqlInstanceInfo> records) {
  for (MysqlInstanceInfo& record : records) {
    record.strSocketFile = resolved(record.strSocketFile);
    record.strLogDataDir = resolved(record.strLogDataDir);
  }
  return records;
}

const InstanceField& fieldOf(const char* key) {
  const auto fields = instanceFields();
  return *std::find_if(fields.begin(), fields.end(),
                       [&](const InstanceField& field) { return std::string_view(field.property) == key; });
}

/// The value as the inventory takes it; nothing, with the reason in the outcome, when it does not.
std::string taken(const Context& context, const char* key, const std::string& value, RegistrationOutcome& outcome) {
  const InstanceField& field = fieldOf(key);
  if (value.empty()) return {};
  const bool isPath =
      field.kind == FieldKind::path || field.kind == FieldKind::clients || field.kind == FieldKind::socket;
  try {
    // Counted from the server's folder, which is not this one.
    if (isPath && value.front() != '/') throw Failure(field.option, value + " is no absolute path");
    return checkedValue(context, field, value);
  } catch (const Failure& failure) {
    outcome.missing.emplace_back(failure.what());
    return {};
  }
}

platform::InstanceRecord toRecord(const Context& context, platform::Id client, const MysqlInstanceInfo& found,
                                  RegistrationOutcome& outcome) {
  platform::InstanceRecord record;
  record.name = outcome.instance;
  record.clientId = client;
  record.applicationType = property::applicationTypeMySql;
  const std::array<std::pair<const char*, const std::string&>, 6> values{{{property::unixUser, found.strUnixUser},
                                                                          {property::socketFile, found.strSocketFile},
                                                                          {property::dataPath, found.strLogDataDir},
                                                                          {property::binaryPath, found.strBinaryDir},
                                                                          {property::port, found.strPort},
                                                                          {property::configFile, found.strConfigFile}}};
  for (const auto& [key, value] : values) {
    std::string text = taken(context, key, value, outcome);
    if (!text.empty()) record.properties[key] = std::move(text);
  }
  if (record.properties.count(property::binaryPath) == 0) {
    record.properties[property::binaryPath] = defaultBinaryPath();
  }
  return record;
}

bool canBeToldAgain(const platform::InstanceRecord& record) {
  return record.properties.count(property::socketFile) != 0 ||
         (record.properties.count(property::port) != 0 && record.properties.count(property::dataPath) != 0);
}

/// False when another program has taken the name in the meantime.
bool addOne(Context& context, platform::Id client, const MysqlInstanceInfo& found, RegistrationOutcome& outcome) {
  try {
    checkInstanceName(outcome.instance);
  } catch (const Failure& failure) {
    outcome.state = State::refused;
    outcome.reason = failure.what();
    return true;
  }
  outcome.missing.clear();
  platform::InstanceRecord record = toRecord(context, client, found, outcome);
  if (!canBeToldAgain(record)) {
    outcome.state = State::refused;
    outcome.reason = outcome.missing.empty() ? nothingTellsIt : outcome.missing.front();
    return true;
  }
  const platform::Status status = context.services().inventory->addInstance(record, record.id);
  if (status.code == platform::statusExists) return false;
  require(status, "the instance " + record.name + " is not added");
  outcome.state = State::added;
  return true;
}

RegistrationOutcome outcomeOf(const mysql::RegistrationDecision& decision) {
  switch (decision.kind) {
    case Kind::known:
      return {State::known, decision.name, {}, {}};
    case Kind::doubtful:
      return {State::refused, decision.name, nothingTellsIt, {}};
    case Kind::add:
      break;
  }
  return {State::isNew, decision.name, {}, {}};
}

}  // namespace

std::vector<RegistrationOutcome> registerRecords(Context& context, const std::list<MysqlInstanceInfo>& records,
                                                 const std::list<MysqlInstanceInfo>& seen, bool add) {
  platform::Client client;
  require(context.services().inventory->ownClient(client), "this machine's client is not known",
          "orrery-mysql init makes it");
  std::vector<RegistrationOutcome> outcomes;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const auto decisions = mysql::planRegistration(withoutLinks(seen), knownInstances(context, client.id));
    const std::vector<RegistrationOutcome> before = std::exchange(outcomes, {});
    bool raced = false;
    auto record = records.begin();
    for (std::size_t i = 0; i < decisions.size(); ++i, ++record) {
      outcomes.push_back(outcomeOf(decisions[i]));
      // Of an attempt before this one, which another program's registration stopped half-way.
      if (i < before.size() && before[i].state == State::added) outcomes.back() = before[i];
      if (!add || raced || outcomes.back().state != State::isNew) continue;
      raced = !addOne(context, client.id, *record, outcomes.back());
    }
    if (!raced) return outcomes;
  }
  throw Failure("the servers are not all registered", "other programs take their names at the same time",
                "run orrery-mysql discover --register again");
}

}  // namespace orrery::tool
