#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "orrery/mysql/InstanceRegistration.h"

namespace orrery::mysql {
namespace {

constexpr const char* nothingTellsIt =
    "it has no socket, and no port with a data folder, by which it could be told again";

std::string withoutLastSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

/// Where a server is, as far as it may be known by it: the record's own values first.
struct Places {
  explicit Places(const SeenServer& server) : ports(server.ports) {
    ports.insert(ports.begin(), server.record.strPort);
    data.push_back(withoutLastSlashes(server.record.strLogDataDir));
    for (const std::string& folder : server.dataDirectories) data.push_back(withoutLastSlashes(folder));
    const auto isEmpty = [](const std::string& text) { return text.empty(); };
    ports.erase(std::remove_if(ports.begin(), ports.end(), isEmpty), ports.end());
    data.erase(std::remove_if(data.begin(), data.end(), isEmpty), data.end());
  }

  std::vector<std::string> ports;
  std::vector<std::string> data;
};

/// Both tell it, and neither tells the same.
bool contradict(const std::string& known, const std::vector<std::string>& seen) {
  return !known.empty() && !seen.empty() && std::find(seen.begin(), seen.end(), known) == seen.end();
}

/// What instances are known by, with their names.
class Known {
 public:
  void add(KnownInstance instance) {
    instance.dataDirectory = withoutLastSlashes(instance.dataDirectory);
    names_.insert(instance.name);
    if (!instance.port.empty() && !instance.dataDirectory.empty()) {
      byPlace_.emplace(std::pair(instance.port, instance.dataDirectory), instance.name);
    }
    if (!instance.socket.empty()) bySocket_.emplace(instance.socket, std::move(instance));
  }

  /// The one with this port and data directory; empty when there is none.
  std::string atPlace(const Places& places) const {
    for (const std::string& port : places.ports) {
      for (const std::string& data : places.data) {
        const auto found = byPlace_.find({port, data});
        if (found != byPlace_.end()) return found->second;
      }
    }
    return {};
  }

  const KnownInstance* atSocket(const std::string& socket) const {
    const auto found = bySocket_.find(socket);
    return found == bySocket_.end() ? nullptr : &found->second;
  }

  std::string freeName(const std::string& wanted) const {
    std::string name = wanted;
    for (int number = 1; names_.count(name) != 0; ++number) name = wanted + "_" + std::to_string(number);
    return name;
  }

 private:
  std::set<std::string> names_;
  std::map<std::string, KnownInstance> bySocket_;
  std::map<std::pair<std::string, std::string>, std::string> byPlace_;
};

bool canBeToldAgain(const MysqlInstanceInfo& record) {
  return !record.strSocketFile.empty() || (!record.strPort.empty() && !record.strLogDataDir.empty());
}

RegistrationDecision decide(const SeenServer& server, const Known& all) {
  using Kind = RegistrationDecision::Kind;
  const Places places(server);
  const KnownInstance* const same = all.atSocket(server.record.strSocketFile);
  const bool isAnother =
      same != nullptr && contradict(same->port, places.ports) && contradict(same->dataDirectory, places.data);
  if (same != nullptr && !isAnother) return {Kind::known, same->name, {}};
  if (const std::string name = all.atPlace(places); !name.empty()) return {Kind::known, name, {}};
  const std::string name = all.freeName(server.record.strInstanceName);
  if (isAnother) {
    return {Kind::doubtful, name,
            "its socket is that of " + same->name + ", which has another port and another data folder"};
  }
  if (!server.claimedBecause.empty()) {
    return {Kind::doubtful, name,
            "what it says of itself is not trusted, because others could have put its program there: " +
                server.claimedBecause};
  }
  if (!canBeToldAgain(server.record)) return {Kind::doubtful, name, nothingTellsIt};
  return {Kind::add, name, {}};
}

}  // namespace

std::vector<RegistrationDecision> planRegistration(const std::vector<SeenServer>& servers,
                                                   const std::vector<KnownInstance>& known) {
  Known all;
  for (const KnownInstance& instance : known) all.add(instance);
  std::vector<RegistrationDecision> decisions;
  decisions.reserve(servers.size());
  for (const SeenServer& server : servers) {
    decisions.push_back(decide(server, all));
    if (decisions.back().kind != RegistrationDecision::Kind::add) continue;
    // A script and the server that it started make two records of one server.
    const MysqlInstanceInfo& record = server.record;
    all.add({decisions.back().name, record.strSocketFile, record.strPort, record.strLogDataDir});
  }
  return decisions;
}

}  // namespace orrery::mysql
