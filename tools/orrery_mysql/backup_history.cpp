#include "backup_history.h"

#include <chrono>
#include <sstream>

#include "failure.h"
#include "interrupt.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

constexpr std::uint32_t newestBackupOption = 0x4F520003;
constexpr int noSuchTable = 1146;

// In the order of `mysqlbackup`, which takes the one that ended last. A position alone would not do: it is the same for
// two backups of a server that nobody writes to.
constexpr const char* newestOfHistory =
    "SELECT backup_id, end_lsn, (SELECT COUNT(*) FROM mysql.backup_history WHERE exit_state='SUCCESS') FROM "
    "mysql.backup_history WHERE exit_state='SUCCESS' ORDER BY end_time DESC, backup_id DESC LIMIT 1";

// Rows of a table travel without the data that they speak of, in a dump for instance. A server that is set up anew has
// another one; servers that have none say nothing.
constexpr const char* identityOfServer = "SHOW GLOBAL VARIABLES LIKE 'server_uuid'";

// A client waits without limit for a server that hangs, and nobody could end it while a job is brought to its end.
constexpr std::chrono::minutes longestAnswer(1);

std::string serverIdentity(ServerSession& server, const std::string& what) {
  std::string row;
  server.run(what, [&](GetMySqlInfo& session) { return session.executeMySqlCommand(identityOfServer, row, false); });
  std::istringstream columns(row);
  std::string name;
  std::string identity;
  columns >> name >> identity;
  return identity;
}

}  // namespace

BackupHistory readBackupHistory(Context& context, const platform::InstanceRecord& instance) {
  const std::string what = "the backup history cannot be read of";
  ServerSession server(context, std::to_string(instance.id), ServerSession::LibraryMode{});
  const ClientLimit limit(std::chrono::steady_clock::now() + longestAnswer);
  std::string row;
  const int rc =
      server.attempt([&](GetMySqlInfo& session) { return session.executeMySqlCommand(newestOfHistory, row, false); });
  BackupHistory history;
  if (rc != 0 && (*server).iErrorCode == noSuchTable) return history;
  if (rc != 0) server.fail(what + " " + instance.name);
  if (row.empty()) return history;
  std::string id;
  std::string position;
  std::istringstream columns(row);
  if (!(columns >> id >> position >> history.count))
    throw Failure(what + " " + instance.name, "its server answered: " + onOneLine(row));
  history.newest = id + "/" + position;
  if (const std::string identity = serverIdentity(server, what); !identity.empty()) history.newest += "/" + identity;
  return history;
}

bool noteNewestBackup(Context& context, long long job, const std::string& newest) {
  return context.services().jobs->writeTaskOption(job, newestBackupOption, newest).ok();
}

std::optional<std::string> notedNewestBackup(Context& context, long long job) {
  std::optional<std::string> newest;
  const platform::Status status = context.services().jobs->readTaskOption(job, newestBackupOption, newest);
  if (status.code != platform::statusNotFound) require(status, "the server's newest backup of then is not known");
  return newest;
}

}  // namespace orrery::tool
