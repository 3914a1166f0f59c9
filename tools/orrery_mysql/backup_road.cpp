#include "backup_road.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/instance_properties.h"

#include "backup_job.h"
#include "backup_metadata.h"
#include "enterprise_backup.h"
#include "enterprise_job.h"
#include "failure.h"
#include "held_replica.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "manifest.h"
#include "server_session.h"
#include "subclient_lookup.h"

namespace orrery::tool {
namespace {

// Causes of the command's own, in the message catalogue.
constexpr std::uint32_t stepFailed = 0x570000F1;
constexpr std::uint32_t wasInterrupted = 0x570000F2;
constexpr std::uint32_t wasStopped = 0x570000F3;
constexpr std::uint32_t replicaNotLetGo = 0x570000F4;

constexpr std::int64_t settlingTime = 500;  // milliseconds

/// Servers with several sources tell only of the one without a name, and only that one can be held.
void requireNoNamedConnection(ServerSession& server) {
  std::string rows;
  server.attempt(
      [&](GetMySqlInfo& session) { return session.executeMySqlCommand("SHOW ALL SLAVES STATUS", rows, false); });
  (*server).clearErrors();  // servers of the other family do not know the statement
  if (!rows.empty()) {
    throw Failure("the replica of " + server.instance() + " is not held",
                  "it replicates by named connections only, which backups do not hold",
                  "stop them yourself for the time of the backup");
  }
}

std::int64_t now(Context& context) {
  return context.services().clock->now();
}

void readServer(ServerSession& server, Manifest& manifest) {
  manifest.commandMode = server.isInCommandMode();
  server.run("no version from", [&](GetMySqlInfo& session) { return session.getVersionFromServer(manifest.version); });
  server.run("the family is not known of",
             [&](GetMySqlInfo& session) { return session.isMariaDb(manifest.isMariaDb); });
}

/// Holds a replica that changes by itself. One that stands still for another reason stays as it is: what did not run
/// before must not run afterwards.
void hold(Context& context, BackupJob& job, ServerSession& server, HeldReplica& held, Manifest& manifest) {
  const ReplicationStatus status = readReplication(server);
  const bool changes = status.isRunning || status.isHeld || status.isApplying;
  if (changes) {
    manifest.heldFrom = now(context);
    held.stop("orrery-mysql backup " + server.instance() + ", job " + std::to_string(job.id()));
  } else if (status.isReplica) {
    context.note("replication does not run on " + server.instance() + "; it is left as it is");
  } else {
    requireNoNamedConnection(server);
  }
  manifest.replication = changes ? "held" : stateText(status);
  if (!status.isReplica) return;
  manifest.primaryLog = (*server).strSessionString2;
  manifest.primaryPosition = (*server).strSessionString3;
}

/// Lets the replica go and looks whether it runs again. A server may refuse to go on for reasons of its own.
void letGo(Context& context, ServerSession& server, HeldReplica& held, Manifest& manifest) {
  held.letGo();
  if (manifest.heldFrom == 0) return;
  manifest.heldUntil = now(context);
  // The first change that it cannot carry out stops it again, a moment later.
  context.services().clock->sleep(settlingTime);
  const ReplicationStatus status = readReplication(server);
  manifest.runsAgain = status.canBeHeld();
  if (!manifest.runsAgain) {
    context.note("replication of " + server.instance() + " was let go and is " + stateText(status) +
                 "; look at the server's replica status and error log");
  }
}

/// An account that may not see all databases would have those of the content counted as gone. Every server has the
/// database mysql, so an account that does not see it does not see everything. A cloud database hides it.
void requireThatNothingIsHidden(ServerSession& server, ApplicationId& application) {
  mysql::DatabasePlan plan;
  // What fails here fails in the reconciliation as well, which tells the job.
  if (server.attempt([&](GetMySqlInfo& session) { return session.planDatabasesForBackup(&application, plan); }) != 0) {
    return;
  }
  const bool seesAll = std::find(plan.server.begin(), plan.server.end(), listedName("mysql")) != plan.server.end() ||
                       (*server).IsCloudDBInstance((*server).ulClientId);
  if (seesAll || (plan.vanished.empty() && plan.missing.empty())) return;
  throw Failure("the databases are not reconciled on " + server.instance(),
                "databases of the content are not to be seen, and the account may not see them: it does not see the "
                "database mysql either",
                "grant it SHOW DATABASES, or take them out of the content with orrery-mysql databases remove");
}

void reconcile(Context& context, BackupJob& job, ServerSession& server, Manifest& manifest) {
  ApplicationId application = applicationOf(manifest.instance, manifest.subclient);
  const std::vector<platform::ContentEntry> before = contentOf(context, manifest.subclient);
  if (!before.empty()) requireThatNothingIsHidden(server, application);
  std::list<std::string> valid;
  std::list<std::string> added;
  std::map<std::string, unsigned long long> sizes;
  int reserved = 0;
  constexpr int quit = 1;
  const int rc = server.attempt([&](GetMySqlInfo& session) {
    return session.getValidDatabasesListForBackup(&application, valid, reserved, &job.control(), &job.client(), added,
                                                  sizes, manifest.level);
  });
  if (rc == quit) throw Stopped();
  if (rc != 0) server.fail("the databases are not reconciled on " + server.instance());
  const std::set<std::string_view> kept(valid.begin(), valid.end());
  for (const platform::ContentEntry& entry : before) {
    if (kept.count(entry.name) != 0) continue;
    (entry.autoDiscovered ? manifest.removed : manifest.missing).push_back(bareName(entry.name));
  }
  for (const std::string& name : valid) manifest.databases.push_back(bareName(name));
  for (const std::string& name : added) manifest.added.push_back(bareName(name));
}

/// Lists the binary logs, then rotates: every listed one is complete.
void readBinaryLogs(ServerSession& server, Manifest& manifest) {
  constexpr int on = 1;
  server.run("no list of binary logs from",
             [&](GetMySqlInfo& session) { return session.FindMasterLogs(manifest.binaryLogs, true); });
  manifest.writesBinaryLogs = (*server).iSessionMode == on;
  if (!manifest.writesBinaryLogs) return;
  server.run("no folder of binary logs from",
             [&](GetMySqlInfo& session) { return session.GetLogBinPath(manifest.binaryLogDirectory); });
}

/// Lets the replica go at the end of a backup that failed, whose own reason counts for more than a second one.
void letGoAfterFailure(Context& context, BackupJob& job, HeldReplica& held) {
  try {
    held.letGo();
  } catch (const std::exception& failure) {
    job.addCause(replicaNotLetGo, {failure.what()});
    context.note(failure.what());
  }
}

void walk(Context& context, BackupJob& job, Manifest& manifest) {
  job.step("open a session", 5);
  ServerSession server(context, std::to_string(manifest.instance.id));
  readServer(server, manifest);
  HeldReplica held(context, server);
  try {
    job.step("hold the replica", 15);
    hold(context, job, server, held, manifest);
    job.step("reconcile the databases", 30);
    reconcile(context, job, server, manifest);
    recordMetadata(context, job, server, manifest);
    job.step("find the data paths", 50);
    manifest.paths = readDataPaths(server);
    addFurtherPaths(server, manifest.paths);
    job.step("rotate and list the binary logs", 70);
    readBinaryLogs(server, manifest);
    job.step("let the replica go", 85);
    letGo(context, server, held, manifest);
  } catch (...) {
    letGoAfterFailure(context, job, held);
    throw;
  }
}

/// A manifest without a job that ended well would be believed.
class RemovedUnlessKept {
 public:
  explicit RemovedUnlessKept(std::string path) : path_(std::move(path)) {}
  ~RemovedUnlessKept() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  RemovedUnlessKept(const RemovedUnlessKept&) = delete;
  RemovedUnlessKept& operator=(const RemovedUnlessKept&) = delete;
  void keep() noexcept { path_.clear(); }

