#include "backup_metadata.h"

#include <chrono>
#include <utility>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "backup_job.h"
#include "failure.h"
#include "interrupt.h"
#include "schema_records.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

constexpr std::uint32_t notRecorded = 0x570000F5;  // in the message catalogue

constexpr const char* stepName = "record the metadata";
constexpr int progressFrom = 35;
constexpr int progressUntil = 50;

/// Puts records into the index a few megabytes at a time: the transactions of a large database are few, and the other
/// users of the store wait for none of them long.
class IndexRecords final : public RecordTaker {
 public:
  IndexRecords(Context& context, platform::IndexKey key) : index_(*context.services().index), key_(std::move(key)) {}

  void database(const std::string& name, const std::string& bytes) override {
    waiting_.clear();
    waitingBytes_ = 0;
    tables_ = 0;
    add({databaseRecordKind, name, bytes});
  }
  void table(const std::string& database, const std::string& bytes) override {
    add({tableRecordKind, recordName(database, tableRecordOf(bytes).name), bytes});
    ++tables_;
  }
  void flush() {
    require(index_.addRecords(key_, waiting_), "the index does not take the metadata");
    waiting_.clear();
    waitingBytes_ = 0;
  }
  std::size_t tables() const noexcept { return tables_; }

 private:
  static constexpr std::size_t mostWaiting = std::size_t{4} << 20;  // bytes

  void add(platform::IndexRecord record) {
    waitingBytes_ += record.bytes.size();
    waiting_.push_back(std::move(record));
    if (waitingBytes_ >= mostWaiting) flush();
  }

  platform::Index& index_;
  const platform::IndexKey key_;
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

void recordDatabase(BackupJob& job, ServerSession& server, const std::string& name, IndexRecords& records) {
  QuitLooks looks(job);
  const int rc = readRecords(server, name, records, [&] { return looks.mayGoOn(); });
  if (rc != 0 && job.control().checkQuitFlag()) throw Stopped();
  if (rc != 0) server.fail("no metadata of the database " + name + " of " + server.instance());
  records.flush();
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
