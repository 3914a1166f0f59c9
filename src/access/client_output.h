#pragma once

#include <cerrno>
#include <string>
#include <string_view>

#include "orrery/platform/EvEvent.h"

namespace orrery::mysql {

enum class OutputEnd {
  complete,    ///< the client ended its output, or broke off after some: that counts as done
  brokenPipe,  ///< the pipe broke before anything came
  readFailed,  ///< read to the end, with failures on the way
};

/// Reads a client's standard output to its end and appends it to `output`. `Source` has ReadBuf and GetLastErrNo as
/// MySqlChildProcess has them.
///
/// A failure other than a broken pipe is noted, and reading goes on until the end of the output: a client that still
/// writes must not be left blocked on a full pipe. The descriptor is a blocking pipe of our own, on which the system
/// knows no other lasting failure.
template <class Source>
OutputEnd readToEnd(Source& source, std::string& output, const EvEvent& log, const char* tag) {
  constexpr long bufferSize = 1024;
  char buffer[bufferSize];
  bool failed = false;
  for (;;) {
    long length = bufferSize;
    if (source.ReadBuf(buffer, &length) == 0) {
      if (length == 0) {
        log.Debug(tag, "---END OF CHILD OUTPUT REACHED---- ");
        return failed ? OutputEnd::readFailed : OutputEnd::complete;
      }
      output.append(buffer, static_cast<std::size_t>(length));
      continue;
    }
    const int error = source.GetLastErrNo();
    if (error == EPIPE) {
      if (output.empty()) {
        log.Debug(tag, "Didn't read any data from child, Received broken pipe");
        return OutputEnd::brokenPipe;
      }
      log.Debug(tag, "---CHILD SUCCEEDED---READ %ld BYTES", static_cast<long>(output.size()));
      return OutputEnd::complete;
    }
    if (error == EAGAIN) continue;
    log.Debug(tag, "Reading Output of the Command failed; ERROR=%d", error);
    failed = true;
  }
}

/// A value as it is on the server, out of a client's batch output, which writes line feeds, tabs, nulls and backslashes
/// as \\n, \\t, \\0 and \\\\. Any other backslash stays.
std::string unescapeValue(std::string_view value);

/// Server error number in a client's error text. A line "ERROR n" gives its number: some clients print the failed
/// statement before it. Without such a line it is the second blank-separated word, or -1 when there is none.
int errorNumberIn(std::string_view text);

}  // namespace orrery::mysql
