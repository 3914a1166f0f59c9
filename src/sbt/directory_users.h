#pragma once

#include <sys/types.h>

#include <string>

namespace orrery::mysql::sbt {

enum class Whom {
  everybody,
  allButServers,  ///< passes over what bears a name of the server's programs
};

/// Which process works in a directory: has it, or something below it, as its current or root directory, open, mapped or
/// open and deleted. A server that answers no more may still write its last pages. Links in `directory` are followed,
/// and it need not exist any more. Process `self` is left out.
///
/// A process that this account may not look into counts when it bears the name of a server, or runs as the account that
/// the directory belongs to: what it has open cannot be told. Of this account's own processes only those of a server's
/// name do, because a session has others that hide, and a server of one's own does not.
///
/// Empty: nobody. Otherwise words for people: the first process found, or why that cannot be told. `proc` is the
/// system's folder of processes.
std::string directoryUser(const std::string& directory, pid_t self, Whom whom = Whom::everybody,
                          const std::string& proc = "/proc");

/// Which file of a server in a directory or in one of its folders is locked, and by whom. A server locks the files that
/// it has open, and a lock is seen where its process is not: by another account and from another process namespace.
/// Asks for the system tablespaces, logs, undo files and a bounded number of tables.
///
/// Empty: none. Otherwise words for people, also when a file cannot be asked.
std::string directoryLocker(const std::string& directory, const std::string& proc = "/proc");

}  // namespace orrery::mysql::sbt
