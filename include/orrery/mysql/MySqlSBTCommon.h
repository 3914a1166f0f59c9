#pragma once

/// Enterprise backup over the media interface: what its drivers share.
///
/// `mysqlbackup` runs as a child and loads the media library, which connects back to this process over a session server
/// and tells what it moves. MySqlSBTUtils owns the job's clients, the session server and the supervision of the child;
/// MySqlSBTHandler turns what the media library tells into the job's counters.
///
/// Order of a driver's calls: construct; initializeJobControl; attach the handler (setSBTAgent, setJobId);
/// initializeCommonParams; set isInitialized_; runCommand for each run of `mysqlbackup`; NotifyArbiterJobComplete;
/// cleanUp; destroy. The job must be the job of the process (orrery::platform::ScopedJob): the session server's name
/// comes from it.
///
/// Three threads meet during a run:
///  - the driver's, in runCommand: looks at the child and at the flags once a second, asks for the quit flag, tells
///    causes. Everything here belongs to it unless said otherwise;
///  - the session server's: the handler's call-backs, one at a time, each under the session server's handler lock. They
///    touch what is atomic below, `jobType_` among it, and the counters of the job's client, which take care of
///    themselves. The idle call-back runs there too and takes no lock;
///  - the child's waiter, inside the child's object.
/// The session server's thread ends with its run, with cleanUp, and with the object.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "orrery/mysql/export.h"
#include "orrery/platform/DZJobClient.h"
#include "orrery/platform/DbSessionServer.h"
#include "orrery/platform/DzThread.h"
#include "orrery/platform/EvEvent.h"

namespace LibMySqlProcess {
class MySqlChildProcess;
}
class MySqlSBTUtils;

/// What a job does, as the drivers tell it.
enum class DZJobType : std::uint32_t { none = 0, backup = 1, restore = 2 };

/// Below the agent's folder for job results, the folder of all restores: TIME/INSTANCE-ID is that of one run, which it
/// removes at its end. What is there of a process that was killed may hold a whole copy of the data.
inline constexpr const char* kRestoreResultsFolder = "DZ_JobResults/2/0/RST";

/// Application type of MySQL in the suite.
inline constexpr int kMySqlApplicationType = 104;

/// The parameters of a job. A plain record; the utilities themselves read `clientNameText` and `clientName` only.
/// Client and instance are those whose images they are; of a restore to another place, the destination has its own
/// fields.
struct SBTParams {
  std::int64_t realmId = 0;
  std::int64_t reserved = 0;  ///< not read
  std::string instanceName;
  std::uint64_t instanceId = 0;
  std::string clientNameText;  ///< the source client; handed to `mysqlbackup` as DzSrcClientName
  std::uint64_t clientId = 0;
  std::string clientName;  ///< the local client
  // Of a restore.
  std::uint64_t destinationClientId = 0;
  std::uint64_t destinationInstanceId = 0;
  std::string binaryDirectory;   ///< folder of `mysqlbackup`
  std::string dataDirectory;     ///< where to, when no job says it
  std::int64_t restoreTime = 0;  ///< seconds since the epoch
  std::string extraOptions;      ///< further options of `mysqlbackup`, as they stand
  std::string ownerUser;         ///< whose the data directory is to be, when no job says it
  std::string ownerGroup;
  std::string tokenFile;  ///< handed to `mysqlbackup` as DzKycmdTokenFile
  std::string reservedText1;
  std::string reservedText2;
};

/// What the media library tells the agent. The call-backs run on the session server's thread.
class ORRERY_MYSQL_EXPORT MySqlSBTHandler : public DBAgentUtils::DzDbAgentSessionHandler {
 public:
  MySqlSBTHandler();
  MySqlSBTHandler(const MySqlSBTHandler&) = delete;
  MySqlSBTHandler& operator=(const MySqlSBTHandler&) = delete;
  ~MySqlSBTHandler() override;

