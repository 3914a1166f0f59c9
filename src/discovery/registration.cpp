#include <map>
#include <set>
#include <utility>

#include "orrery/mysql/InstanceRegistration.h"

namespace orrery::mysql {
namespace {

std::string withoutLastSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

/// What instances are known by, with their names.
class Known {
 public:
  void add(const KnownInstance& instance) {
    names_.insert(instance.name);
    if (!instance.socket.empty()) bySocket_.emplace(instance.socket, instance.name);
    const std::string data = withoutLastSlashes(instance.dataDirectory);
    if (!instance.port.empty() && !data.empty()) byPlace_.emplace(std::pair(instance.port, data), instance.name);
  }

  /// The name of the one with this socket, or this port and data directory; null when there is none.
  const std::string* find(const KnownInstance& server) const {
    const auto socket = bySocket_.find(server.socket);
    if (socket != bySocket_.end()) return &socket->second;
    const auto place = byPlace_.find({server.port, withoutLastSlashes(server.dataDirectory)});
    return place != byPlace_.end() ? &place->second : nullptr;
  }

  std::string freeName(const std::string& wanted) const {
    std::string name = wanted;
    for (int number = 1; names_.count(name) != 0; ++number) name = wanted + "_" + std::to_string(number);
    return name;
  }

 private:
  std::set<std::string> names_;
  std::map<std::string, std::string> bySocket_;
  std::map<std::pair<std::string, std::string>, std::string> byPlace_;
};

bool canBeToldAgain(const KnownInstance& server) {
  return !server.socket.empty() || (!server.port.empty() && !server.dataDirectory.empty());
}

}  // namespace

std::vector<RegistrationDecision> planRegistration(const std::list<MysqlInstanceInfo>& records,
                                                   const std::vector<KnownInstance>& known) {
  using Kind = RegistrationDecision::Kind;
  Known all;
  for (const KnownInstance& instance : known) all.add(instance);
  std::vector<RegistrationDecision> decisions;
  decisions.reserve(records.size());
  for (const MysqlInstanceInfo& record : records) {
    KnownInstance server{record.strInstanceName, record.strSocketFile, record.strPort, record.strLogDataDir};
    if (const std::string* name = all.find(server); name != nullptr) {
      decisions.push_back({Kind::known, *name});
    } else if (!canBeToldAgain(server)) {
      decisions.push_back({Kind::doubtful, all.freeName(record.strInstanceName)});
    } else {
      server.name = all.freeName(record.strInstanceName);
      all.add(server);  // a script and the server that it started make two records of one server
      decisions.push_back({Kind::add, server.name});
    }
  }
  return decisions;
}

}  // namespace orrery::mysql
