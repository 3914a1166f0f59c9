// Replication status over the command line.

#include <list>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "session/guarded.h"

int GetMySqlInfo::getReplicationStatus(bool& running, bool& partial, int& status, std::string& text) {
  constexpr const char* tag = "<<FALLBACK>> GetMySqlInfo::getReplicationStatus";
  running = false;  // whatever fails, nothing runs that was not seen to
  return orrery::mysql::guarded(evEvent, tag, [&] {
    std::string output;
    std::list<std::string> values;
    // Kept: a server that is no replica has no row, and that is a failure here, unlike over the library.
    if (executeMySqlCommand("SHOW SLAVE STATUS\\G", output, false) == 0 && MakeListFromBuffer(output, values) == 0 &&
        ProcessReplicationStatusOutput(values, running, partial, status, text) == 0) {
      return 0;
    }
    evEvent.Debug(tag, "failed...");
    return -1;
  });
}