  CKyError OnClientConnect(CDzNetwork* network, long long session, CDzNetworkServer* server) override;
  /// An error of code 14 for a message of an unknown code, and when the job did not take the counters.
  CKyError OnClientMsg(CDzNetwork* network, DznHandle_t handle, unsigned long msgType, dzsDatabuf_v2* data,
                       CDzNetworkServer* server) override;
  CKyError OnClientDisconnect(CDzNetwork* network, unsigned long handle, CDzNetworkServer* server) override;
  /// 5: so many idle intervals in a row fail the run.
  std::uint32_t GetIdleTimeoutMaxCount() override;

  /// The object that gets the counters; not owned, null for none. Before a run begins.
  void setSBTAgent(MySqlSBTUtils* agent) noexcept { sbtAgent_ = agent; }
  MySqlSBTUtils* getSBTAgent() const noexcept { return sbtAgent_; }
  void setJobId(long long jobId) noexcept { jobId_ = jobId; }

  /// Kept: never taken back. Every later supervision pass of the driver fails, those of its later runs too, even when
  /// the media library speaks again. Any thread.
  void failThread() noexcept { threadFailed_ = true; }
  bool isThreadFailed() const noexcept { return threadFailed_; }

 private:
  ORRERY_MYSQL_HIDDEN CKyError onProgress(const SbtProgressMessage& message, unsigned long msgType);

  EvEvent event_;
  std::int64_t jobId_ = 0;
  std::atomic<bool> threadFailed_{false};
  MySqlSBTUtils* sbtAgent_ = nullptr;
};

/// Common base of the backup and the restore driver. Operations return 0, or -1 with the reason in the log, unless said
/// otherwise.
class ORRERY_MYSQL_EXPORT MySqlSBTUtils {
 public:
  MySqlSBTUtils();
  /// Ends the session server and its thread, then the job-control client, then the job's client.
  virtual ~MySqlSBTUtils();
  MySqlSBTUtils(const MySqlSBTUtils&) = delete;
  MySqlSBTUtils& operator=(const MySqlSBTUtils&) = delete;

  /// Look-ups of clients and of MySQL instances. The output is written on success only.
  int getInstanceIdFromName(std::uint64_t clientId, const std::string& instanceName, std::uint64_t& instanceId);
  int getInstanceNameFromId(std::string& instanceName, std::uint64_t instanceId);
  int getClientIdFromName(const std::string& clientName, std::uint64_t& clientId);
  int getClientNameFromId(std::string& clientName, std::uint64_t clientId);

  /// Runs a command: through the shell, with the agent's libraries on its path, which waits for it and fills `rc` with
  /// what system() gave; or without one as a supervised child (WaitForMEB), which leaves `rc` alone. `out` and `err`
  /// are never filled. A negative result of system() counts as success.
  int runCommand(const std::string& command, std::string& out, std::string& err, int& rc, bool throughShell);
  /// Removes the working directory and ends the session server. May be called more than once; a later run begins
  /// anew.
  virtual void cleanUp();
  /// One supervision pass over a started child. False: the run is over, or has been ended.
  bool shouldContinue(LibMySqlProcess::MySqlChildProcess& child);
  /// Serves the media library and supervises a started child until it ends, fails or is to end; a pass a second, the
  /// first after a second. -1 when the child is marked failed in the end. The media library is not served any more
  /// then.
  int WaitForMEB(LibMySqlProcess::MySqlChildProcess& child);

  /// Chooses the name of the working directory, which is not made here, and finds the media library. After
  /// initializeJobControl, whose job type is part of the name.
  int initializeCommonParams(std::uint64_t instanceId);
  /// Makes the job's clients. A job type that is neither backup nor restore leaves no job object.
  int initializeJobControl(long long jobId, DZJobType type, std::string arbiterClientName, const char* extra);

  /// Sets what the next updateInfo adds to the job's counters. -1 without a job.
  int addFilesXferred(std::int64_t count);
  int setUncompBytesToAdd(std::int64_t bytes);
  /// Forgets the totals that the media library told last: its next ones count from nothing. What an update did not add
  /// is tried once more before; what is refused then as well is lost.
  int resetCountersFromCache();
  /// Adds the counters to the job's; whether the job manager took them.
  bool updateInfo(bool force);

