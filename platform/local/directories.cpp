#include "directories.h"

#include "failure.h"

namespace orrery::platform::local {

Status HomeDirectories::temporary(std::string& path) {
  return guarded([&] { path = paths_.temporary(); });
}

Status HomeDirectories::home(std::string& path) {
  return guarded([&] { path = paths_.root; });
}

Status HomeDirectories::baseHome(std::string& path) {
  return home(path);
}

Status HomeDirectories::jobResults(const std::string& clientName, std::string& path) {
  return guarded([&] {
    if (!clientName.empty()) {
      Client client;
      if (Status status = inventory_->findClient(clientName, client); !status.ok()) throw Failure(std::move(status));
    }
    path = paths_.results();
  });
}

}  // namespace orrery::platform::local
