#include "discovery/foreign_program.h"

namespace orrery::mysql::discovery {

ProgramRun howToRun(const std::string& replaceableBy, uid_t agent, const ProcessAccount& process) {
  if (replaceableBy.empty()) return {};
  const auto refuse = [&](const std::string& reason) {
    return ProgramRun{std::nullopt, replaceableBy + "; " + reason};
  };
  if (agent != 0) return refuse("only a superuser could run the program as its server's account");
  if (!process.known) return refuse("the account of the server's process is not known");
  // Whoever started a program that changes its account chose its command line.
  if (process.changed) return refuse("the server's process was started by another account than it runs as");
  if (process.uid == 0) return refuse("the server's process runs as root");
  return {OtherAccount{process.uid, process.gid}, {}};
}

}  // namespace orrery::mysql::discovery
