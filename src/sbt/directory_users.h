#pragma once

#include <sys/types.h>

#include <string>

namespace orrery::mysql::sbt {

/// Which process works in a directory: has it, or something below it, as its current or root directory, open, mapped or
/// open and deleted. A server that answers no more may still write its last pages. Links in `directory` are followed,
/// and it need not exist any more. Process `self` is left out, and so is what this account may not look into: whoever
/// may not see a server's files may not remove them either.
///
/// Empty: nobody. Otherwise words for people: the first process found, or why that cannot be told. `proc` is the
/// system's folder of processes.
std::string directoryUser(const std::string& directory, pid_t self, const std::string& proc = "/proc");

}  // namespace orrery::mysql::sbt
