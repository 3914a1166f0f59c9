#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>

#include "orrery/platform/posix.h"

namespace orrery::test {

/// A socket in front of a server's: hands everything on, and calls `onSeen` once, before the first statement that holds
/// `text` goes to the server. So a test can act at one certain moment of a session. Throws std::runtime_error.
class StatementGate {
 public:
  enum class Then { handOn, breakConnection, breakBehind };  ///< behind: once the server has the statement

  StatementGate(std::string path, std::string serverSocket, std::string text, std::function<Then()> onSeen);
  ~StatementGate();
  StatementGate(const StatementGate&) = delete;
  StatementGate& operator=(const StatementGate&) = delete;

  const std::string& path() const noexcept { return path_; }
  bool wasSeen() const noexcept { return wasSeen_; }

 private:
  void accept();
  void serve(platform::OwnFd client);
  bool handOn(int from, int to, bool isStatement);

  const std::string path_;
  const std::string serverSocket_;
  const std::string text_;
  const std::function<Then()> onSeen_;
  std::atomic<bool> wasSeen_{false};
  std::atomic<bool> ends_{false};
  platform::OwnFd listener_;
  std::list<std::thread> connections_;
  std::thread acceptor_;
};

}  // namespace orrery::test
