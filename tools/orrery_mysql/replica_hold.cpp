#include "replica_hold.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "failure.h"
#include "interrupt.h"
#include "posix.h"
#include "process_mark.h"
#include "server_session.h"
#include "user_program.h"

namespace orrery::tool {
namespace {

/// The program's file, found before anything is stopped for it.
std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    if (isExecutable(name)) return name;
    throw Failure("the command " + name + " cannot be run", errorText(errno));
  }
  std::istringstream folders(environmentVariable("PATH"));
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string path = (folder.empty() ? "." : folder) + "/" + name;
    if (!name.empty() && isExecutable(path)) return path;
  }
  throw Failure("the command " + name + " cannot be run", "it is not in PATH");
}

/// A replica that this program keeps stopped. Whatever ends the scope lets it go.
class HeldReplica {
 public:
  HeldReplica(Context& context, ServerSession& server) : context_(context), server_(server) {}
  ~HeldReplica() {
    try {
      letGo();
    } catch (const std::exception& error) {
      context_.note(error.what());
    }
  }
  HeldReplica(const HeldReplica&) = delete;
  HeldReplica& operator=(const HeldReplica&) = delete;

  void stop(const std::string& commandLine) {
    platform::ReplicaHolder holder;
    holder.instanceId = server_.record().id;
    holder.process = markOf(::getpid());
    holder.commandLine = commandLine;
    holder.since = context_.services().clock->now();
    // Entered first: a program that dies while it stops the replica is one that people look for.
    require(context_.services().holders->add(holder, entry_), "the holder of the replica cannot be entered");
    isEntered_ = true;
    server_.run("the replica is not held on", [&](GetMySqlInfo& session) {
      const int rc = session.StopSlave();
      // Not the result: a stop that could not be counted has stopped the replica all the same.
      isStopped_ = session.bSlaveStoppedBySession;
      return rc;
    });
  }

  /// Tells the store which process works while the replica is held. A store that does not take it is no reason to
  /// end that work.
  void setCommand(pid_t command) {
    const platform::Status status = context_.services().holders->setCommand(entry_, markOf(command));
    if (!status.ok()) context_.note(status.text);
  }

  /// Does not mind an interrupt: that is when a replica must be let go, too.
  void letGo() {
    const Finishing toTheEnd;
    (*server_).clearErrors();
    // The result alone does not tell: a counter that cannot be read or lowered is no failure to a backup that ends.
    if (std::exchange(isStopped_, false) && ((*server_).StartSlave() != 0 || !(*server_).strErrorString.empty())) {
      isEntered_ = false;  // the entry stays and tells who left the counter raised
      const std::string& name = server_.instance();
      throw Failure("the replica of " + name + " is not let go", onOneLine((*server_).strErrorString),
                    "see orrery-mysql replica status " + name);
    }
    if (!std::exchange(isEntered_, false)) return;
    require(context_.services().holders->remove(entry_), "the holder of the replica cannot be forgotten");
  }

 private:
  Context& context_;
  ServerSession& server_;
  platform::Id entry_ = 0;
  bool isEntered_ = false;
  bool isStopped_ = false;
};

int runProgram(HeldReplica& held, const std::string& path, const std::vector<std::string>& words) {
  const HandedOnOnce once;
  UserProgram program(path, words);
  // Before it runs: were this program killed in between, nobody would know that the replica is still in use.
  held.setCommand(program.pid());
  if (interruptSignal() != 0) throw Interrupted();
  program.start();
  return program.wait();
}

std::string commandLineOf(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

}  // namespace

ReplicationStatus readReplication(ServerSession& server) {
  constexpr int noReplica = 100;
  constexpr int heldByBackup = 99;
  ReplicationStatus found;
  int code = 0;
  std::string text;
  server.run("no replication status from", [&](GetMySqlInfo& session) {
    const int rc = session.getReplicationStatus(found.isRunning, found.isPartial, code, text);
    found.isReplica = rc != noReplica;
    return found.isReplica ? rc : 0;
  });
  found.isHeld = found.isReplica && !found.isRunning && code == heldByBackup;
  found.isPartial = found.isRunning && found.isPartial;
  return found;
}

void holdReplica(Context& context, const std::string& nameOrId, const std::vector<std::string>& words) {
  if (context.access() == "command") {
    throw WrongUsage("replicas are held in library mode only: give another --access or none");
  }
  const std::string path = findProgram(words.front());
  ServerSession server(context, nameOrId, ServerSession::LibraryMode());
  const ReplicationStatus replication = readReplication(server);
  const std::string what = "the replica of " + server.instance() + " is not held";
  if (!replication.isReplica) throw Failure(what, "its server is no replica");
  if (!replication.isRunning && !replication.isHeld) {
    throw Failure(what, "replication does not run there and would be started in the end",
                  "see orrery-mysql replica status " + server.instance());
  }
  HeldReplica held(context, server);
  held.stop(commandLineOf(words));
  if (readReplication(server).isRunning) {
    throw Failure(what, "others are counted as holding it, but replication runs there",
                  "see orrery-mysql replica status " + server.instance());
  }
  // The command may take longer than servers keep an idle connection, and must not inherit this one.
  static_cast<GetMySqlInfoExt&>(*server).Disconnect();
  const int status = runProgram(held, path, words);
  // An end of the command's own, also after an interrupt, is this program's end.
  if (WIFEXITED(status)) forgetInterrupt();
  context.setExitStatus(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  try {
    held.letGo();
  } catch (const Failure& failure) {
    // After an interrupt failures are not told otherwise, and this one must be.
    if (interruptSignal() == 0) throw;
    context.note(failure.what());
  }
}

}  // namespace orrery::tool
