#pragma once

#include <sys/types.h>

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
  bool otherMounts = false;
  bool otherNetwork = false;
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

class Host {
 public:
  virtual ~Host() = default;
  /// Runs a shell's command as the agent, or as another account in an empty environment; the result of the shell call.
  virtual int shell(const std::string& command, const OtherAccount* account, std::string& output,
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
  /// Empty when nobody but root and the agent can change what stands at this path; else who can, and where.
  virtual std::string whoCanReplace(const std::string& path) = 0;
  virtual uid_t agentUid() = 0;
};

std::unique_ptr<Host> realHost();

}  // namespace orrery::mysql::discovery
