#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/temporary_directory.h"

namespace orrery::test {

/// A private MariaDB server of this machine's packages, in a folder of its own, run by scripts/mariadb_sandbox and
/// ended with this object. Operations throw std::runtime_error, with the server's log where it did not start.
class MariaDbSandbox {
 public:
  struct Options {
    bool tcp = false;     ///< listens on 127.0.0.1 as well, on port()
    bool tls = false;     ///< offers encryption; certificates in tlsDirectory()
    bool logBin = false;  ///< writes binary logs
    /// Folder of a running sandbox with `tcp` and `logBin`, which this one replicates.
    std::string replicaOf = {};
    std::vector<std::string> serverOptions = {};
  };

  /// Starts the server and returns when it answers.
  explicit MariaDbSandbox(const Options& options);
  MariaDbSandbox() : MariaDbSandbox(Options{}) {}
  ~MariaDbSandbox();
  MariaDbSandbox(const MariaDbSandbox&) = delete;
  MariaDbSandbox& operator=(const MariaDbSandbox&) = delete;

  const std::string& socket() const noexcept { return socket_; }
  int port() const noexcept { return port_; }  ///< 0 without `tcp`
  pid_t pid() const noexcept { return pid_; }  ///< -1 while it is stopped
  const std::string& account() const noexcept { return account_; }
  /// Of the MySQL account "agent", which may do everything.
  const std::string& agentPassword() const noexcept { return agentPassword_; }
  const std::string& directory() const noexcept { return directory_; }
  std::string dataDirectory() const { return directory_ + "/data"; }
  /// Holds ca.pem, server-cert.pem, server-key.pem, client-cert.pem, client-key.pem and other-ca.pem, which signed none
  /// of them.
  std::string tlsDirectory() const { return directory_ + "/tls"; }

  /// Runs statements as "agent" with the ordinary client; rows come back one per line, columns separated by tabs.
  std::string execute(const std::string& statements) const;

  /// Ends the server; its data stay for `start`.
  void stop();
  /// Ends the server with SIGKILL, as a crash would. The socket file stays.
  void crash();
  /// Starts a stopped or crashed server on its data.
  void start();
  /// A shell command that does the same, for whoever is to start the server; pid() does not follow.
  std::string startCommand() const;
  /// Whether the server's process has ended, which is later than its last answer.
  bool hasEnded() const;

 private:
  /// The object before its server: from here on the destructor stops whatever was started.
  struct Unstarted {};
  explicit MariaDbSandbox(Unstarted) : directory_(parent_ / "db"), socket_(directory_ + "/s.sock") {}

  void readState();

  TemporaryDirectory parent_;
  std::string directory_;
  std::string socket_;
  std::string account_;
  std::string agentPassword_;
  int port_ = 0;
  pid_t pid_ = -1;
  bool started_ = false;
};

}  // namespace orrery::test
