#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

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
/// name do, because a session has others that hide, and a server of one's own does not. Nor does one that is known to
/// work `elsewhere`.
///
/// Empty: nobody. Otherwise words for people: the first process found, or why that cannot be told. `proc` is the
/// system's folder of processes.
std::string directoryUser(const std::string& directory, pid_t self, Whom whom = Whom::everybody,
                          const std::string& proc = "/proc", const std::vector<pid_t>& elsewhere = {});

/// Which file of a server in a directory or in one of its folders is locked, and by whom. A server locks the files that
/// it has open, and a lock is seen where its process is not: by another account and from another process namespace.
/// Asks for the system tablespaces, logs, undo files and a bounded number of tables. Passes over lost+found, and over
/// what belongs to root and cannot be entered in a directory that is another account's: no server has files there.
///
/// Empty: none. Otherwise words for people, also when a file cannot be asked.
std::string directoryLocker(const std::string& directory, const std::string& proc = "/proc");

/// What goes when the server is stopped whose data directory is `itsOwn`, as it says itself; "" when it does not. The
/// process that holds the locks, in `directory` when that is the one, else in its own, with the scripts above it and
/// beside it. Empty: not known here.
std::vector<pid_t> serverProcesses(const std::string& directory, const std::string& itsOwn,
                                   const std::string& proc = "/proc");

/// The processes of other servers. A directory in which that server holds a lock is no other one's: two cannot have the
/// same data open. Empty as well when it holds none there, which then tells nothing.
std::vector<pid_t> serversElsewhere(const std::string& directory, const std::vector<pid_t>& server,
                                    const std::string& proc = "/proc");

/// Whether a server that answers, and calls `itsOwn` its data directory, has that one elsewhere, in a container or on
/// another host, although `directory` has that path here: no server works in it, removed as its files may be, and none
/// of them is locked. False where that cannot be told.
bool isOfAnotherMachine(const std::string& directory, const std::string& itsOwn, pid_t self,
                        const std::string& proc = "/proc");

/// Who would be found in a directory after that server has gone, or why that cannot be told, as far as it is known
/// beforehand: processes and locks as above. One that cannot be seen here and holds a lock may be the server; servers
/// elsewhere do not count.
std::string whoStays(const std::string& directory, pid_t self, const std::vector<pid_t>& server,
                     const std::string& proc = "/proc");

/// Which server is at work in a directory. What cannot be told does not count, and no other program does.
std::string serverIn(const std::string& directory, pid_t self, const std::string& proc = "/proc");

}  // namespace orrery::mysql::sbt
