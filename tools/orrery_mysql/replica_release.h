#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// A holder that the home's store knows.
struct KnownHolder {
  platform::ReplicaHolder holder;
  bool isAlive = false;  ///< the program itself, or the command that it started
};

/// What is known of the backups that keep the replica of an instance stopped.
struct Holds {
  unsigned counter = 0;        ///< as the shared file says; 0 also without a file
  std::string counterProblem;  ///< why the file cannot be read; empty when it can
  std::vector<KnownHolder> known;
  /// Other processes that may be among the counted ones: they have a session on the instance, as a holder has.
  std::vector<pid_t> possible;

  unsigned alive() const;
  unsigned dead() const { return static_cast<unsigned>(known.size()) - alive(); }
  /// Holders that the counter counts and the store does not know: backups of other programs.
  unsigned unknown() const;
  /// Whether the counter says more than can be true, as far as is known, or nothing at all, or a holder died before it
  /// raised it.
  bool isStale() const { return !counterProblem.empty() || counter > alive() || (alive() == 0 && dead() > 0); }
};

/// Reads both sources. Waits a moment for a backup that works on the counter right now. Makes no file.
Holds readHolds(Context& context, platform::Id instance);

struct Release {
  unsigned counter = 0;  ///< as it stands now
  bool started = false;
  std::vector<platform::ReplicaHolder> forgotten;
};

/// Clears what dead holders left, all under the lock of the shared protocol: looks again, starts the replica with
/// `start` (0: done) when no holder is left, writes the number of living holders into the counter, and forgets the dead
/// ones. Throws Failure when the lock is not free, when something is no longer as in `seen`, which the user agreed to,
/// and when the replica does not start; the counter then stays as it was.
Release releaseStale(Context& context, const platform::InstanceRecord& instance, const Holds& seen,
                     const std::function<void()>& start);

/// Ids with commas between them.
std::string listOf(const std::vector<pid_t>& processes);

}  // namespace orrery::tool
