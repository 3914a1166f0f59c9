// Clients and instances by name and by id.

#include <cstdio>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/MySqlInstance.h"

#include "sbt/texts.h"
#include "session/guarded.h"

using orrery::mysql::guarded;
using orrery::mysql::sbt::verbose;

namespace {

/// Kept: the look-up of a name by its id tells its success with the words of the look-up of an id by its name.
constexpr const char* foundClient = "Found clientId [%lu] for client [%s].";

}  // namespace

int MySqlSBTUtils::getInstanceIdFromName(std::uint64_t clientId, const std::string& instanceName,
                                         std::uint64_t& instanceId) {
  constexpr const char* tag = "MySqlSBTUtils::getInstanceIdFromName";
  return guarded(event_, tag, [&] {
    unsigned long found = 0;
    const int rc = InstanceByName::getInstanceId(clientId, kMySqlApplicationType, instanceName, found);
    if (rc != 1) {
      event_.Error(tag, "Failed to get instance Id from instance name [%s] in client [%lu]. errorCode [%d]",
                   instanceName.c_str(), clientId, rc);
      std::printf("Failed to get instance Id from instance [%s] in client [%lu]\n", instanceName.c_str(), clientId);
      return -1;
    }
    instanceId = found;
    event_.DebugLvl(tag, verbose, "Found instanceId [%lu] for client [%lu] and instance [%s].", found, clientId,
                    instanceName.c_str());
    return 0;
  });
}

int MySqlSBTUtils::getInstanceNameFromId(std::string& instanceName, std::uint64_t instanceId) {
  constexpr const char* tag = "MySqlSBTUtils::getInstanceNameFromId";
  return guarded(event_, tag, [&] {
    const int rc = Instance(instanceId).getInstanceName(instanceName);
    if (rc != 0) {
      event_.Error(tag, "Failed to get instance Name from instance id [%lu]. errorCode [%d]", instanceId, rc);
      return -1;
    }
    event_.DebugLvl(tag, verbose, "Found instanceName [%s] for instance [%lu].", instanceName.c_str(), instanceId);
    return 0;
  });
}

int MySqlSBTUtils::getClientIdFromName(const std::string& clientName, std::uint64_t& clientId) {
  constexpr const char* tag = "MySqlSBTUtils::getClientIdFromName";
  return guarded(event_, tag, [&] {
    DZClient client(clientName);
    if (const int rc = client.lookup(); rc != 0) {
      event_.Error(tag, "Failed to get properties of client [%s]. errorCode [%d]", clientName.c_str(), rc);
      std::printf("Failed to get properties of client [%s].\n", clientName.c_str());
      return -1;
    }
    clientId = client.getClientId();
    event_.DebugLvl(tag, verbose, foundClient, clientId, clientName.c_str());
    return 0;
  });
}

int MySqlSBTUtils::getClientNameFromId(std::string& clientName, std::uint64_t clientId) {
  constexpr const char* tag = "MySqlSBTUtils::getClientNameFromId";
  return guarded(event_, tag, [&] {
    DZClient client(clientId);
    if (const int rc = client.lookup(); rc != 0) {
      event_.Error(tag, "Failed to get properties of client [%lu]. errorCode [%d]", clientId, rc);
      std::printf("Failed to get properties of client [%lu].\n", clientId);
      return -1;
    }
    clientName = client.getName();
    event_.DebugLvl(tag, verbose, foundClient, clientId, clientName.c_str());
    return 0;
  });
}
