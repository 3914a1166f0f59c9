#include "replica_hold.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "failure.h"
#include "held_replica.h"
#include "interrupt.h"
#include "posix.h"
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

void holdReplica(Context& context, const std::string& nameOrId, const std::vector<std::string>& words) {
  if (context.access() == "command") {
    throw WrongUsage("replicas are held in library mode only: give another --access or none");
  }
  const std::string path = findProgram(words.front());
  ServerSession server(context, nameOrId, ServerSession::LibraryMode());
  HeldReplica held(context, server);
  held.stop(commandLineOf(words));
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
