#include "held_replica.h"

#include <unistd.h>

#include <cstdint>
#include <exception>
#include <utility>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "failure.h"
#include "interrupt.h"
#include "process_mark.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

constexpr int noReplica = 100;
constexpr int heldByBackup = 99;
constexpr int mostLooks = 3;
constexpr int mostAttempts = 7;
constexpr std::int64_t firstPause = 1000;  // milliseconds; twice as long before each further attempt

/// Clients tell of a server that is no replica only by an empty answer, which the session reports as a failure.
bool answersNothing(GetMySqlInfo& session) {
  std::string rows;
  return session.executeMySqlCommand("SHOW SLAVE STATUS", rows, false) == 0 && rows.empty();
}

ReplicationStatus readOnce(ServerSession& server) {
  ReplicationStatus found;
  int code = 0;
  std::string text;
  server.run("no replication status from", [&](GetMySqlInfo& session) {
    const int rc = session.getReplicationStatus(found.isRunning, found.isPartial, code, text);
    found.isReplica = rc != noReplica && (rc == 0 || !server.isInCommandMode() || !answersNothing(session));
    return found.isReplica ? rc : 0;
  });
  if (!found.isReplica) return found;
  found.isHeld = !found.isRunning && code == heldByBackup;
  found.isPartial = found.isRunning && found.isPartial;
  found.isApplying = (*server).replicaApplies();
  found.isFetching = (*server).replicaFetches();
  return found;
}

}  // namespace

/// The row and the counter are not read at one moment: a replica that others let go in between seems to stand still by
/// itself. One that really does says so again.
ReplicationStatus readReplication(ServerSession& server) {
  ReplicationStatus status = readOnce(server);
  for (int look = 1; look < mostLooks && status.isReplica && !status.canBeHeld(); ++look) status = readOnce(server);
  return status;
}

const char* stateText(const ReplicationStatus& status) {
  if (!status.isReplica) return "no replica";
  if (status.isHeld) return "held";
  if (status.isRunning) return status.isPartial ? "running in part" : "running";
  if (!status.isApplying) return "stopped";
  return status.isFetching ? "running without its primary" : "stopped in part";
}

HeldReplica::~HeldReplica() {
  try {
    letGo();
  } catch (const std::exception& error) {
    context_.note(error.what());
  }
}

void HeldReplica::enter(const std::string& commandLine) {
  platform::ReplicaHolder holder;
  holder.instanceId = server_.record().id;
  holder.process = markOf(::getpid());
  holder.commandLine = commandLine;
  holder.since = context_.services().clock->now();
  require(context_.services().holders->add(holder, entry_), "the holder of the replica cannot be entered");
  isEntered_ = true;
}

void HeldReplica::stop(const std::string& commandLine) {
  const std::string& name = server_.instance();
  const std::string what = "the replica of " + name + " is not held";
  const std::string look = "see orrery-mysql replica status " + name;
  const ReplicationStatus replication = readReplication(server_);
  if (!replication.isReplica) throw Failure(what, "its server is no replica");
  if (!replication.canBeHeld()) {
    const std::string state = replication.isApplying ? "is stopped in part" : "does not run";
    throw Failure(what, "replication " + state + " there and would be started in the end", look);
  }
  if (server_.isInCommandMode()) {
    // There nobody counts who holds it, and the first to let go would start it under the others.
    throw Failure(what, "replicas are held in library mode only", "see orrery-mysql mode " + name);
  }
  // Entered first: a program that dies while it stops the replica is one that people look for.
  enter(commandLine);
  server_.run("the replica is not held on", [&](GetMySqlInfo& session) {
    const int rc = session.StopSlave();
    // Not the result: a stop that could not be counted has stopped the replica all the same.
    isStopped_ = session.bSlaveStoppedBySession;
    return rc;
  });
  if (readReplication(server_).isRunning) {
    throw Failure(what, "others are counted as holding it, but replication runs there",
                  look + ", and orrery-mysql replica release --stale " + name + " if they are gone");
  }
}

void HeldReplica::setCommand(pid_t command) {
  const platform::Status status = context_.services().holders->setCommand(entry_, markOf(command));
  if (!status.ok()) context_.note(status.text);
}

void HeldReplica::letGo() {
  const Finishing toTheEnd;
  // The result alone does not tell: a counter that cannot be read or lowered is no failure to a backup that ends.
  if (std::exchange(isStopped_, false) && (start() != 0 || !(*server_).strErrorString.empty())) {
    isEntered_ = false;  // the entry stays and tells who left the counter raised
    const std::string& name = server_.instance();
    throw Failure("the replica of " + name + " is not let go", onOneLine((*server_).strErrorString),
                  "see orrery-mysql replica status " + name);
  }
  if (!std::exchange(isEntered_, false)) return;
  require(context_.services().holders->remove(entry_), "the holder of the replica cannot be forgotten");
}

/// A connection that is lost just then is made again, also when the server takes a minute to come back: nobody else
/// will start this replica.
int HeldReplica::start() {
  auto& session = static_cast<GetMySqlInfoExt&>(*server_);
  std::int64_t pause = firstPause;
  for (int attempt = 1;; ++attempt, pause *= 2) {
    session.clearErrors();
    const int rc = session.StartSlave();
    if (rc == 0 || !isClientError(session.iErrorCode) || attempt == mostAttempts) return rc;
    session.Disconnect();
    context_.services().clock->sleep(pause);
  }
}

}  // namespace orrery::tool
