#pragma once

/// The ports: what a suite supplies so that the library and its tools can run inside it.
///
/// A suite with services of its own derives from these classes, gathers the objects in one `Services` and calls
/// `install()`. Without that, the first use opens the embedded default at ORRERY_HOME (see home.h).
///
/// Rules for every implementation:
///  - no exception leaves a port; a failure is a `Status` with a code other than 0 and a text for people;
///  - an output argument is written only on success, unless an operation says otherwise;
///  - every operation may be called from several threads at the same time, and several processes may work on the
///    same data;
///  - ids are positive; 0 stands for "none".

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "orrery/platform/export.h"

namespace orrery::platform {

using Id = std::uint64_t;

/// Codes of a Status that callers tell apart. Everything else is a failure known by its text alone.
enum StatusCode : int {
  statusOk = 0,
  statusFailed = 1,       ///< the operating system or the store refused; the text says what and why
  statusNotFound = 2,     ///< the thing asked for does not exist
  statusExists = 3,       ///< the thing to be made exists already
  statusUnavailable = 4,  ///< the service cannot be reached at all (no home, unreadable store)
  statusInvalid = 5,      ///< an argument that the service can never accept
};

/// Outcome of one call on a port. `text` is empty on success and one clear sentence otherwise, without a full stop.
struct [[nodiscard]] Status {
  int code = statusOk;
  std::string text;

  bool ok() const noexcept { return code == statusOk; }
  static Status success() { return {}; }
  static Status failure(std::string text) { return {statusFailed, std::move(text)}; }
  static Status notFound(std::string text) { return {statusNotFound, std::move(text)}; }
  static Status exists(std::string text) { return {statusExists, std::move(text)}; }
  static Status unavailable(std::string text) { return {statusUnavailable, std::move(text)}; }
  static Status invalid(std::string text) { return {statusInvalid, std::move(text)}; }
};

// ---------------------------------------------------------------------------------------------------------------- log

enum class LogKind { debug, error };

/// One message on its way to the log. The views live only during the call.
struct LogLine {
  LogKind kind = LogKind::debug;
  int level = 0;          ///< 0 for plain debug lines and errors, 1 to 10 for levelled ones
  long long jobId = 0;    ///< 0: no job
  std::string_view tag;   ///< qualified name of the operation that speaks
  std::string_view text;  ///< the message as formatted; may hold line breaks and arbitrary bytes
};

/// Where messages go.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// Whether a debug line of this level is wanted. Asked before a message is formatted, so it must cost next to
  /// nothing and neither lock nor allocate. Errors are always wanted.
  virtual bool wants(int level) const noexcept = 0;

  /// Records one message. Safe from several threads and processes. A sink that cannot write drops the message.
  virtual void write(const LogLine& line) noexcept = 0;

  /// The same, called in a child process between fork and exec, where another thread of the parent may have held any
  /// lock at the moment of the fork and where the memory may be the parent's own. Only async-signal-safe calls: no
  /// lock, no heap, no change to memory outside the stack.
  virtual void writeInChild(const LogLine& line) noexcept = 0;
};

// ------------------------------------------------------------------------------------------------------------- events

enum class Severity { information = 0, minor = 3, major = 6, critical = 9 };

/// Something that people or the management server must learn of, known by its code in the message catalogue.
struct Event {
  Severity severity = Severity::information;
  std::uint32_t code = 0;
  long long jobId = 0;
  std::vector<std::string> arguments;  ///< in the order of %1, %2 and so on in the catalogue's text
};

class EventSink {
 public:
  virtual ~EventSink() = default;
  virtual Status raise(const Event& event) = 0;
};

// ----------------------------------------------------------------------------------------------- settings, directories

/// The agent's settings: text values under section and key.
class Settings {
 public:
  virtual ~Settings() = default;
  /// `value` is empty when the key is absent; that is a success.
  virtual Status read(const std::string& section, const std::string& key, std::optional<std::string>& value) = 0;
  virtual Status write(const std::string& section, const std::string& key, const std::string& value) = 0;
  /// Every key of a section with its value.
  virtual Status list(const std::string& section, std::map<std::string, std::string>& values) = 0;
};

class Directories {
 public:
  virtual ~Directories() = default;
  /// For the agent's short-lived files. Accounts of database servers can pass through it, and nobody but the agent
  /// can write to it.
  virtual Status temporary(std::string& path) = 0;
  /// Where the agent's own libraries lie: the client library and the media library.
  virtual Status home(std::string& path) = 0;
  virtual Status baseHome(std::string& path) = 0;
  /// Where jobs of the named client leave their results. An empty name means this machine's own client.
  virtual Status jobResults(const std::string& clientName, std::string& path) = 0;
};

