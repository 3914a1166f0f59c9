#include "orrery/platform/DZPlatformInfo.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "orrery/platform/DZPassword.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/services.h"

using orrery::platform::services;
using orrery::platform::Status;

namespace {

constexpr const char* settingTag = "DZPlatformInfo";

std::optional<std::string> readSetting(const char* section, const char* key) {
  std::optional<std::string> value;
  const Status status = services().settings->read(section, key, value);
  if (!status.ok()) {
    EvEvent().Error(settingTag, "setting %s/%s cannot be read: %s", section, key, status.text.c_str());
    return std::nullopt;
  }
  return value;
}

}  // namespace

const char* DZPI_Base::getOrreryTempDirectory() {
  std::string path;
  const Status status = services().directories->temporary(path);
  if (!status.ok() || path.empty()) {
    EvEvent().Error("DZPI_Base", "no temporary directory: %s", status.text.c_str());
    return nullptr;
  }
  temporary_ = std::move(path);
  return temporary_.c_str();
}

bool DZPlatformInfo::getNumber(const char* section, const char* key, long& value) const {
  value = 0;
  const std::optional<std::string> text = readSetting(section, key);
  if (!text) return false;
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text->c_str(), &end, 10);
  if (end == text->c_str() || errno == ERANGE) {
    EvEvent().Error(settingTag, "setting %s/%s is not a number: [%s]", section, key, text->c_str());
    return true;
  }
  value = number;
  return true;
}

bool DZPlatformInfo::getString(const char* section, const char* key, std::string& value) const {
  const std::optional<std::string> text = readSetting(section, key);
  value = text.value_or(std::string());
  return text.has_value();
}

std::string DZPlatformInfo::getHomeDirectory() const {
  std::string path;
  return services().directories->home(path).ok() ? path : std::string();
}

DZPI_CommClient::DZPI_CommClient(std::string name) : name_(std::move(name)) {}

int DZPI_CommClient::getClientId(unsigned long& clientId) const {
  orrery::platform::Client client;
  const Status status =
      name_.empty() ? services().inventory->ownClient(client) : services().inventory->findClient(name_, client);
  if (status.ok()) clientId = client.id;
  return status.code;
}

std::string DZPI_CommClient::getFocusClientName(bool own) const {
  return name_.empty() && own ? EvDebug::getClientName() : name_;
}

int DZPI_CommClient::getJobResultsDirectory(const std::string& focusClientName, std::string& path) const {
  return services().directories->jobResults(focusClientName, path).code;
}

int DZPI_CommClient::getBaseHomeDirectory(std::string& path) const {
  return services().directories->baseHome(path).code;
}

std::string DZPI_CommClient::getArbiterClientName() const {
  return EvDebug::getClientName();
}

int DZPassword::decrypt(const std::string& sealed, char* plain, std::size_t size) const {
  if (size == 0) return 0;
  plain[0] = '\0';
  std::string opened;
  const Status status = services().vault->open(sealed, opened);
  const bool fits = opened.size() < size && opened.find('\0') == std::string::npos;
  if (status.ok() && fits) std::memcpy(plain, opened.c_str(), opened.size() + 1);
  explicit_bzero(opened.data(), opened.size());
  if (status.ok() && fits) return 1;
  EvEvent().Error("DZPassword::decrypt", "%s",
                  status.ok() ? "the password is too long or holds a null" : status.text.c_str());
  return 0;
}
