// Which databases a backup has to protect, and what it tells and changes on the way there.

#include "databases/reconciliation.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DZJobClient.h"

#include "session/guarded.h"

using orrery::mysql::DatabaseContent;
using orrery::mysql::DatabasePlan;
using orrery::mysql::guarded;

namespace orrery::mysql {
namespace {

using Views = std::vector<std::string_view>;

/// Names to look up. They stay their lists' own: none is copied.
class NameSet {
 public:
  explicit NameSet(Views names) : names_(std::move(names)) { std::sort(names_.begin(), names_.end()); }
  const Views& sorted() const noexcept { return names_; }
  bool has(std::string_view name) const { return std::binary_search(names_.begin(), names_.end(), name); }

 private:
  Views names_;
};

NameSet namesOf(const std::list<std::string>& list) {
  return NameSet(Views(list.begin(), list.end()));
}

NameSet namesOf(const std::list<std::pair<std::string, int>>& entries) {
  Views names;
  names.reserve(entries.size());
  for (const auto& [name, isDiscovered] : entries) names.push_back(name);
  return NameSet(std::move(names));
}

}  // namespace

void spellLikeServer(DatabaseContent& content) {
  for (auto& [name, isDiscovered] : content.all) {
    if (!name.empty() && name.front() == '\\') name.front() = '/';
  }
}

// Kept: the own list is not spelled like the server's. What it holds is what the content holds, so a name with a
// backslash before it reaches the valid list as it is, and is never gone.
DatabasePlan reconcile(std::list<std::string> server, const DatabaseContent& content, bool discovers) {
  DatabasePlan plan;
  plan.server = std::move(server);
  const NameSet onServer = namesOf(plan.server);
  if (discovers) {
    const NameSet known = namesOf(content.all);
    Views unknown;
    std::set_difference(onServer.sorted().begin(), onServer.sorted().end(), known.sorted().begin(),
                        known.sorted().end(), std::back_inserter(unknown));
    plan.discovered.assign(unknown.begin(), unknown.end());
  }

  const NameSet own = namesOf(content.own);
  Views goneNames;
  // Kept: an entry that occurs twice is handled twice, in events and counts too.
  for (const auto& [name, isDiscovered] : content.all) {
    if (!own.has(name) || onServer.has(name)) continue;
    (isDiscovered != 0 ? plan.vanished : plan.missing).push_back(name);
    goneNames.push_back(name);
  }
  const NameSet gone(std::move(goneNames));

  for (const std::string& name : content.own) {
    if (!gone.has(name)) plan.valid.push_back(name);
  }
  plan.valid.insert(plan.valid.end(), plan.discovered.begin(), plan.discovered.end());
  return plan;
}

}  // namespace orrery::mysql

namespace {

constexpr std::uint32_t databasesMissing = 0x5700001c;
constexpr std::uint32_t databasesRemoved = 0x57000020;
constexpr std::uint32_t serverListFailed = 0x57000034;
constexpr std::uint32_t contentListFailed = 0x57000035;
constexpr int causeType = 300;
constexpr int kindWithoutReport = 2;
constexpr int quitRequested = 1;

std::string join(const std::list<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) {
    if (!joined.empty()) joined += ',';
    joined += name;
  }
  return joined;
}

/// One reconciliation of a session: the two sides read, and the steps that carry the plan out, in the order in which
/// they are called.
class Reconciliation {
 public:
  Reconciliation(GetMySqlInfo& session, const char* tag, DZBkpJobClient* job)
      : session_(session), log_(session.evEvent), tag_(tag), job_(job) {}

  int read(ApplicationId* application);
  int addDiscovered(const DZJobCtrlClient* jobControl, std::map<std::string, unsigned long long>& sizes);
  void tellGone() const;
  void removeVanished();
  void tellValid() const;
  void reportMissing();

