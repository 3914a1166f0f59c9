#include "backup_metadata.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <utility>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "backup_job.h"
#include "failure.h"
#include "interrupt.h"
#include "job_text.h"
#include "schema_records.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

constexpr std::uint32_t notRecorded = 0x570000F5;  // in the message catalogue

constexpr const char* stepName = "record the metadata";
constexpr int progressFrom = 35;
constexpr int progressUntil = 50;

/// Puts records into the index a few megabytes at a time: the transactions of a large database are few, and the other
/// users of the store wait for none of them long. A database's own record comes behind those of its tables: readers
/// take a database without one for the half that a backup left which was killed.
class IndexRecords final : public RecordTaker {
 public:
  IndexRecords(Context& context, platform::IndexKey key)
      : context_(context), index_(*context.services().index), key_(std::move(key)) {}

  void database(const std::string& name, const std::string& bytes) override {
    own_ = {databaseRecordKind, name, bytes};
    tables_ = 0;
  }
  void table(const std::string& database, const std::string& bytes) override {
    add({tableRecordKind, recordName(database, tableRecordOf(bytes).name), bytes});
    ++tables_;
  }
  void drop() override {
    waiting_.clear();
    waitingBytes_ = 0;
    if (!std::exchange(isPartInIndex_, false)) return;
    const platform::Status removed = index_.removeRecords(key_.jobId, tableRecordKind, recordNameBegin(own_.name));
    // Nobody takes it for whole, so what ended the reading counts for more.
    if (!removed.ok()) context_.note("the half of a database stays in the index: " + removed.text);
  }
  /// The last database is whole.
  void close() {
    waiting_.push_back(std::move(own_));
    flush();
    isPartInIndex_ = false;
  }
  std::size_t tables() const noexcept { return tables_; }

 private:
  static constexpr std::size_t mostWaiting = std::size_t{4} << 20;  // bytes

  void add(platform::IndexRecord record) {
    waitingBytes_ += record.bytes.size();
    waiting_.push_back(std::move(record));
    if (waitingBytes_ >= mostWaiting) flush();
  }
  void flush() {
    isPartInIndex_ = true;
    require(index_.addRecords(key_, waiting_), "the index does not take the metadata");
    waiting_.clear();
    waitingBytes_ = 0;
  }

  Context& context_;
  platform::Index& index_;
  const platform::IndexKey key_;
  platform::IndexRecord own_;  // of the last database
  bool isPartInIndex_ = false;
  std::vector<platform::IndexRecord> waiting_;
  std::size_t waitingBytes_ = 0;
  std::size_t tables_ = 0;
};

/// Asks the job manager now and then: a look costs as much as a small table does.
class QuitLooks {
 public:
  explicit QuitLooks(BackupJob& job) : job_(job) {}
  bool mayGoOn() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return true;
    next_ = now + std::chrono::milliseconds(200);
    return !job_.control().checkQuitFlag();
  }

 private:
  BackupJob& job_;
  std::chrono::steady_clock::time_point next_;
};

void readDatabase(BackupJob& job, ServerSession& server, const std::string& name, IndexRecords& records) {
  server.usePlainStatements("no metadata from");
  QuitLooks looks(job);
  const int rc = readRecords(server, name, records, [&] { return looks.mayGoOn(); });
  if (rc != 0 && job.control().checkQuitFlag()) throw Stopped();
  if (rc != 0) server.fail("no metadata of the database " + name + " of " + server.instance());
  records.close();
}

void recordDatabase(BackupJob& job, ServerSession& server, const std::string& name, IndexRecords& records) {
  try {
    readDatabase(job, server, name, records);
  } catch (...) {
    records.drop();
    throw;
  }
}

/// Backups that failed or were killed leave the databases that they had recorded. Nobody restores from those.
void removeRecordsOfFailedJobs(Context& context, const Manifest& manifest) {
  const platform::Services& services = context.services();
  std::vector<platform::JobRecord> jobs;
  require(services.jobs->list(std::numeric_limits<std::int32_t>::max(), jobs), "the jobs cannot be listed");
  for (const platform::JobRecord& job : jobs) {
    if (job.id == manifest.job || job.instanceId != manifest.instance.id) continue;
    const std::string state = stateOf(context, job);
    if (state != "failed" && state != "died") continue;
    bool hasRecords = false;
    const auto see = [&](const platform::IndexRecord&) {
      hasRecords = true;
      return false;
    };
    require(services.index->eachRecord(job.id, see), "the index cannot be read");
    for (const char* kind : {databaseRecordKind, tableRecordKind}) {
      if (hasRecords) require(services.index->removeRecords(job.id, kind, ""), "earlier metadata stays in the index");
    }
  }
}

std::string namesOf(const std::list<std::string>& names) {
  constexpr std::size_t mostNamed = 5;
  std::string text;
  std::size_t named = 0;
  for (const std::string& name : names) {
    if (++named > mostNamed) return text + " and " + std::to_string(names.size() - mostNamed) + " more";
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

}  // namespace

void recordMetadata(Context& context, BackupJob& job, ServerSession& server, Manifest& manifest) {
  job.step(stepName, progressFrom);
  if (server.isInCommandMode()) {
    context.note(
        "what the databases hold is not recorded in the index: command mode does not offer that, --access "
        "library does");
    return;
  }
  try {
    removeRecordsOfFailedJobs(context, manifest);
  } catch (const Failure& failure) {
    context.note(failure.what());  // they do no harm but take room
  }
  manifest.recordsMetadata = true;
  IndexRecords records(context, {job.id(), manifest.instance.id, manifest.subclient.id, manifest.level, ""});
  std::string reason;
  std::size_t done = 0;
  for (const std::string& name : manifest.databases) {
    const auto part = static_cast<int>((progressUntil - progressFrom) * done++ / manifest.databases.size());
    job.step(stepName, progressFrom + part);
    try {
      recordDatabase(job, server, name, records);
      ++manifest.recordedDatabases;
      manifest.recordedTables += records.tables();
    } catch (const Failure& failure) {
      if (reason.empty()) reason = failure.what();
      manifest.notRecorded.push_back(name);
    }
  }
  if (manifest.notRecorded.empty()) return;
  context.note("what these databases hold is not recorded in the index: " + namesOf(manifest.notRecorded) + " (" +
               reason + ")");
  job.addCause(notRecorded, {namesOf(manifest.notRecorded), reason});
}

}  // namespace orrery::tool
