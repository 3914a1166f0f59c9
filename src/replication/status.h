#pragma once

#include <array>
#include <list>
#include <string>

namespace orrery::mysql {

/// What a server tells of its replication threads, read from the columns of its status row.
struct ReplicationStatus {
  bool isRow = false;  ///< there were enough values to tell; if not, nothing else here says anything
  /// What was not as a server's row is; empty when nothing was.
  std::string oddity;

  std::string ioState;
  std::string relayMasterLogFile;
  bool ioRuns = false;
  bool ioWorks = false;  ///< runs, or tries to reach its primary
  bool sqlRuns = false;
  /// Do_DB, Ignore_DB, Do_Table, Ignore_Table, Wild_Do_Table, Wild_Ignore_Table.
  std::array<std::string, 6> filters;
  std::string lastErrno, lastError;
  std::string execMasterLogPos;  ///< empty when what stands in its place is no position
  std::string lastIoErrno, lastIoError, lastSqlErrno, lastSqlError;

  bool runs() const noexcept { return ioRuns && sqlRuns; }
  bool isFiltered() const noexcept;
};

/// Reads the columns of one row in the server's order, or the lines of a vertical listing, which begins with a line
/// that holds "1. row". A value with line feeds takes several lines of a listing; the columns behind it are found
/// again. A listing of several rows (one per source) is read as the one of them that says least for the replica, see
/// `saysLess`.
ReplicationStatus readReplicationStatus(const std::list<std::string>& values);

/// Of the rows of one server, a replica's state is that of its worst source: one that does not run before one that
/// does, then one with filters before one without.
bool saysLess(const ReplicationStatus& status, const ReplicationStatus& than) noexcept;

}  // namespace orrery::mysql