  const DatabasePlan& plan() const noexcept { return plan_; }
  DatabasePlan takePlan() { return std::move(plan_); }
  bool discovers() const noexcept { return discovers_; }

 private:
  int failWith(const char* text, std::uint32_t cause);
  MySqlProperty propertyOf(const std::string& name, std::map<std::string, unsigned long long>& sizes);

  GetMySqlInfo& session_;
  EvEvent& log_;
  const char* tag_;
  DZBkpJobClient* job_;  // null: nobody is told
  std::unique_ptr<MySqlSubclient> subclient_;
  bool discovers_ = false;
  DatabaseContent content_;
  DatabasePlan plan_;
};

int Reconciliation::failWith(const char* text, std::uint32_t cause) {
  log_.Debug(tag_, "%s", text);
  if (job_ != nullptr) job_->setPendingCause(cause, causeType);
  return -1;
}

int Reconciliation::read(ApplicationId* application) {
  if (application != nullptr) subclient_ = application->getSubclient();
  if (subclient_ == nullptr) {
    log_.Debug(tag_, "ApplicationId::getSubclient() returned NULL");
    return -1;
  }
  discovers_ = subclient_->isDefaultSubclient() && session_.iDbAutoDiscovery == 1;
  std::list<std::string> server;
  if (session_.FetchDBList(server) != 0) return failWith("getDBsFromMySql failed ", serverListFailed);
  if (getDBsFromArbiter(application, content_.own, content_.all, subclient_.get()) != 0) {
    return failWith("getDBsFromArbiter failed ", contentListFailed);
  }
  // Asked once: it is the same client for every name.
  if (session_.IsCloudDBInstance(session_.ulClientId)) orrery::mysql::spellLikeServer(content_);
  for (const auto& [name, isDiscovered] : content_.all) log_.DebugLvl(tag_, 6, "db on AR: %s", name.c_str());
  plan_ = orrery::mysql::reconcile(std::move(server), content_, discovers_);
  return 0;
}

/// Kept: a database whose size cannot be read is taken all the same.
MySqlProperty Reconciliation::propertyOf(const std::string& name, std::map<std::string, unsigned long long>& sizes) {
  const std::string bareName = name.substr(1);
  unsigned long long size = 0;
  std::string created;
  // Kept: library mode takes the bare name for a LIKE pattern. The size of a_b has the bytes of axb in it.
  if (session_.getDBProps(bareName, created, size) != 0) {
    log_.Debug(tag_, "getDBProps failed for [%s] database", bareName.c_str());
  }
  sizes.emplace(name, size);
  MySqlProperty property(name, static_cast<std::int64_t>(size), std::strtol(created.c_str(), nullptr, 10), 0);
  property.setContentAutoDiscovered();
  log_.Debug(tag_, "Marking [ %s ] database auto discovered ", bareName.c_str());
  return property;
}

int Reconciliation::addDiscovered(const DZJobCtrlClient* jobControl, std::map<std::string, unsigned long long>& sizes) {
  log_.Debug(tag_, "This is Default subclient and Auto Discovery is enabled");
  std::list<MySqlProperty> properties;
  for (const std::string& name : plan_.discovered) {
    properties.push_back(propertyOf(name, sizes));
    if (jobControl != nullptr && jobControl->checkQuitFlag()) {
      log_.Debug(tag_, "jobControl QuitFlag is ON - quitting scan");
      return quitRequested;
    }
  }
  if (subclient_->setProperties(properties) != 0) {
    log_.Debug(tag_, "Sending new database properties failed... ");
    return -1;
  }
  log_.Debug(tag_, "New Database Properties Sent to Arbiter...");
  return 0;
}