/// Passwords as the agent stores them: unreadable without this vault's key.
class PasswordVault {
 public:
  virtual ~PasswordVault() = default;
  virtual Status seal(const std::string& plain, std::string& sealed) = 0;
  virtual Status open(const std::string& sealed, std::string& plain) = 0;
};

// ---------------------------------------------------------------------------------------------------------- inventory

struct Client {
  Id id = 0;
  std::string name;
  int applicationType = 0;  ///< 1: a cloud database client, reached over TCP through a proxy machine
};

struct InstanceRecord {
  Id id = 0;
  Id clientId = 0;
  int applicationType = 0;
  std::string name;                               ///< unique among the instances of one client
  std::map<std::string, std::string> properties;  ///< by the keys of instance_properties.h
};

struct BackupSet {
  Id id = 0;
  Id instanceId = 0;
  std::string name;
  bool isDefault = false;
};

struct SubclientRecord {
  Id id = 0;
  Id backupSetId = 0;
  std::string name;
  bool isDefault = false;
  bool forceFull = false;  ///< its next backup has to be a full one
};

/// One entry of a subclient's content.
struct ContentEntry {
  int type = 0;  ///< 120: a database
  std::string name;
  std::int64_t size = 0;     ///< bytes
  std::int64_t created = 0;  ///< as the agent was told; leading digits of the server's text
  bool autoDiscovered = false;
};

/// What the management server knows of clients, instances, backup sets, subclients and their content.
class Inventory {
 public:
  virtual ~Inventory() = default;

  /// The client that this machine is.
  virtual Status ownClient(Client& client) = 0;
  /// Adds a client, or changes the application type of the one with this name. `id` is always set on success.
  virtual Status putClient(const std::string& name, int applicationType, Id& id) = 0;
  virtual Status findClient(Id id, Client& client) = 0;
  virtual Status findClient(const std::string& name, Client& client) = 0;

  /// Adds an instance with its default backup set and default subclient, all or nothing. `record.id` is ignored.
  virtual Status addInstance(const InstanceRecord& record, Id& id) = 0;
  virtual Status findInstance(Id id, InstanceRecord& record) = 0;
  virtual Status findInstance(Id clientId, int applicationType, const std::string& name, InstanceRecord& record) = 0;
  /// All instances in the order of their ids.
  virtual Status listInstances(std::vector<InstanceRecord>& records) = 0;
  /// Sets the given properties and leaves the others, all or nothing.
  virtual Status writeProperties(Id instanceId, const std::map<std::string, std::string>& properties) = 0;
  /// One property; `value` is empty when the instance has none of that key.
  virtual Status readProperty(Id instanceId, const std::string& key, std::optional<std::string>& value) = 0;
  /// Removes an instance with its backup sets, subclients and content.
  virtual Status removeInstance(Id id) = 0;

  virtual Status listBackupSets(Id instanceId, std::vector<BackupSet>& sets) = 0;
  virtual Status addSubclient(Id backupSetId, const std::string& name, Id& id) = 0;
  /// Removes a subclient with its content. The default one of a backup set stays: statusInvalid.
  virtual Status removeSubclient(Id id) = 0;
  virtual Status listSubclients(Id backupSetId, std::vector<SubclientRecord>& subclients) = 0;
  virtual Status findSubclient(Id id, SubclientRecord& subclient) = 0;
  virtual Status setForceFull(Id subclientId, bool forceFull) = 0;
  virtual Status listContent(Id subclientId, std::vector<ContentEntry>& content) = 0;
  /// Adds entries or replaces those of the same type and name, all or nothing.
  virtual Status putContent(Id subclientId, const std::vector<ContentEntry>& content) = 0;
  virtual Status removeContent(Id subclientId, int type, const std::vector<std::string>& names) = 0;
};

// --------------------------------------------------------------------------------------------------------------- jobs

enum class JobType { backup = 1, restore = 2 };
enum class JobState { running = 0, succeeded = 1, failed = 2, completedWithErrors = 3 };

struct JobRecord {
  long long id = 0;
  JobType type = JobType::backup;
  Id instanceId = 0;
  Id subclientId = 0;
  int level = 1;  ///< of a backup: 1 full, 2 incremental
  JobState state = JobState::running;
  int phaseState = 0;         ///< last state told of the phase, as JobState
  std::int64_t started = 0;   ///< microseconds since the epoch
  std::int64_t finished = 0;  ///< 0 while it runs
  int progress = 0;           ///< per cent
  std::int64_t bytes = 0;
  std::int64_t files = 0;
  std::int64_t failedFiles = 0;
  bool quitRequested = false;
  long long processId = 0;  ///< the process that works on it
};

