#include "migrations.h"

#include <iterator>

namespace orrery::platform::local {
namespace {

/// Step n brings a store from version n to n + 1. A step that was released is never changed; a change is a new step.
constexpr const char* steps[] = {R"sql(
CREATE TABLE clients (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL UNIQUE,
  application_type INTEGER NOT NULL,
  own INTEGER NOT NULL DEFAULT 0
) STRICT;
CREATE UNIQUE INDEX clients_own ON clients (own) WHERE own = 1;

CREATE TABLE instances (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  client_id INTEGER NOT NULL REFERENCES clients (id),
  application_type INTEGER NOT NULL,
  name TEXT NOT NULL,
  UNIQUE (client_id, application_type, name)
) STRICT;
CREATE TABLE instance_properties (
  instance_id INTEGER NOT NULL REFERENCES instances (id) ON DELETE CASCADE,
  key TEXT NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (instance_id, key)
) STRICT, WITHOUT ROWID;
CREATE TABLE backup_sets (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  instance_id INTEGER NOT NULL REFERENCES instances (id) ON DELETE CASCADE,
  name TEXT NOT NULL,
  is_default INTEGER NOT NULL,
  UNIQUE (instance_id, name)
) STRICT;
CREATE TABLE subclients (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  backup_set_id INTEGER NOT NULL REFERENCES backup_sets (id) ON DELETE CASCADE,
  name TEXT NOT NULL,
  is_default INTEGER NOT NULL,
  UNIQUE (backup_set_id, name)
) STRICT;
CREATE TABLE content (
  subclient_id INTEGER NOT NULL REFERENCES subclients (id) ON DELETE CASCADE,
  type INTEGER NOT NULL,
  name TEXT NOT NULL,
  size INTEGER NOT NULL,
  created INTEGER NOT NULL,
  auto_discovered INTEGER NOT NULL,
  PRIMARY KEY (subclient_id, type, name)
) STRICT, WITHOUT ROWID;

CREATE TABLE jobs (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  type INTEGER NOT NULL,
  instance_id INTEGER NOT NULL,
  subclient_id INTEGER NOT NULL,
  level INTEGER NOT NULL,
  state INTEGER NOT NULL DEFAULT 0,
  phase_state INTEGER NOT NULL DEFAULT 0,
  code INTEGER NOT NULL DEFAULT 0,
  started INTEGER NOT NULL,
  finished INTEGER NOT NULL DEFAULT 0,
  progress INTEGER NOT NULL DEFAULT 0,
  bytes INTEGER NOT NULL DEFAULT 0,
  files INTEGER NOT NULL DEFAULT 0,
  failed_files INTEGER NOT NULL DEFAULT 0,
  quit_requested INTEGER NOT NULL DEFAULT 0,
  process_id INTEGER NOT NULL
) STRICT;
CREATE TABLE causes (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  job_id INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  code INTEGER NOT NULL,
  severity INTEGER NOT NULL,
  message_type INTEGER NOT NULL,
  time INTEGER NOT NULL
) STRICT;
CREATE INDEX causes_job ON causes (job_id);
CREATE TABLE cause_arguments (
  cause_id INTEGER NOT NULL REFERENCES causes (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  text TEXT NOT NULL,
  PRIMARY KEY (cause_id, position)
) STRICT, WITHOUT ROWID;
CREATE TABLE task_options (
  job_id INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  option INTEGER NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (job_id, option)
) STRICT, WITHOUT ROWID;
CREATE TABLE events (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  job_id INTEGER NOT NULL,
  code INTEGER NOT NULL,
  severity INTEGER NOT NULL,
  time INTEGER NOT NULL
) STRICT;
CREATE INDEX events_job ON events (job_id);
CREATE TABLE event_arguments (
  event_id INTEGER NOT NULL REFERENCES events (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  text TEXT NOT NULL,
  PRIMARY KEY (event_id, position)
) STRICT, WITHOUT ROWID;

CREATE TABLE index_paths (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  instance_id INTEGER NOT NULL,
  job_id INTEGER NOT NULL,
  subclient_id INTEGER NOT NULL,
  level INTEGER NOT NULL,
  image TEXT NOT NULL,
  path TEXT NOT NULL,
  name TEXT NOT NULL,
  size INTEGER NOT NULL,
  modified INTEGER NOT NULL,
  kind INTEGER NOT NULL
) STRICT;
CREATE INDEX index_paths_job ON index_paths (instance_id, job_id);
CREATE TABLE index_records (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  job_id INTEGER NOT NULL,
  instance_id INTEGER NOT NULL,
  subclient_id INTEGER NOT NULL,
  level INTEGER NOT NULL,
  image TEXT NOT NULL,
  kind TEXT NOT NULL,
  name TEXT NOT NULL,
  bytes BLOB NOT NULL
) STRICT;
CREATE INDEX index_records_job ON index_records (job_id, kind);
CREATE TABLE archive_files (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  backup_set_id INTEGER NOT NULL,
  subclient_id INTEGER NOT NULL,
  job_id INTEGER NOT NULL,
  application_type INTEGER NOT NULL,
  level INTEGER NOT NULL,
  name TEXT NOT NULL,
  created INTEGER NOT NULL,
  size INTEGER NOT NULL
) STRICT;
CREATE INDEX archive_files_created ON archive_files (backup_set_id, application_type, created);
)sql",
                                 R"sql(
CREATE TABLE replica_holders (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  instance_id INTEGER NOT NULL,
  process_id INTEGER NOT NULL,
  process_start TEXT NOT NULL,
  command_id INTEGER NOT NULL,
  command_start TEXT NOT NULL,
  command_line TEXT NOT NULL,
  since INTEGER NOT NULL
) STRICT;
CREATE INDEX replica_holders_instance ON replica_holders (instance_id);
)sql",
                                 R"sql(
CREATE INDEX archive_files_name ON archive_files (name);
)sql",
                                 R"sql(
ALTER TABLE subclients ADD COLUMN force_full INTEGER NOT NULL DEFAULT 0;
)sql",
                                 R"sql(
ALTER TABLE archive_files ADD COLUMN base_id INTEGER NOT NULL DEFAULT 0;
)sql"};

