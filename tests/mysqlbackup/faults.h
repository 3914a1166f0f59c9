#pragma once

#include <cstdint>
#include <string>

#include "ending.h"

namespace orrery::standin {

/// Failures on request, for the tests of whoever runs this program. ORRERY_MYSQLBACKUP_FAULT=POINT[:N] names one:
///
///   start          before anything else
///   options        where the command line is read
///   server         where the server, or the option file of a restore, is asked
///   stream[:N]     after N MiB of the image have passed
///   media_write[:N]  writing block N of the image
///   close          closing the image
///   history        recording the backup
///   unpack         at the end of the image of a restore
///   prepare, copy_back, apply   before that step of a restore
///   silent         connects to the media, says no more, and waits to be ended
///   hang           the same, and does not end when it is told to: SIGKILL alone ends it
///   crash[:N]      SIGKILL to itself after N MiB of the image
///   no_error_line  ends with exit status 1 and without a line that begins with ERROR:
///   slow:N         N milliseconds for every MiB of the image
///
/// N is 0 when it is not given. Faults that belong to one of the two commands do nothing in the other.
class Faults {
 public:
  /// Reads the variable; throws Failure for a point that is not in the list.
  Faults();

  /// Throws Failure when this is the fault that was asked for.
  void at(const char* point) const;
  bool is(const char* point) const { return point_ == point; }
  /// Before a MiB of the image passes, `done` of which have passed: stream, crash, slow.
  void beforeBlock(std::uint64_t done, const Ending& ending) const;
  /// Before block number `index`, counted from 0, is written.
  void beforeMediaWrite(std::uint64_t index) const;
  /// When the media is connected: silent and hang.
  void onConnected(const Ending& ending) const;

 private:
  std::string point_;
  std::uint64_t number_ = 0;
};

}  // namespace orrery::standin