/// Why a job does not go on, or went wrong, by its code in the message catalogue.
struct PendingCause {
  std::uint32_t code = 0;
  int severity = 0;
  int messageType = 0;  ///< as the caller gave it
  std::vector<std::string> arguments;
  std::int64_t time = 0;  ///< microseconds since the epoch
};

/// What one report adds to a job's counters.
struct JobCounters {
  std::int64_t bytes = 0;
  std::int64_t files = 0;
  std::int64_t failedFiles = 0;
};

class JobManager {
 public:
  virtual ~JobManager() = default;
  /// Starts a job; `record.id`, `started` and `state` are the manager's to choose.
  virtual Status start(const JobRecord& record, long long& id) = 0;
  virtual Status find(long long id, JobRecord& record) = 0;
  /// Newest first, at most `most` of them.
  virtual Status list(std::size_t most, std::vector<JobRecord>& records) = 0;
  virtual Status addCause(long long id, const PendingCause& cause) = 0;
  virtual Status listCauses(long long id, std::vector<PendingCause>& causes) = 0;
  /// Events that were raised for the job, oldest first.
  virtual Status listEvents(long long id, std::vector<Event>& events) = 0;
  virtual Status addCounters(long long id, const JobCounters& increments) = 0;
  virtual Status setProgress(long long id, int percent) = 0;
  /// Tells the state of the job, or of its phase only.
  virtual Status complete(long long id, JobState state, bool wholeJob, int code) = 0;
  virtual Status requestQuit(long long id) = 0;
  virtual Status quitRequested(long long id, bool& requested) = 0;
  /// Options of a job's task, by number.
  virtual Status writeTaskOption(long long id, std::uint32_t option, const std::string& value) = 0;
  virtual Status readTaskOption(long long id, std::uint32_t option, std::optional<std::string>& value) = 0;
};

// --------------------------------------------------------------------------------------------------- index and archive

/// One thing that a restore can be chosen by.
struct BrowsePath {
  std::string path;
  std::string name;
  std::int64_t size = 0;
  std::int64_t modified = 0;
  std::uint32_t kind = 0;
};

/// Which backup a record of the index belongs to.
struct IndexKey {
  long long jobId = 0;
  Id instanceId = 0;
  Id subclientId = 0;
  int level = 0;
  std::string image;
};

/// A record in the protocol-buffers wire format, kept as it is. `kind` names the message of docs/index.proto.
struct IndexRecord {
  std::string kind;
  std::string name;
  std::string bytes;
};

class Index {
 public:
  virtual ~Index() = default;
  virtual Status addPaths(const IndexKey& key, const std::vector<BrowsePath>& paths) = 0;
  virtual Status listPaths(Id instanceId, long long jobId, std::vector<BrowsePath>& paths) = 0;
  virtual Status addRecord(const IndexKey& key, const std::string& kind, const std::string& name,
                           const std::string& bytes) = 0;
  /// All of them or, after a failure, none.
  virtual Status addRecords(const IndexKey& key, const std::vector<IndexRecord>& records) = 0;
  virtual Status listRecords(long long jobId, const std::string& kind,
                             std::vector<std::pair<std::string, std::string>>& namesAndBytes) = 0;
  /// Hands over a job's records of every kind one by one, in the order in which they were added, until `take` returns
  /// false. It must use no port and throw nothing.
  virtual Status eachRecord(long long jobId, const std::function<bool(const IndexRecord& record)>& take) = 0;
  /// Removes the records of a job and a kind whose names begin with `nameBegin`; all of them or, after a failure, none.
  /// None being there is a success.
  virtual Status removeRecords(long long jobId, const std::string& kind, const std::string& nameBegin) = 0;
};

/// One image or file on the media.
struct ArchiveFile {
  Id id = 0;
  Id backupSetId = 0;
  Id subclientId = 0;
  long long jobId = 0;
  int applicationType = 0;
  int level = 0;  ///< 1 full, 2 incremental
  std::string name;
  std::int64_t created = 0;  ///< seconds since the epoch; when it was complete
  std::int64_t size = 0;     ///< bytes
};

/// Which images a restore asks for.
struct ChainQuery {
  Id backupSetId = 0;
  int applicationType = 0;
  std::int64_t from = 0;  ///< seconds since the epoch, as ArchiveFile::created
  std::int64_t to = 0;
  bool reads =
      true;  ///< false: header and trailer only, for a caller that destroys nothing or had them read shortly before
  /// Asked some times a second, may be empty: once true, the answer is a failure.
  std::function<bool()> isStopped;
};

