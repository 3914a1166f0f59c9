// Backup: the databases of the instance, for the index.

#include <list>
#include <string>
#include <utility>
#include <vector>

#include "orrery/mysql/MySqlSBTBackupUtils.h"
#include "orrery/platform/IdxUtil.h"

#include "sbt/texts.h"
#include "session/guarded.h"

namespace sbt = orrery::mysql::sbt;

namespace {

constexpr const char* tag = "MySqlSBTBackupUtils::sendIndexingMetaData";
constexpr std::uint32_t container = 2;
// What the suite's index expects of an agent of this kind.
constexpr int indexVersion = 1;
constexpr int pathFlag = 1;

browseablePath_t entryOf(std::string listed) {
  browseablePath_t entry;
  // The list has the names with the slash that makes paths of them.
  entry.path = listed.empty() || listed.front() != '/' ? "/" + listed : std::move(listed);
  entry.name = entry.path.substr(1);
  entry.kind = container;
  entry.count = 1;
  return entry;
}

}  // namespace

int MySqlSBTBackupUtils::sendIndexingMetaData() {
  return orrery::mysql::guarded(event_, tag, [&] {
    if (!isInitialized_) {
      event_.Error(tag, "%s", sbt::initializationNotDone);
      return -1;
    }
    if (jobControl_ != nullptr && jobControl_->checkQuitFlag()) {
      event_.Debug(tag, "Quit Flag set. Exiting...");
      return -1;
    }
    return sendDatabases();
  });
}

int MySqlSBTBackupUtils::sendDatabases() {
  std::list<std::string> databases;
  if (session_.FetchDBList(databases) != 0) {
    event_.Error(tag, "Failed to fetch database list from MySql server.");
    jobObject_->setPendingCause(sbt::causeNoDatabaseList, sbt::causeMessageType);
    return -1;
  }
  const std::string& image = args_.indexImageFirst.empty() ? args_.indexImage : args_.indexImageFirst;
  std::vector<browseablePath_t> paths;
  paths.reserve(databases.size());
  for (std::string& database : databases) {
    paths.push_back(entryOf(std::move(database)));
    event_.DebugLvl(tag, sbt::verbose, "adding database: [%s]", paths.back().path.c_str());
  }
  std::string clientName;
  if (session_.appId.getClientName(clientName) != 0) clientName = params_.clientNameText;
  IdxUtil index(event_, indexVersion, jobControl_.get(), clientName);
  event_.DebugLvl(tag, sbt::verbose, "calling idxUtil.addBrowseAblePath() for sending meta data ...");
  args_.applicationText[sizeof(args_.applicationText) - 1] = '\0';  // another program's text
  const int rc =
      index.addBrowseAblePath(paths, backupLevel_, image, args_.applicationInstance, args_.applicationSubclient,
                              pathFlag, jobId_, event_, kMySqlApplicationType, 0, args_.applicationText);
  if (rc != 0) {
    event_.Error(tag, "IdxUtil::addBrowseAblePath() failed with rc=%d", rc);
    return -1;
  }
  event_.Debug(tag, "addBrowseAblePath completed. Metadata has been sent to index successfully.");
  return 0;
}
