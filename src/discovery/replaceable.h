#pragma once

#include <sys/types.h>

#include <string>

namespace orrery::mysql::discovery {

/// Whether somebody else than root and `self` can change what stands at a path, or put something else in its place:
/// every folder and link on the way counts. Empty when nobody can; else one sentence that says where.
std::string whoCanReplace(const std::string& path, uid_t self);

}  // namespace orrery::mysql::discovery
