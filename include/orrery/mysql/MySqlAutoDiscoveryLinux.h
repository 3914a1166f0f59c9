#pragma once

#include "orrery/mysql/MySqlAutoDiscoveryBase.h"

namespace orrery::mysql::discovery {
struct Evidence;
struct WorkingTexts;
}  // namespace orrery::mysql::discovery

/// Discovery on a Linux host: the process list, command lines in /proc, listening sockets, option files, and what a
/// server's program says of its version. Needs ps, ss, which, readlink, grep and awk. Without superuser's rights it
/// sees the sockets and programs of its own account's servers only.
class ORRERY_MYSQL_EXPORT MySqlAutoDiscoveryLinux : public MySqlAutoDiscoveryBase {
 public:
  explicit MySqlAutoDiscoveryLinux(std::string clientName);
  ORRERY_MYSQL_HIDDEN MySqlAutoDiscoveryLinux(std::string clientName,
                                              std::unique_ptr<orrery::mysql::discovery::Host> host);
  ~MySqlAutoDiscoveryLinux() override;
  MySqlAutoDiscoveryLinux(const MySqlAutoDiscoveryLinux&) = delete;
  MySqlAutoDiscoveryLinux& operator=(const MySqlAutoDiscoveryLinux&) = delete;

  /// The error 1168 when the process list cannot be read; every other obstacle costs one server its record at most, and
  /// stands in the log and in the explanation. ECANCELED, and no records, when stopWhen() ended it.
  CKyError identifyMySqlInstanceInfo() override;

  /// The folder of the programs: "bin" below a base directory, or that of the client in the search path, else that of
  /// the program that the process runs. An error when there is no such folder.
  CKyError identifyBinDir(const std::string& basedir, const std::string& pid, std::string& bindir);
  /// The folder of the program that a process runs. `bindir` is written on success only.
  CKyError identifyMysqldBindir(const std::string& pid, std::string& bindir);

 private:
  using ServerProcess = orrery::mysql::ServerProcess;
  using WorkingTexts = orrery::mysql::discovery::WorkingTexts;

  ORRERY_MYSQL_HIDDEN CKyError listProcesses();
  ORRERY_MYSQL_HIDDEN std::string readUnixUser();
  ORRERY_MYSQL_HIDDEN void describe(ServerProcess& server, const std::string& unixUser);
  ORRERY_MYSQL_HIDDEN WorkingTexts readOptions(orrery::mysql::discovery::Evidence& evidence, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN void findSocket(WorkingTexts& texts, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN bool findBinaryDirectory(WorkingTexts& texts, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN void dropForBinaryDirectory();
  ORRERY_MYSQL_HIDDEN void findPort(WorkingTexts& texts, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN void findInOptionFile(WorkingTexts& texts, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN void preferLogDirectory(WorkingTexts& texts, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN void record(const WorkingTexts& texts, const std::string& unixUser, ServerProcess& server);
  ORRERY_MYSQL_HIDDEN bool isStopped() const;
  ORRERY_MYSQL_HIDDEN std::string replacerOfClients(const std::string& folder) const;
  ORRERY_MYSQL_HIDDEN std::string instanceName(const std::string& port) const;
};
