#pragma once

#include <string_view>

namespace orrery::mysql::binlog {

/// Binary logging of a session's server, as `iSessionMode` keeps it.
enum State : int { off = 0, on = 1, unknown = 2 };

// Lines that both modes write; people search logs for them.
inline constexpr char stateIsRead[] = "GetLogbinStatus Success...log bin value: %s";
inline constexpr char fillingNumbers[] = "Called with startlog and stoplog...So filling these values..";
inline constexpr char listIsEmpty[] = "Empty list returned from SHOW MASTER LOGS.";

/// The first column of one of the clients' output lines.
inline std::string_view firstColumnOf(std::string_view line) {
  return line.substr(0, line.find('\t'));
}

}  // namespace orrery::mysql::binlog