class ArchiveManager {
 public:
  virtual ~ArchiveManager() = default;
  /// In place of an older record of the same application and name: the media hold one file of a name.
  virtual Status addFile(const ArchiveFile& file, Id& id) = 0;
  /// Files of a backup set with `from <= created <= to`, oldest first.
  virtual Status listFiles(Id backupSetId, int applicationType, std::int64_t from, std::int64_t to,
                           std::vector<ArchiveFile>& files) = 0;
  /// Files of this name in every backup set, in the order they were added.
  virtual Status findFiles(int applicationType, const std::string& name, std::vector<ArchiveFile>& files) = 0;
  virtual Status removeFile(Id id) = 0;
  /// The images that together give what was protected at `to`: the last full one and the incremental ones after it, in
  /// the order in which they are to be applied. A success says that each of them is there and, if the query reads, can
  /// be read from its first byte to its last, so a caller may destroy what they replace; otherwise the text names the
  /// image that cannot. statusNotFound when there is no full image between the two times.
  virtual Status restoreChain(const ChainQuery& query, std::vector<ArchiveFile>& files) = 0;
};

// -------------------------------------------------------------------------------------------------------------- proxy

struct ProxyRequest {
  Id clientId = 0;
  int applicationType = 0;
  std::string version;
  Id proxyClientId = 0;
};

/// Where this machine holds client programs for servers that it reaches as a proxy.
class ProxyDirectory {
 public:
  virtual ~ProxyDirectory() = default;
  /// `directory` stays empty when none is known; that is a success.
  virtual Status installDirectory(const ProxyRequest& request, std::optional<std::string>& directory) = 0;
};

// ---------------------------------------------------------------------------------------------- holders of a replica

/// One process for good: its id, and what tells it from every other process that had or will have this id.
struct ProcessMark {
  long long id = 0;  ///< 0: none
  std::string start;
};

/// A program of this machine that keeps the replica of an instance stopped, or is about to.
struct ReplicaHolder {
  Id id = 0;
  Id instanceId = 0;
  ProcessMark process;      ///< lets the replica go
  ProcessMark command;      ///< works while the replica is held, started by `process`
  std::string commandLine;  ///< what people know it by
  std::int64_t since = 0;   ///< microseconds since the epoch
};

/// Who holds replicas, as far as it is known. Knowledge for people: backups agree among themselves without it.
class ReplicaHolders {
 public:
  virtual ~ReplicaHolders() = default;
  /// `holder.id` is ignored.
  virtual Status add(const ReplicaHolder& holder, Id& id) = 0;
  virtual Status setCommand(Id id, const ProcessMark& command) = 0;
  virtual Status remove(Id id) = 0;
  /// Those of one instance in the order they were added, the dead with the living.
  virtual Status list(Id instanceId, std::vector<ReplicaHolder>& holders) = 0;
};

// -------------------------------------------------------------------------------------------------------------- clock

class Clock {
 public:
  virtual ~Clock() = default;
  /// Microseconds since the epoch.
  virtual std::int64_t now() noexcept = 0;
  virtual void sleep(std::int64_t milliseconds) noexcept = 0;
};

// --------------------------------------------------------------------------------------------------------- the one
// slot

/// All ports of one backend. Every pointer is set.
struct Services {
  std::shared_ptr<LogSink> log;
  std::shared_ptr<EventSink> events;
  std::shared_ptr<Settings> settings;
  std::shared_ptr<Directories> directories;
  std::shared_ptr<PasswordVault> vault;
  std::shared_ptr<Inventory> inventory;
  std::shared_ptr<JobManager> jobs;
  std::shared_ptr<Index> index;
  std::shared_ptr<ArchiveManager> archive;
  std::shared_ptr<ProxyDirectory> proxies;
  std::shared_ptr<ReplicaHolders> holders;
  std::shared_ptr<Clock> clock;
};

/// Puts a backend into the process's one slot, in place of whatever was there. To be called before other threads use
/// the library; objects made earlier go on with the new backend at their next call.
ORRERY_PLATFORM_EXPORT void install(std::shared_ptr<const Services> services);

/// The backend in the slot. Opens the embedded default on first use; when that cannot be opened, every port answers
/// `statusUnavailable` with the reason, the log goes to standard error and only the clock works.
ORRERY_PLATFORM_EXPORT const Services& services();

/// What the slot holds without opening anything; null when nothing was installed or opened yet.
ORRERY_PLATFORM_EXPORT std::shared_ptr<const Services> installedServices();

/// Puts a backend into the slot for one scope (tests, tools).
class [[nodiscard]] ScopedServices {
 public:
  explicit ScopedServices(std::shared_ptr<const Services> services) : earlier_(installedServices()) {
    install(std::move(services));
  }
  ~ScopedServices() { install(std::move(earlier_)); }
  ScopedServices(const ScopedServices&) = delete;
  ScopedServices& operator=(const ScopedServices&) = delete;

 private:
  std::shared_ptr<const Services> earlier_;
};

}  // namespace orrery::platform
