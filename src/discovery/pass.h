#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "orrery/mysql/DiscoveryExplanation.h"

#include "discovery/command_line.h"
#include "discovery/host.h"
#include "discovery/process_list.h"

namespace orrery::mysql::discovery {

/// What programs were asked with their own account's rights in one pass. They get so much time and no more, however
/// many there are, and each is asked once.
struct ForeignRuns {
  struct Program {
    dev_t device;
    ino_t inode;
    uid_t uid;
    bool operator<(const Program& other) const {
      return std::tie(device, inode, uid) < std::tie(other.device, other.inode, other.uid);
    }
  };
  struct Answer {
    bool succeeded;
    int code;
    std::string output;
    std::string errors;
  };
  std::map<Program, Answer> answers;
  std::int64_t millisecondsLeft = 60000;
};

/// What one pass keeps beside its results; the lower half is that of the process which is being described.
struct Pass {
  explicit Pass(std::unique_ptr<Host> theHost) : host(std::move(theHost)) {}

  void begin(const std::string& pid) {
    process = host->open(pid);
    account = {};
    configText.clear();
    refusal.clear();
    programNote.clear();
    places = {};
    binarySource = logSource = portSource = FactSource::nowhere;
  }

  void finish() {
    process.reset();
    for (ServerProcess& server : unmatched) explanation.processes.push_back(std::move(server));
    unmatched.clear();
    if (host->agentUid() == 0) return;
    explanation.hints.push_back(
        {"without superuser's rights the sockets and programs of other accounts' servers cannot "
         "be seen; run discovery as root",
         "", "", false});
  }

  std::unique_ptr<Host> host;
  DiscoveryExplanation explanation;
  std::vector<ServerProcess> unmatched;  ///< joins the explanation at the end
  CommandRules rules;                    ///< of the next command
  std::function<bool()> isStopped;       ///< the caller's wish; empty: never
  ForeignRuns foreignRuns;

  std::unique_ptr<Process> process;
  ProcessAccount account;
  ProcessPlaces places;
  std::string configText;   ///< of its option file; empty when that cannot be read
  std::string refusal;      ///< why the version of its program does not count
  std::string programNote;  ///< why its program ran with its own rights
  FactSource binarySource = FactSource::nowhere;
  FactSource logSource = FactSource::nowhere;
  FactSource portSource = FactSource::nowhere;
};

/// What the hints on one process are made of.
struct Evidence {
  std::string bytes;      ///< of the command line
  WorkingTexts fromLine;  ///< as the rules read it
  WorkingTexts texts;     ///< as the rules leave them
};

/// Adds what the rules miss to the explanation of the process that `pass` holds.
void addHints(const Evidence& evidence, Pass& pass, ServerProcess& server);

/// Remembers processes that run a server's program under another title.
void addUnmatched(const std::vector<ListedProcess>& others, Pass& pass);

/// Adds that a program is not installed, if an error output says so.
void addMissingProgram(const std::string& errors, const char* program, const char* package,
                       DiscoveryExplanation& explanation);

}  // namespace orrery::mysql::discovery
