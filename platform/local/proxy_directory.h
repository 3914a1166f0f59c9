#pragma once

#include <memory>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// Directories of client programs, as the section "Proxy" of the settings names them: the key is
/// "CLIENT/APPLICATION/VERSION", or "CLIENT/APPLICATION" for every version.
class ProxySettings final : public ProxyDirectory {
 public:
  explicit ProxySettings(std::shared_ptr<Settings> settings) : settings_(std::move(settings)) {}
  Status installDirectory(const ProxyRequest& request, std::optional<std::string>& directory) override;

 private:
  const std::shared_ptr<Settings> settings_;
};

}  // namespace orrery::platform::local