 private:
  std::string path_;
};

void noteWhatIsNotProtected(Context& context, const Manifest& manifest) {
  if (!manifest.missing.empty() && manifest.level != 2) context.note("databases of the content are not on the server");
  if (manifest.databases.empty()) {
    context.note("the subclient " + manifest.subclient.name +
                 " has no database to protect; orrery-mysql databases add " + manifest.instance.name +
                 " puts some into its content");
  }
}

void printManifest(Context& context, const Manifest& manifest, const std::string& path) {
  Json document = toJson(manifest);
  document["file"] = path;
  Table table = toTable(manifest);
  table.add({"manifest", path});
  context.print(document, table);
}

}  // namespace

void runBackup(Context& context, const BackupRequest& request) {
  Manifest manifest;
  manifest.instance = findInstance(context, request.instance);
  manifest.subclient = findSubclient(context, manifest.instance, request.subclient);
  manifest.level = request.level;
  const std::string what = "the backup of " + manifest.instance.name;
  if (isEnterprise(manifest.instance)) {
    runEnterpriseBackup(context, request, manifest.instance, manifest.subclient);
    return;
  }
  BackupJob job(context, manifest.instance, manifest.subclient, manifest.level);
  manifest.job = job.id();
  manifest.started = now(context);
  const std::string failed = what + " failed, job " + std::to_string(job.id());
  std::string path;
  try {
    walk(context, job, manifest);
    job.step("write the manifest", 95);
    manifest.finished = now(context);
    path = writeManifest(context, manifest);
    RemovedUnlessKept written(path);
    const bool isWhole =
        manifest.runsAgain && manifest.notRecorded.empty() && (manifest.missing.empty() || manifest.level == 2);
    job.complete(isWhole ? DZJobStatus::success : DZJobStatus::completedWithErrors);
    written.keep();
  } catch (const Interrupted&) {
    job.addCause(wasInterrupted, {signalText(interruptSignal()), job.stepText()});
    throw;
  } catch (const Stopped&) {
    job.addCause(wasStopped, {job.stepText()});
    throw Failure(failed, "the job was asked to stop");
  } catch (const std::exception& error) {
    job.addCause(stepFailed, {job.stepText(), error.what()});
    throw Failure(failed, std::string("in the step '") + job.stepText() + "': " + error.what());
  }
  printManifest(context, manifest, path);
  noteWhatIsNotProtected(context, manifest);
}

}  // namespace orrery::tool
