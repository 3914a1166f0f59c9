#pragma once

#include <sys/types.h>

#include <string>

#include "context.h"

namespace orrery::tool {

class ServerSession;

struct ReplicationStatus {
  bool isReplica = true;
  bool isRunning = false;
  bool isPartial = false;
  bool isHeld = false;      ///< stopped, and the counter says that a backup did it
  bool isApplying = false;  ///< carries out what it has of its primary's changes, also without reaching it
  bool isFetching = false;  ///< gets changes from its primary, or tries to reach it

  /// Whether holding it keeps it from changing, and letting it go brings it back to this state.
  bool canBeHeld() const noexcept { return isReplica && (isRunning || isHeld || (isApplying && isFetching)); }
};
/// Throws Failure when the server does not tell.
ReplicationStatus readReplication(ServerSession& server);
/// "no replica", "held", "running", "running in part", "running without its primary", "stopped in part" or "stopped".
const char* stateText(const ReplicationStatus& status);

/// A replica that this program keeps stopped, together with the backups that share it. Whatever ends the scope lets it
/// go. Operations throw Failure.
class HeldReplica {
 public:
  HeldReplica(Context& context, ServerSession& server) : context_(context), server_(server) {}
  ~HeldReplica();
  HeldReplica(const HeldReplica&) = delete;
  HeldReplica& operator=(const HeldReplica&) = delete;

  /// Refuses what cannot be held, see `ReplicationStatus::canBeHeld`. `commandLine` is what people will
  /// know this holder by.
  void stop(const std::string& commandLine);
  /// Tells the store which process works while the replica is held. A store that does not take it is no reason to
  /// end that work.
  void setCommand(pid_t command);
  bool isStopped() const noexcept { return isStopped_; }
  /// Does not mind an interrupt: that is when a replica must be let go, too. Nothing for a replica that is not held.
  void letGo();

 private:
  void enter(const std::string& commandLine);
  int start();

  Context& context_;
  ServerSession& server_;
  platform::Id entry_ = 0;
  bool isEntered_ = false;
  bool isStopped_ = false;
};

}  // namespace orrery::tool
