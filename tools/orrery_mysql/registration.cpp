#include "registration.h"

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <filesystem>
#include <memory>
#include <set>
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
constexpr const char* notByThese =
    "its record has no socket, and no port with a data folder, by which it could be told again";

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

/// The numeric addresses of this machine's interfaces.
std::set<std::string> ownAddresses() {
  std::set<std::string> addresses;
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return addresses;
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
  for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr) continue;
    const bool isFour = one->ifa_addr->sa_family == AF_INET;
    if (!isFour && one->ifa_addr->sa_family != AF_INET6) continue;
    std::array<char, NI_MAXHOST> text{};
    const socklen_t size = isFour ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (::getnameinfo(one->ifa_addr, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0) {
      addresses.insert(text.data());
    }
  }
  return addresses;
}

/// Whether a host's name or address, as an instance has it, is certainly this machine's. Nothing is asked for names.
bool isThisMachine(std::string host) {
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  for (char& letter : host) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  if (host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0) return true;
  std::array<char, HOST_NAME_MAX + 1> name{};
  std::string own = ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
  for (char& letter : own) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  if (!own.empty() && (host == own || host == own.substr(0, own.find('.')))) return true;
  return ownAddresses().count(host) != 0;
}

/// What an instance is known by. One that is reached over TCP on another machine is none of this one's servers.
mysql::KnownInstance knownBy(const platform::InstanceRecord& record) {
  const std::string socket = valueOf(record, property::socketFile);
  std::string port = valueOf(record, property::port);
  const bool isAddress = !socket.empty() && socket.front() != '/';
  const std::size_t colon = socket.rfind(':');
  if (isAddress && !isThisMachine(socket.substr(0, colon))) return {record.name, {}, {}, {}};
  if (isAddress && port.empty() && colon != std::string::npos) port = socket.substr(colon + 1);
  return {record.name, resolved(socket), port, resolved(valueOf(record, property::dataPath))};
}

std::vector<mysql::KnownInstance> knownInstances(Context& context, platform::Id client) {
  std::vector<platform::InstanceRecord> records;
  require(context.services().inventory->listInstances(records), "the inventory cannot be read");
  std::vector<mysql::KnownInstance> known;
  for (const platform::InstanceRecord& record : records) {
    if (record.clientId != client || record.applicationType != property::applicationTypeMySql) continue;
    known.push_back(knownBy(record));
  }
  return known;
}

/// Without what is certainly another process's.
MysqlInstanceInfo corrected(MysqlInstanceInfo record, const mysql::ServerProcess& process) {
  for (const mysql::DiscoveryHint& hint : process.hints) {
    if (hint.replaces && hint.option == "--socket") record.strSocketFile = hint.value;
    if (hint.replaces && hint.option == "--port") record.strPort = hint.value;
  }
  return record;
}

/// With what could be seen besides, and paths without links.
mysql::SeenServer seen(const FoundServer& found) {
  mysql::SeenServer server{corrected(found.record, *found.process), {}, {}, found.process->claimedBecause};
  for (const mysql::DiscoveryHint& hint : found.process->hints) {
    if (hint.option == "--socket" && server.record.strSocketFile.empty()) server.record.strSocketFile = hint.value;
    if (hint.option == "--port") server.ports.push_back(hint.value);
    if (hint.option == "--data") server.dataDirectories.push_back(resolved(hint.value));
  }
  server.record.strSocketFile = resolved(server.record.strSocketFile);
  server.record.strLogDataDir = resolved(server.record.strLogDataDir);
  return server;
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

/// The value of a fact that programs of root's will trust; empty, with the reason in the outcome, when others could
/// change what stands there.
std::string trusted(const char* what, const std::string& value, const mysql::DiscoveredFact& fact,
                    RegistrationOutcome& outcome) {
  if (value.empty() || fact.replaceableBy.empty()) return value;
  outcome.missing.push_back(std::string(what) + " " + value +
                            " is left out, because others than root could change it: " + fact.replaceableBy);
  return {};
}

platform::InstanceRecord toRecord(const Context& context, platform::Id client, const FoundServer& server,
                                  RegistrationOutcome& outcome) {
  const MysqlInstanceInfo found = corrected(server.record, *server.process);
  const std::string programs =
      trusted("the folder of its programs (--bin)", found.strBinaryDir, server.process->binaryDirectory, outcome);
  const std::string optionFile =
      trusted("the option file (--config)", found.strConfigFile, server.process->configFile, outcome);
  platform::InstanceRecord record;
  record.name = outcome.instance;
  record.clientId = client;
  record.applicationType = property::applicationTypeMySql;
  const std::array<std::pair<const char*, const std::string&>, 6> values{{{property::unixUser, found.strUnixUser},
                                                                          {property::socketFile, found.strSocketFile},
                                                                          {property::dataPath, found.strLogDataDir},
                                                                          {property::binaryPath, programs},
                                                                          {property::port, found.strPort},
                                                                          {property::configFile, optionFile}}};
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
bool addOne(Context& context, platform::Id client, const FoundServer& found, RegistrationOutcome& outcome) {
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
    outcome.reason = outcome.missing.empty() ? notByThese : outcome.missing.front();
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
      return {State::refused, decision.name, decision.reason, {}};
    case Kind::add:
      break;
  }
  return {State::isNew, decision.name, {}, {}};
}

}  // namespace

std::vector<RegistrationOutcome> registerRecords(Context& context, const std::vector<FoundServer>& found, bool add) {
  platform::Client client;
  require(context.services().inventory->ownClient(client), "this machine's client is not known",
          "orrery-mysql init makes it");
  std::vector<mysql::SeenServer> servers;
  servers.reserve(found.size());
  for (const FoundServer& server : found) servers.push_back(seen(server));
  std::vector<RegistrationOutcome> outcomes;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    const auto decisions = mysql::planRegistration(servers, knownInstances(context, client.id));
    const std::vector<RegistrationOutcome> before = std::exchange(outcomes, {});
    bool raced = false;
    for (std::size_t i = 0; i < decisions.size(); ++i) {
      outcomes.push_back(outcomeOf(decisions[i]));
      // Of an attempt before this one, which another program's registration stopped half-way.
      if (i < before.size() && before[i].state == State::added) outcomes.back() = before[i];
      if (!add || raced || outcomes.back().state != State::isNew) continue;
      raced = !addOne(context, client.id, found[i], outcomes.back());
    }
    if (!raced) return outcomes;
  }
  throw Failure("the servers are not all registered", "other programs take their names at the same time",
                "run orrery-mysql discover --register again");
}

}  // namespace orrery::tool
