#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What discovery asks the machine. The real one is made by realHost(); tests bring recorded ones.
namespace orrery::mysql::discovery {

/// Whose a process is.
struct ProcessAccount {
  bool known = false;
  bool changed = false;  ///< its real, effective and saved ids differ: it was started by somebody else than it runs as
  uid_t uid = 0;
  gid_t gid = 0;
  std::string name;  ///< digits when the machine knows no name
};

/// Where a process lives. Texts are empty where that cannot be seen.
struct ProcessPlaces {
  std::string executable;
  std::string workingDirectory;
  std::string root;
  bool otherMounts = false;  ///< its root folder is another than the agent's, as in a container
  bool otherNetwork = false;
  bool otherUsers = false;  ///< it has a user namespace of its own
  bool unseen = false;      ///< whether its namespaces are the agent's cannot be seen
};

struct ListeningSockets {
  std::vector<std::string> paths;
  std::vector<unsigned> ports;
};

/// One process, held so that its id cannot become another's unseen: once it has ended every question fails.
class Process {
 public:
  virtual ~Process() = default;
  /// The bytes of its command line; false when it cannot be opened.
  virtual bool commandLine(std::string& bytes) = 0;
  virtual ProcessAccount account() = 0;
  virtual ProcessPlaces places() = 0;
  /// Those of this very process; nothing when that cannot be seen.
  virtual std::optional<ListeningSockets> sockets() = 0;
};

/// A command's account where it is not the agent's own.
struct OtherAccount {
  uid_t uid = 0;
  gid_t gid = 0;
};

/// How a command is run.
struct CommandRules {
  std::optional<OtherAccount> account;  ///< nothing: as the agent; otherwise in an empty environment as well
  std::int64_t milliseconds = 60000;    ///< after which it is ended
  bool dropsLongLines = false;          ///< of its output, instead of failing
  const std::function<bool()>* isStopped = nullptr;  ///< asked while it runs; true ends it
};

/// Whether a path can be trusted: nobody but root and the agent can change what stands there if all texts are empty.
/// Each is one sentence without a full stop.
struct PathVerdict {
  std::string replaceableBy;  ///< who else can change it, and where
  std::string ofUser;         ///< what on the way lies on a file system that a user may have brought along
  std::string refusal;        ///< why the path means nothing to anybody but the process that names it
  dev_t device = 0;           ///< of what stands there, where the way to it was walked to its end; else 0
  ino_t inode = 0;

  const std::string& doubt() const {
    return !refusal.empty() ? refusal : !replaceableBy.empty() ? replaceableBy : ofUser;
  }
};

class Host {
 public:
  virtual ~Host() = default;
  /// Runs a shell's command; the result of the shell call.
  virtual int shell(const std::string& command, const CommandRules& rules, std::string& output,
                    std::string& errors) = 0;
  /// Starts "/bin/sh" as a program; 1, or 0 with the reason.
  virtual int start(const std::string& command, std::string& output, std::string& errors, int& exitStatus,
                    std::string& reason) = 0;
  virtual std::unique_ptr<Process> open(const std::string& pid) = 0;
  virtual bool exists(const std::string& path, bool& isFile) = 0;
  /// The text of an option file; false, with the reason, when it cannot be read.
  virtual bool readOptionFile(const std::string& path, std::string& text, std::string& reason) = 0;
  /// The option files of a folder, as servers read them.
  virtual std::vector<std::string> optionFilesIn(const std::string& folder) = 0;
  virtual PathVerdict whoCanReplace(const std::string& path) = 0;
  virtual uid_t agentUid() = 0;
  /// Of a clock that only goes forward.
  virtual std::int64_t milliseconds() = 0;
};

std::unique_ptr<Host> realHost();

}  // namespace orrery::mysql::discovery
