#pragma once

#include "context.h"
#include "manifest.h"

namespace orrery::tool {

class BackupJob;
class ServerSession;

/// The step of a backup that puts creation statements of the databases to protect, and of their tables, into the index.
/// A database that cannot be recorded is a cause of the job and ends nothing else. Left out and told in command mode.
/// Throws Interrupted or Stopped.
void recordMetadata(Context& context, BackupJob& job, ServerSession& server, Manifest& manifest);

}  // namespace orrery::tool
