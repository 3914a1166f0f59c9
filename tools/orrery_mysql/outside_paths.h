#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context.h"

namespace orrery::tool {

class ServerSession;

/// The places outside its data directory where a server keeps what belongs to a physical backup: tablespaces, undo,
/// redo and linked databases; binary logs do not. A restore fills one directory: what lies elsewhere would stay as it
/// is, or be written over. Throws Failure.
std::vector<std::string> outsidePaths(ServerSession& server);

/// Keeps them with the job of a backup; its image may hold data of there. Throws Failure.
void noteOutsidePaths(Context& context, ServerSession& server, long long job);
/// What was kept with that job; none when nothing was, which is not the same as no such place. Throws Failure.
std::optional<std::vector<std::string>> notedOutsidePaths(Context& context, long long job);

}  // namespace orrery::tool
