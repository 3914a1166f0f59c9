// Restore: what comes next is a full backup, because the incremental ones would stand on a server that is no more.

#include <string>
#include <vector>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"
#include "orrery/platform/MySqlInstance.h"
#include "orrery/platform/MySqlSubclient.h"
#include "orrery/platform/services.h"

#include "session/guarded.h"

namespace {

constexpr const char* tag = "MySqlSBTRestoreUtils::setForceFullFlags";

struct Listed {
  unsigned long id;
  std::string name;
};

/// The subclients of every backup set of an instance; what cannot be listed is told by the code.
int listSubclients(unsigned long instanceId, std::vector<Listed>& subclients) {
  std::vector<orrery::platform::BackupSet> sets;
  if (const auto status = orrery::platform::services().inventory->listBackupSets(instanceId, sets); !status.ok())
    return status.code;
  for (const orrery::platform::BackupSet& set : sets) {
    std::list<unsigned long> ids;
    std::list<std::string> names;
    const int rc = ClientApplicationList::getSubclientList(ids, names, 0, set.id, nullptr,
                                                           ClientApplicationList::subclientsOfBackupSet);
    if (rc != 0) return rc;
    for (auto name = names.begin(); const unsigned long id : ids) subclients.push_back({id, *name++});
  }
  return 0;
}

}  // namespace

int MySqlSBTRestoreUtils::setForceFullFlags() {
  return orrery::mysql::guarded(event_, tag, [&] {
    const unsigned long instanceId = params_.destinationInstanceId;
    event_.Debug(tag, "RealmId [%ld] destiClientId = [%ld] destInstanceId = [%ld] ", static_cast<long>(params_.realmId),
                 static_cast<long>(params_.destinationClientId), static_cast<long>(instanceId));
    AppIdInfo application;
    if (const int rc = ApplicationId(instanceId, 0).getAppIdInfo(application); rc != 0) {
      event_.Error(tag, "AppTypeId lookup failed with retcode=[%d]", rc);
      return -1;
    }
    std::vector<Listed> subclients;
    if (const int rc = listSubclients(instanceId, subclients); rc != 0) {
      event_.Error(tag, "the subclients of instance [%lu] cannot be listed, error %d", instanceId, rc);
      return -1;
    }
    int result = 0;
    for (const Listed& listed : subclients) {
      const auto subclient = ApplicationId(instanceId, listed.id).getSubclient();
      if (subclient == nullptr) {
        event_.Error(tag, "subclient = [%s] cannot be retrived.", listed.name.c_str());
        result = -1;
        continue;
      }
      event_.Debug(tag, "Setting FORCE_FULL flag for [%s]", listed.name.c_str());
      if (subclient->SetForceFull(true) == 0) continue;
      event_.Error(tag, "SetForceFull failed");
      result = -1;
    }
    return result;
  });
}
