#pragma once

#include <sys/types.h>

#include <string>

#include "discovery/host.h"

namespace orrery::mysql::discovery {

/// Who else than root and `self` can change what stands at a path, or put something else in its place: every folder and
/// link on the way is opened by itself, and what was opened is looked at.
PathVerdict whoCanReplace(const std::string& path, uid_t self);

}  // namespace orrery::mysql::discovery
