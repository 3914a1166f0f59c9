#pragma once

/// One time of serving: from the socket's making to its end, on one thread.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orrery/platform/DbSessionServer.h"
#include "orrery/platform/EvEvent.h"

#include "connection.h"
#include "listening_socket.h"

namespace orrery::platform::session {

class Serving {
 public:
  struct Plan {
    std::string folder;
    std::string serviceName;
    std::vector<uid_t> admitted;  ///< beside root and this process's own account
    std::chrono::milliseconds idleInterval{0};
    std::chrono::milliseconds patience{0};  ///< with a client that keeps the server waiting
    DBAgentUtils::DbSessionServer::IdleCallback idle = nullptr;
    int stop = -1;  ///< readable: the end
  };

  Serving(DBAgentUtils::DbSessionServer& server, Plan plan);

  CKyError open();
  /// Serves until the end. An error when the system refuses to wait for clients.
  CKyError run();

 private:
  using Time = Connection::Time;
  using Connections = std::map<std::uint64_t, std::unique_ptr<Connection>>;

  CKyError watch(int fd, std::uint64_t number, std::uint32_t what);
  int timeout(Time now) const;
  void accept(Time now);
  bool isAdmitted(uid_t account) const;
  void serve(Connection& connection, std::uint32_t what, Time now);
  bool serveFrames(Connection& connection, Time now);
  bool serveFrame(Connection& connection, const Frame& frame, Time now);
  CKyError deliver(Connection& connection, const Frame& frame, bool& wellFormed);
  void drop(Connection& connection, const char* reason);
  void dropOverdue(Time now);
  void noteActivity(Time now);
  bool isWordOwed() const;
  void tellIdle(Time now);

  DBAgentUtils::DbSessionServer& server_;
  const Plan plan_;
  CDzNetworkServer networkServer_;
  EvEvent event_;
  OwnFd events_;
  ListeningSocket listener_;
  bool listening_ = true;  // false: the process has no descriptors left for clients; tried again a little later
  bool toldOfShortage_ = false;
  Time listenAgain_;
  Connections connections_;
  std::uint64_t lastNumber_ = 0;
  Time idleDeadline_;
  bool clientMissing_ = true;  // none came yet, or none since one went without having told its end
};

}  // namespace orrery::platform::session
