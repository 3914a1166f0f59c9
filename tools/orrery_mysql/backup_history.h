#pragma once

#include <optional>
#include <string>

#include "context.h"

namespace orrery::tool {

/// What a server's own list of its backups says, mysql.backup_history, which `mysqlbackup` keeps in it. An incremental
/// backup stands on the newest one in it, whoever made that, by whatever means.
struct BackupHistory {
  long long count = 0;  ///< of backups that succeeded
  std::string newest;   ///< what tells the newest of them from every other; empty: there is none
};

/// Asks the server with the client program of the instance. A server without such a list has none. Throws Failure.
BackupHistory readBackupHistory(Context& context, const platform::InstanceRecord& instance);

/// Keeps with the job of a backup what the server's newest one was when the job's image was complete; false when it
/// cannot be kept.
bool noteNewestBackup(Context& context, long long job, const std::string& newest);
/// What was kept with that job; none when nothing was. Throws Failure.
std::optional<std::string> notedNewestBackup(Context& context, long long job);

}  // namespace orrery::tool
