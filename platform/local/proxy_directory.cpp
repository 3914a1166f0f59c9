#include "proxy_directory.h"

#include "failure.h"

namespace orrery::platform::local {

Status ProxySettings::installDirectory(const ProxyRequest& request, std::optional<std::string>& directory) {
  return guarded([&] {
    const std::string anyVersion = std::to_string(request.clientId) + "/" + std::to_string(request.applicationType);
    std::optional<std::string> found;
    for (const std::string& key : {anyVersion + "/" + request.version, anyVersion}) {
      if (Status status = settings_->read("Proxy", key, found); !status.ok()) throw Failure(std::move(status));
      if (found && !found->empty()) break;
      found.reset();
    }
    directory = std::move(found);
  });
}

}  // namespace orrery::platform::local
