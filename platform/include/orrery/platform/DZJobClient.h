#pragma once

/// The agent's ends of a job: what it tells the job manager, and what the job manager asks of it.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/export.h"

/// How a job or its phase ended.
enum class DZJobStatus : std::uint32_t { success = 1, failed = 2, completedWithErrors = 3 };
/// What ended.
enum class DZJobStatusFor : std::uint32_t { phase = 1, job = 2 };

/// A job as its agent sees it. Before `init` nothing reaches the job manager. Operations answer whether the job manager
/// took what it was told; a refusal is logged.
///
/// Counters of files and bytes are told in two steps: what is to be added is set, and `updateInfo` adds it, all or
/// nothing. Setting again replaces what was set and not added yet. So a reporter that repeats the whole difference
/// after an update that failed counts nothing twice, and one that sets nothing anew loses nothing: the next update adds
/// it, at the latest the completion of the job.
///
/// Counters may be told on one thread while another one tells the rest.
class ORRERY_PLATFORM_EXPORT DZJobClient {
 public:
  DZJobClient(const DZJobClient&) = delete;
  DZJobClient& operator=(const DZJobClient&) = delete;
  virtual ~DZJobClient();

  long long getJobId() const noexcept { return jobId_; }
  /// Arguments of the next pending cause are streamed into this context.
  EvEvent& event() noexcept { return event_; }
  /// Tells why the job does not go on, by a code of the message catalogue. `messageType` is handed on as it is.
  bool setPendingCause(std::uint32_t code, int messageType, int severity = 0);

 protected:
  DZJobClient() = default;
  ORRERY_PLATFORM_HIDDEN bool attach(const char* tag, long long jobId);
  ORRERY_PLATFORM_HIDDEN bool setBytesToAdd(std::int64_t bytes);
  ORRERY_PLATFORM_HIDDEN bool setFilesToAdd(std::int64_t files);
  ORRERY_PLATFORM_HIDDEN bool addWhatWasSet(const char* tag);
  ORRERY_PLATFORM_HIDDEN bool finish(const char* tag, DZJobStatus status, DZJobStatusFor what, int code);

 private:
  long long jobId_ = 0;
  std::mutex mutex_;  // of the two below
  std::int64_t bytesToAdd_ = 0;
  std::int64_t filesToAdd_ = 0;
  EvEvent event_;
};

class ORRERY_PLATFORM_EXPORT DZBkpJobClient : public DZJobClient {
 public:
  DZBkpJobClient() = default;
  DZBkpJobClient(const DZBkpJobClient&) = delete;
  DZBkpJobClient& operator=(const DZBkpJobClient&) = delete;
  ~DZBkpJobClient() override;

  /// Attaches to a running job. False when the job manager does not know it. The other arguments choose the job manager
  /// and the stream in suites that have several; this backend has one of each.
  bool init(const std::string& managerName, long long jobId, int streamNumber, int phase, int flags, const char* extra);
  /// Files that had to be protected and could not be; told at once.
  bool addBackupFileFailures(std::int64_t count);
  /// Sets the files that the next update adds.
  bool addFilesXferred(std::int64_t count);
  /// Sets the uncompressed bytes that the next update adds.
  bool setUnCompBytesToAdd(std::int64_t bytes);
  /// Adds what was set. The arguments are for suites that can put an update off; here it is always made at once.
  bool updateInfo(bool force, const char* extra);
  bool complete(DZJobStatus status, DZJobStatusFor what, int code, int flags);
};

class ORRERY_PLATFORM_EXPORT DZRstJobClient : public DZJobClient {
 public:
  DZRstJobClient() = default;
  DZRstJobClient(const DZRstJobClient&) = delete;
  DZRstJobClient& operator=(const DZRstJobClient&) = delete;
  ~DZRstJobClient() override;

  /// As `DZBkpJobClient::init`, without the stream.
  bool init(const std::string& managerName, long long jobId, int phase, int flags, const char* extra);
  /// Sets the files that the next update adds.
  bool setNumSuccessful2Add(std::int64_t count);
  /// Sets the uncompressed bytes that the next update adds.
  bool setUncompBytes2Add(std::int64_t bytes);
  /// As `DZBkpJobClient::updateInfo`.
  bool updateInfo(bool force, const char* extra);
  /// Per cent, 0 to 100.
  bool updateJobProgress(int percent);
  /// `failures` and `skipped` count files and are told with the completion by suites that keep them; here they are not.
  bool complete(DZJobStatus status, int failures, int skipped, DZJobStatusFor what, int flags, int code);
};

/// What the job manager asks of a running job.
class ORRERY_PLATFORM_EXPORT DZJobCtrlClient {
 public:
  explicit DZJobCtrlClient(int kind) noexcept;
  DZJobCtrlClient(const DZJobCtrlClient&) = delete;
  DZJobCtrlClient& operator=(const DZJobCtrlClient&) = delete;
  virtual ~DZJobCtrlClient();
  /// 1 when the job manager knows the job, else another number. The other arguments as in `DZBkpJobClient::init`.
  int Init2(long long jobId, const std::string& managerName, int flags, int phase, const std::string& stream,
            int extra);
  /// Whether the job is to end. False also before `Init2` and when the job manager cannot be asked, which is logged.
  virtual bool checkQuitFlag() const;
  /// Tells that the work on the job is done while the process lives on, and gives the job manager `milliseconds` to
  /// take note. This backend's takes note with the completion itself: nothing waits. False before `Init2`.
  virtual bool finishedWorkWithoutExit(int milliseconds);

 private:
  long long jobId_ = 0;
  EvEvent event_;
};
