#pragma once

/// The agent's ends of a job: what it tells the job manager, and what the job manager asks of it.

#include <cstdint>
#include <string>
#include <vector>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/export.h"

/// How a job or its phase ended.
enum class DZJobStatus : std::uint32_t { success = 1, failed = 2, completedWithErrors = 3 };
/// What ended.
enum class DZJobStatusFor : std::uint32_t { phase = 1, job = 2 };

/// A job as its agent sees it. Before `init` nothing reaches the job manager. Operations answer whether the job manager
/// took what it was told; a refusal is logged. One object is used by one thread at a time.
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
  ORRERY_PLATFORM_HIDDEN bool addCounters(const char* tag, std::int64_t bytes, std::int64_t files,
                                          std::int64_t failedFiles);
  ORRERY_PLATFORM_HIDDEN bool finish(const char* tag, DZJobStatus status, DZJobStatusFor what, int code);

 private:
  long long jobId_ = 0;
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
  /// Files that had to be protected and could not be.
  bool addBackupFileFailures(std::int64_t count);
  bool addFilesXferred(std::int64_t count);
  /// Uncompressed bytes.
  bool setUnCompBytesToAdd(std::int64_t bytes);
  bool complete(DZJobStatus status, DZJobStatusFor what, int code, int flags);
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

 private:
  long long jobId_ = 0;
  EvEvent event_;
};
