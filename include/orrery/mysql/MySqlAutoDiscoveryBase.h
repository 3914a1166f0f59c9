#pragma once

/// Discovery of the servers that run on a host, from the outside: no connection to any of them is made.

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "orrery/mysql/DiscoveryExplanation.h"
#include "orrery/mysql/export.h"
#include "orrery/platform/CKyError.h"
#include "orrery/platform/EvEvent.h"

namespace orrery::mysql::discovery {
class Host;
struct OtherAccount;
struct Pass;
struct PathVerdict;
}  // namespace orrery::mysql::discovery

/// One running server. Fields that could not be found are empty.
struct MysqlInstanceInfo {
  std::string strUnixUser;  ///< the account that ran the discovery
  std::string strSocketFile;
  std::string strLogDataDir;  ///< folder of the binary logs where it is known, else the data directory
  std::string strBinaryDir;
  std::string strPort;
  std::string strConfigFile;
  std::string strInstanceName;  ///< short name of the host + "_" + port
};

/// What discovery needs whatever the system. An object is used for one pass, by one thread. No exception leaves it.
class ORRERY_MYSQL_EXPORT MySqlAutoDiscoveryBase {
 public:
  /// Finds the servers; `getInstances` has them then. Success even where single servers had to be left out. An error
  /// carries the suite's code and a text.
  virtual CKyError identifyMySqlInstanceInfo() = 0;
  /// Does nothing here.
  virtual void identifyInstancesRunning();
  virtual ~MySqlAutoDiscoveryBase();
  MySqlAutoDiscoveryBase(const MySqlAutoDiscoveryBase&) = delete;
  MySqlAutoDiscoveryBase& operator=(const MySqlAutoDiscoveryBase&) = delete;

  const std::list<MysqlInstanceInfo>& getInstances() const noexcept { return m_instances; }
  /// What was seen on the way.
  const orrery::mysql::DiscoveryExplanation& getExplanation() const noexcept;
  /// Lets another end the pass: asked between processes and while a command runs. A pass that was stopped gives an
  /// error.
  void stopWhen(std::function<bool()> isStopped);
  /// Copies out the name of the host's client.
  void getClientName(std::string& clientName) const { clientName = m_clientName; }

  /// Runs a shell's command to its end. With `shellCall` through the platform's shell call, whose result becomes
  /// `processReturnCode`; otherwise "/bin/sh" is started as any program, and -1 is returned, with 1 as the return code,
  /// when that fails. 0 otherwise. A command has failed when either is not 0.
  int RunCommand(const std::string& command, std::string& output, std::string& error, int& processReturnCode,
                 bool shellCall);
  /// The value of an option in a command line, which may be quoted as a whole or behind its "="; empty when there is
  /// none. A value whose closing character is missing: the text from the option to the end.
  std::string findParamInCmdLine(const std::string& commandLine, const std::string& option);
  /// Reads the section [mysqld] of an option file. What the caller knows already stays; the port becomes "3306" where
  /// neither knows one. A file that cannot be opened changes nothing.
  void identifyInfoFromConfigFile(const std::string& path, std::string& logDir, std::string& dataDir,
                                  std::string& port);
  /// Whether the server program in a folder is of a version that can be protected: 5.2 or later. The program is run,
  /// unless somebody else could have put another in its place, see docs/decisions/0014-what-discovery-runs.md.
  bool isMysqlVersionSupported(const std::string& bindir);

 protected:
  /// `clientName`: the host's name in the inventory.
  explicit MySqlAutoDiscoveryBase(std::string clientName);
  ORRERY_MYSQL_HIDDEN MySqlAutoDiscoveryBase(std::string clientName,
                                             std::unique_ptr<orrery::mysql::discovery::Host> host);

  EvEvent m_event;
  std::string m_clientName;
  std::string m_command;  ///< the last one run
  std::string m_output;   ///< what it wrote
  std::string m_error;
  std::list<std::string> m_pids;
  std::list<MysqlInstanceInfo> m_instances;
  std::unique_ptr<orrery::mysql::discovery::Pass> m_pass;

  /// Runs `command` through the shell call and keeps it with its outputs. Whether it succeeded.
  ORRERY_MYSQL_HIDDEN bool succeeds(std::string command, int* returnCode = nullptr, int* result = nullptr);

 private:
  ORRERY_MYSQL_HIDDEN bool asksVersion(const std::string& bindir);
  ORRERY_MYSQL_HIDDEN bool asksForeign(const std::string& bindir, const orrery::mysql::discovery::PathVerdict& place,
                                       const orrery::mysql::discovery::OtherAccount& account, int& code, int& result);
};
