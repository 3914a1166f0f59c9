#include "discovery/foreign_program.h"

namespace orrery::mysql::discovery {

ProgramRun howToRun(const PathVerdict& program, uid_t agent, const ProcessAccount& account,
                    const ProcessPlaces& places) {
  const auto refuse = [&](const std::string& reason) { return ProgramRun{std::nullopt, program.doubt(), reason}; };
  if (places.otherMounts) return refuse("its process has other folders than the agent, as in a container");
  if (places.otherUsers) return refuse("its process has a user namespace of its own");
  if (!program.refusal.empty()) return refuse(program.refusal);
  if (program.doubt().empty()) return {};
  const auto others = [&](const std::string& reason) {
    return refuse("others could have put it there: " + program.doubt() + "; " + reason);
  };
  const bool isOwn = account.known && !account.changed && account.uid == agent;
  // Whoever could bring such a file system along is the one who asks.
  if (program.replaceableBy.empty() && isOwn && agent != 0) return {};
  if (places.unseen) return others("the namespaces of the server's process cannot be seen");
  if (agent != 0) return others("only a superuser could run the program as its server's account");
  if (!account.known) return others("the account of the server's process is not known");
  // Whoever started a program that changes its account chose its command line.
  if (account.changed) return others("the server's process was started by another account than it runs as");
  if (account.uid == 0) return others("the server's process runs as root");
  return {OtherAccount{account.uid, account.gid}, program.doubt(), {}};
}

}  // namespace orrery::mysql::discovery