/// The lines stand in the order of all entries. The plan has the same order in two lists, and whether a database is
/// gone depends on its name alone; so the next entry that is the first of its list is that one.
void Reconciliation::tellGone() const {
  auto vanished = plan_.vanished.begin();
  auto missing = plan_.missing.begin();
  for (const auto& [name, isDiscovered] : content_.all) {
    if (isDiscovered != 0 && vanished != plan_.vanished.end() && *vanished == name) {
      ++vanished;
      log_.Debug(tag_, " Database [%s] is auto discovered and found deleted. Deleting it from Stefosteza",
                 name.c_str());
    } else if (isDiscovered == 0 && missing != plan_.missing.end() && *missing == name) {
      ++missing;
      log_.Debug(tag_, " Database [%s] is found deleted and not auto discovered", name.c_str());
    }
  }
}

void Reconciliation::removeVanished() {
  std::string subclientName;
  subclient_->getSubclientName(subclientName);
  // Kept: a content that cannot be brought up to date does not stop the backup of what is there.
  if (subclient_->removeProperties(plan_.vanished) != 0) {
    log_.Debug(tag_, "MySqlSubclient:removeProperties() returned error.");
  }
  // Kept: the event tells of databases that are gone, whether or not the content could be changed.
  log_ << join(plan_.vanished) << subclientName;
  log_.InformationEvent(databasesRemoved);
}

void Reconciliation::tellValid() const {
  auto valid = plan_.valid.begin();
  const auto tell = [&](const std::string& name) {
    log_.DebugLvl(tag_, 6, " checking [%s]  db in delete list", name.c_str());
    if (valid != plan_.valid.end() && *valid == name) {
      ++valid;
      log_.Debug(tag_, "Valid Databases for this backup : [ %s ] ", name.c_str());
    } else {
      log_.Debug(tag_, " The database [%s] not present on the database server", name.c_str());
    }
  };
  for (const std::string& name : content_.own) tell(name);
  for (const std::string& name : plan_.discovered) tell(name);
}

/// Kept: a database that is gone never fails the job.
void Reconciliation::reportMissing() {
  log_ << join(plan_.missing) << "MySQL";
  log_.MajorEvent(databasesMissing);
  const auto count = static_cast<std::int64_t>(plan_.missing.size());
  if (job_ == nullptr || !job_->addBackupFileFailures(count)) {
    log_.Debug(tag_, " Failed to notify the jobmanager about the failure files");
  }
}

}  // namespace

int GetMySqlInfo::getValidDatabasesListForBackup(ApplicationId* application, std::list<std::string>& valid, int&,
                                                 DZJobCtrlClient* jobControl, DZBkpJobClient* job,
                                                 std::list<std::string>& newDatabases,
                                                 std::map<std::string, unsigned long long>& sizes, int backupKind) {
  constexpr const char* tag = "GetMySqlInfo::getValidDatabasesListForBackup";
  return guarded(evEvent, tag, [&] {
    Reconciliation reconciliation(*this, tag, job);
    if (reconciliation.read(application) != 0) return -1;
    const DatabasePlan& plan = reconciliation.plan();
    newDatabases.insert(newDatabases.end(), plan.discovered.begin(), plan.discovered.end());
    if (reconciliation.discovers()) {
      if (const int rc = reconciliation.addDiscovered(jobControl, sizes); rc != 0) return rc;
    }
    reconciliation.tellGone();
    if (!plan.vanished.empty()) reconciliation.removeVanished();
    reconciliation.tellValid();
    valid.insert(valid.end(), plan.valid.begin(), plan.valid.end());
    if (!plan.missing.empty() && backupKind != kindWithoutReport) reconciliation.reportMissing();
    return 0;
  });
}

int GetMySqlInfo::planDatabasesForBackup(ApplicationId* application, DatabasePlan& plan) {
  constexpr const char* tag = "GetMySqlInfo::planDatabasesForBackup";
  return guarded(evEvent, tag, [&] {
    Reconciliation reconciliation(*this, tag, nullptr);
    if (reconciliation.read(application) != 0) return -1;
    plan = reconciliation.takePlan();
    return 0;
  });
}
