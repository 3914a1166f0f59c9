// Which of the two modes an instance is reached in.

#include <cstdlib>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/FXString.h"

#include "session/guarded.h"

namespace {

constexpr const char* tag = "getGetMySqlInfoMode";

/// Kept: the two numbers are looked at one by one, not as a pair. Servers 5.0 and 5.1, whose client libraries are too
/// old for the binding, are meant; a version 3.23 gets library mode.
bool needsCommandMode(int major, int minor) {
  return major <= 5 && minor <= 1;
}

int probeVersion(GetMySqlInfo& probe, long instanceId, std::string& version) {
  const int result = probe.GetMySqlInfo::Init(instanceId);
  if (result == -1) {
    probe.evEvent.Debug(tag, "MySqlInfo->Init failed");
    return -1;
  }
  if (result == -2) {
    probe.evEvent.Debug(tag, "MySql server is down.");
    return -1;
  }
  if (probe.GetMySqlInfo::getVersionFromServer(version) == 0) return 0;
  probe.evEvent.Debug(tag, "Failed to MySql version.");
  return -1;
}

}  // namespace

int getGetMySqlInfoMode(long instanceId, bool& commandMode) {
  commandMode = false;
  return orrery::mysql::guarded(EvEvent(), tag, [&] {
    GetMySqlInfo probe;
    const auto useCommandMode = [&] {
      commandMode = true;
      probe.evEvent.Debug(tag, "Using Command Mode............");
      return 0;
    };
    const DZPlatformInfo settings;
    long forced = 0;
    settings.getNumber("MySQL", "sCommandMode", forced);
    if (forced != 0) return useCommandMode();
    if (instanceId == 0) {
      probe.evEvent.Debug(tag, "Instance id or binary path must be set.");
      return -1;
    }
    std::string library;
    settings.getString("MySQL", "sLibPath", library);
    if (!library.empty()) {
      probe.evEvent.Debug(tag, "Using Library Mode as sLibPath is set to [%s]............", library.c_str());
      return 0;
    }
    std::string version;
    if (probeVersion(probe, instanceId, version) != 0) return -1;
    if (version.empty()) {
      probe.evEvent.Debug(tag, "Got improper MySql version [%s].", version.c_str());
      return -1;
    }
    const std::vector<std::string> parts = FXString::Split(version, '.');
    const int major = std::atoi(parts[0].c_str());
    const int minor = parts.size() > 1 ? std::atoi(parts[1].c_str()) : 0;
    if (needsCommandMode(major, minor)) return useCommandMode();
    probe.evEvent.Debug(tag, "Using Library Mode............");
    return 0;
  });
}
