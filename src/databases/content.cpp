// What the management server knows to be backed up.

#include <memory>
#include <string>
#include <utility>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/EvEvent.h"

#include "session/guarded.h"

namespace {

constexpr const char* contentTag = "getDBsFromArbiter";

struct Content {
  std::list<std::string> own;
  std::list<std::pair<std::string, int>> all;
};

void take(const EvEvent& log, const std::list<MySqlProperty>& properties, bool isOwn, Content& content) {
  for (const MySqlProperty& property : properties) {
    if (property.getType() != ApplProperty::typeDatabase) continue;
    const std::string& name = property.getName();
    const int isDiscovered = property.isContentAutoDiscovered() ? 1 : 0;
    content.all.emplace_back(name, isDiscovered);
    if (isOwn) {
      content.own.push_back(name);
      log.DebugLvl(contentTag, 2, " Appending [%s] to database list for this subclient ", name.c_str());
    }
    log.DebugLvl(contentTag, 2, " Appending database [%s] to All database list... isautoDiscovered = [%d]...",
                 name.c_str(), isDiscovered);
  }
}

}  // namespace

int getDBsFromArbiter(ApplicationId* application, std::list<std::string>& own,
                      std::list<std::pair<std::string, int>>& all, MySqlSubclient* subclient) {
  const EvEvent log;
  return orrery::mysql::guarded(log, contentTag, [&] {
    const std::unique_ptr<MySqlBackupSet> set = application == nullptr ? nullptr : application->getBackupSet();
    if (set == nullptr || subclient == nullptr) {
      log.Debug(contentTag, "the application has no backup set");
      return -1;
    }
    std::string subclientName;
    subclient->getSubclientName(subclientName);
    log.Debug(contentTag, "backup set [%lu], subclient [%s]", set->getBackupSetId(), subclientName.c_str());

    std::list<unsigned long> ids;
    std::list<std::string> names;
    const int listed = ClientApplicationList::getSubclientList(ids, names, 0, set->getBackupSetId(), nullptr,
                                                               ClientApplicationList::subclientsOfBackupSet);
    if (listed != 0) {
      log.Debug(contentTag, "ClientApplicationList::getSubclientList failed error:[%d]", listed);
      return -1;
    }
    Content content;
    std::list<MySqlProperty> properties;
    auto id = ids.begin();
    for (auto name = names.begin(); name != names.end() && id != ids.end(); ++name, ++id) {
      const MySqlSubclient each(*id);
      properties.clear();
      if (const int rc = each.getProperties(properties); rc != 0) {
        log.Debug(contentTag, "getProperties failed retCode=[%d] error=[%s]", rc, each.getErrorString(rc).c_str());
        continue;
      }
      take(log, properties, each.getSubclientId() == subclient->getSubclientId(), content);
    }
    own.splice(own.end(), content.own);
    all.splice(all.end(), content.all);
    return 0;
  });
}
