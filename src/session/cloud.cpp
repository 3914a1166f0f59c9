// Cloud instances: servers reached over TCP, with the client programs of this machine as their proxy.

#include <atomic>
#include <cstdint>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/UlmBackup.h"
#include "orrery/platform/instance_properties.h"

#include "session/guarded.h"

namespace property = orrery::platform::property;

int GetMySqlInfo::useProxyClients(const char* tag) {
  if (strHost.empty()) {
    evEvent.Debug(tag, "The socket is not in the format IP:Port");
    return -1;
  }
  std::string path;
  if (GetProxyBinPath(ulClientId, property::applicationTypeMySql, strVersion, path) != 0 || path.empty()) {
    evEvent.Debug(tag, "Error: Unable to fetch DB Install Directory on proxy machine");
    return -1;
  }
  strBinaryPath = path;
  return 0;
}

bool GetMySqlInfo::IsCloudDBInstance(const unsigned long& clientId) {
  // One entry for the whole process, as every session of an agent asks for the same client. Atomic in one word, so that
  // sessions on other threads see a whole entry or ask again; the top bit is the answer.
  static std::atomic<std::uint64_t> cache{0};
  constexpr std::uint64_t cloudBit = std::uint64_t{1} << 63;
  const std::uint64_t cached = cache.load();
  if ((cached & ~cloudBit) == clientId) return (cached & cloudBit) != 0;

  int type = 0;
  const int rc = ClientProperties(clientId).getClientAppType(type);
  if (rc != 0) {
    evEvent.Debug("GetMySqlInfo::IsCloudDBInstance",
                  "Error : Failed to get Client App type for client [%lu] , ErrorCode [%d] ", clientId, rc);
  }
  // Kept: a failed look-up counts as "no cloud client" until another client is asked for, or every session of a
  // machine whose management server is away would wait for it anew.
  const bool cloud = rc == 0 && type == property::clientTypeCloudDatabase;
  cache.store(clientId | (cloud ? cloudBit : 0));
  return cloud;
}

int GetMySqlInfo::GetProxyBinPath(const unsigned long& clientId, const unsigned long& appType,
                                  const std::string& version, std::string& path) {
  constexpr const char* tag = "GetMySqlInfo::GetProxyBinPath";
  return orrery::mysql::guarded(evEvent, tag, [&] {
    unsigned long ownId = 0;
    const int rc = DZPI_CommClient(EvDebug::getClientName()).getClientId(ownId);
    if (rc != 0) {
      evEvent.Debug(tag, "Unable to get proxy Client ID, error code [%d]", rc);
      return -1;
    }
    evEvent.DebugLvl(tag, 3,
                     "Calling getProxyDBInstallDir with input Client ID [%lu] , App Type [%lu] , Version [%s] , Proxy "
                     "Client ID [%lu]",
                     clientId, appType, version.c_str(), ownId);
    const Ulm::GetProxyDBInstallDirReq request{clientId, appType, version, ownId};
    Ulm::GetProxyDBInstallDirResp response;
    if (UlmBackup().getProxyDBInstallDir(request, response) != 0) {
      evEvent.Debug(tag, "UlmBackup::getProxyDBInstallDir failed");
      return -1;
    }
    if (response.error && response.error->code != 0) {
      evEvent.Debug(tag, "Response error code [%d] , error string [%s]", response.error->code,
                    response.error->text.c_str());
      return -1;
    }
    if (response.installDirectory) path = *response.installDirectory;
    return 0;
  });
}