  /// Marks the job or its phase as ended.
  int NotifyArbiterJobComplete(DZJobStatus status, DZJobStatusFor statusFor, int code);

  /// Null without one.
  DZJobClient* getJobObject() const noexcept { return jobObject_.get(); }
  DZJobCtrlClient* getJobControl() const noexcept { return jobControl_.get(); }
  /// What NotifyArbiterJobComplete was given last; 0 before.
  DZJobStatus getJobStatus() const noexcept { return jobStatus_; }
  /// Whether the media library is connected. Any thread.
  void setIsSessionServerReady(bool ready) noexcept { isSessionServerReady_ = ready; }

 protected:
  friend class MySqlSBTHandler;

  std::string jobResultsDir_;   ///< working directory of the run; removed by cleanUp
  std::string sbtLibraryPath_;  ///< the media library
  std::string driverText1_;     ///< a working value of the driver
  std::string driverText2_;     ///< another
  EvEvent event_;
  std::atomic<bool> isSessionServerReady_{false};
  std::unique_ptr<DZJobCtrlClient> jobControl_;
  std::unique_ptr<DZJobClient> jobObject_;
  std::string streamText_;  ///< of the job-control client, beside "CONTROL"
  std::atomic<DZJobType> jobType_{DZJobType::none};
  DZJobStatus jobStatus_ = DZJobStatus{};
  SBTParams params_;
  bool isInitialized_ = false;  ///< set by the driver; no run is supervised without it
  std::shared_ptr<MySqlSBTHandler> handler_;
  /// Serves processes of the agent's own account, as which `mysqlbackup` runs; a driver that runs it as another one
  /// admits that here.
  std::unique_ptr<DBAgentUtils::DbSessionServer> sessionServer_;
  std::int64_t jobId_ = 0;  ///< 0: no job
  std::atomic<std::int64_t> cachedBytes_{0};
  std::atomic<std::int64_t> uncompBytesToAdd_{0};
  std::atomic<std::int64_t> cachedFiles_{0};
  std::atomic<std::int64_t> filesToAdd_{0};

 private:
  ORRERY_MYSQL_HIDDEN int initializeBackupJob(const std::string& managerName, const char* extra);
  ORRERY_MYSQL_HIDDEN int initializeRestoreJob(const std::string& managerName, const char* extra);
  ORRERY_MYSQL_HIDDEN void tellMissingLibrary();
  ORRERY_MYSQL_HIDDEN int runThroughShell(const std::string& command, int& rc);
  ORRERY_MYSQL_HIDDEN int runSupervised(const std::string& command);
  ORRERY_MYSQL_HIDDEN int serveMediaLibrary();
  ORRERY_MYSQL_HIDDEN int supervise(LibMySqlProcess::MySqlChildProcess& child);
  ORRERY_MYSQL_HIDDEN void tellFailure(LibMySqlProcess::MySqlChildProcess& child);
  ORRERY_MYSQL_HIDDEN void endSessionServer();
  ORRERY_MYSQL_HIDDEN bool isBackup();
  ORRERY_MYSQL_HIDDEN DZBkpJobClient* backupJob() const;
  ORRERY_MYSQL_HIDDEN DZRstJobClient* restoreJob() const;
  ORRERY_MYSQL_HIDDEN bool tellCompletion(DZJobStatus status, DZJobStatusFor statusFor, int code);

  DzThread sessionThread_;
};

/// A thread's routine: serves the media library of the process's job until the session server is cleaned up.
/// `sessionServer` is a DBAgentUtils::DbSessionServer with a MySqlSBTHandler; null does nothing. Returns null.
ORRERY_MYSQL_EXPORT void* startThreadForMEBSessionServer(void* sessionServer);
/// The session server's idle call-back: counts, and fails the handler at the maximum. Null does nothing.
ORRERY_MYSQL_EXPORT void AcceptMySqlIdleCallback(void* sessionServer);