std::int64_t pragma(Database& database, const char* question) {
  Statement statement(database, question);
  return statement.next() ? statement.integer(0) : 0;
}

void runSteps(Database& database, std::int64_t from) {
  for (std::int64_t version = from; version < newestSchema(); ++version) database.execute(steps[version]);
  database.execute(("PRAGMA user_version = " + std::to_string(newestSchema())).c_str());
}

}  // namespace

std::int64_t newestSchema() noexcept {
  return std::ssize(steps);
}

void bringUpToDate(Database& database) {
  if (pragma(database, "PRAGMA application_id") != storeApplicationId)
    throw Failure(Status::unavailable(database.path() +
                                      " is a database, but not a store of this agent; put the store back from a copy"));
  const std::int64_t version = pragma(database, "PRAGMA user_version");
  if (version == newestSchema()) return;
  if (version > newestSchema())
    throw Failure(Status::unavailable("a newer version of this program made " + database.path() + " (its schema is " +
                                      std::to_string(version) + ", this program knows " +
                                      std::to_string(newestSchema()) + "); install the newer version"));
  Transaction transaction(database, "BEGIN IMMEDIATE");
  // Asked again under the lock: another process may just have done it.
  if (const std::int64_t now = pragma(database, "PRAGMA user_version"); now < newestSchema()) runSteps(database, now);
  transaction.commit();
}

void makeStore(Database& database) {
  database.execute("PRAGMA journal_mode = WAL");
  Transaction transaction(database, "BEGIN IMMEDIATE");
  database.execute(("PRAGMA application_id = " + std::to_string(storeApplicationId)).c_str());
  runSteps(database, 0);
  transaction.commit();
}

}  // namespace orrery::platform::local
