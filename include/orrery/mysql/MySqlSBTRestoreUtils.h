#pragma once

/// A restore of an instance to a point in time from images on the media, made by the server's enterprise backup
/// program.
///
/// Order of calls: construct; initialize; sbtRestoreToTime; cleanUp; destroy. With a job, the job must be the job of
/// the process (orrery::platform::ScopedJob), and its task says what to do (orrery/platform/DZRestoreTask.h); the job
/// is ended by the operations here. Without one the parameters say it, and what goes wrong is printed as well.
/// Operations return 0, or -1 with the reason in the log. One thread uses an object; see MySqlSBTCommon.h for the
/// threads that a run adds.
///
/// Nothing is stopped or emptied before every image has been read once from end to end, and no data directory is
/// emptied while a process has it open, holds a lock in it, or may do so unseen. A server that answers
/// and names the target as its data directory is restored only when somebody is at work in the directory of that path
/// here; that the target is the server's directory is the caller's to know.

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/ArMgrClientAPI.h"

class DZRestoreTask;

class ORRERY_MYSQL_EXPORT MySqlSBTRestoreUtils : public MySqlSBTUtils {
 public:
  MySqlSBTRestoreUtils();
  ~MySqlSBTRestoreUtils() override;
  MySqlSBTRestoreUtils(const MySqlSBTRestoreUtils&) = delete;
  MySqlSBTRestoreUtils& operator=(const MySqlSBTRestoreUtils&) = delete;

  /// Attaches to the job, reads its task and opens the session of the destination instance; job id 0: completes and
  /// checks the parameters instead. A task that cannot be read ends the job as failed.
  int initialize(const SBTParams& params, long long jobId);
  /// For a restore without a job: finds `mysqlbackup`, the source client and instance by their names, and the local
  /// client.
  int autoPopulateInputs();
  /// Reads the job's task. Ends the job as failed, with cause 0x1800003E or 0x5700006D, when that is not possible.
  int populateTaskOptions();
  /// Whether what was given by hand is enough; prints what is missing.
  bool isValidInput();
  /// Appends the images for the restore's time, in the order in which they are to be applied; for one
  /// into the server each has been read from end to end, for a folder it has only been found.
  int getBackupImages(std::vector<ArchFileListByTimeElement_t>& images);
  /// The whole restore: images, stop, empty directory, images in order, owner, full backups next, start, ping. Ends the
  /// job; where it could not even begin, getJobStatus() is still 0 and the caller has to. Causes: 0x5700006F no usable
  /// images, 0x570000F6 and 0x570000F7 refused before anything was changed, 0x57000072 the server refuses the agent,
  /// would not stop, keeps its directory open or was started by something else meanwhile, 0x57000070 the directory is
  /// not empty, 0x570000F8 it could not be emptied or made, 0x5700006C an image failed, with 0x570000FA when the server
  /// has no whole data directory now, 0x5700006A the owner could not be set, 0x57000071 the server does not answer,
  /// 0x570000F9 the job was asked to stop, which is looked at before the server is stopped, until its directory is
  /// emptied and after each image.
  int sbtRestoreToTime();
  /// One run of `mysqlbackup`, supervised when there is a job, else through the shell. Prints its success.
  int sbtRestoreFromImage(const std::string& imageName, bool incremental);
  /// Gives the data directory to the account of the server. Without a target directory the last full image tells it;
  /// without an owner it is that of the destination instance, and when that has none the files stay as they are.
  int setPermissionsToDataDir();
  /// Makes the next backup of every subclient of the destination instance a full one. A restore into the server does so
  /// before the first file goes and again in the end.
  int setForceFullFlags();
  /// As the base's, and the folder of the run's second when nobody else's are in it.
  void cleanUp() override;

  /// Why a restore into the server could not empty this directory, which is asked before the server is stopped: a mount
  /// below it, or what this account cannot remove. Changes nothing. Empty: it could, or there is nothing to empty.
  static std::string whyNotEmptied(const std::string& directory);

  /// What the task or the caller said, after `initialize`.
  const std::string& targetDirectory() const noexcept { return targetDirectory_; }
  bool isIntoServer() const noexcept { return restoreToServer_; }

 protected:
  // The server, for drivers of one's own; as the operations of the session, in which a ping that fails leaves the
  // number and the text of its failure. `command` null: the built-in one.
  virtual int stopServer();
  virtual int startServer(const char* command);
  virtual int pingServer();

  std::string targetDirectory_;
  std::string extraOptions_;
  bool commandLineInputs_ = false;  ///< `mysqlbackup` was looked for, because nobody said where it is
  bool restoreToServer_ = false;
  std::unique_ptr<DZRestoreTask> task_;
  std::string ownerUser_;
  std::string ownerGroup_;
  GetMySqlInfoExt session_;

 private:
  ORRERY_MYSQL_HIDDEN int initializeForJob();
  ORRERY_MYSQL_HIDDEN int initializeByHand();
  ORRERY_MYSQL_HIDDEN int findProgram();

  // The task; -1 with the reason in the log.
  ORRERY_MYSQL_HIDDEN int readTask(std::uint32_t& cause);
  ORRERY_MYSQL_HIDDEN int readSource();
  ORRERY_MYSQL_HIDDEN int readDestination(std::uint32_t& cause);
  ORRERY_MYSQL_HIDDEN int readTarget();
  ORRERY_MYSQL_HIDDEN int readServerTarget();
  ORRERY_MYSQL_HIDDEN int readRestoreTime();

  // The steps of sbtRestoreToTime. Each ends the job when it fails, unless it says otherwise.
  ORRERY_MYSQL_HIDDEN int restoreToTime();
  ORRERY_MYSQL_HIDDEN int findImages(std::vector<ArchFileListByTimeElement_t>& images);
  ORRERY_MYSQL_HIDDEN int checkBeforehand(const std::vector<ArchFileListByTimeElement_t>& images);
  ORRERY_MYSQL_HIDDEN std::string whyNotPossible() const;
  ORRERY_MYSQL_HIDDEN int refuse(std::uint32_t cause, const std::string& why);
  ORRERY_MYSQL_HIDDEN int stopForRestore();
  ORRERY_MYSQL_HIDDEN int waitForOthers(bool serverAnswers);
  ORRERY_MYSQL_HIDDEN int waitUntilLetGo();
  ORRERY_MYSQL_HIDDEN int waitForReturn();
  /// Looks once a second for so long as somebody is there, who is left in `user`; false: the job is to end.
  ORRERY_MYSQL_HIDDEN bool waitWhileUsed(const std::function<std::string()>& look, int seconds, std::string& user);
  ORRERY_MYSQL_HIDDEN int endWhileUsed(const std::string& user);
  ORRERY_MYSQL_HIDDEN std::string directoryOfServer();
  ORRERY_MYSQL_HIDDEN int prepareTarget(const std::vector<ArchFileListByTimeElement_t>& images);
  ORRERY_MYSQL_HIDDEN int emptyTarget(const std::vector<ArchFileListByTimeElement_t>& images);
  ORRERY_MYSQL_HIDDEN int createTarget();
  /// Why the images are not what they were when they were found; empty: they are.
  ORRERY_MYSQL_HIDDEN std::string whyNotInPlace(const std::vector<ArchFileListByTimeElement_t>& images);
  ORRERY_MYSQL_HIDDEN int applyImages(const std::vector<ArchFileListByTimeElement_t>& images);
  /// For causes: which server came up in the directory while it was emptied and filled; empty: none.
  ORRERY_MYSQL_HIDDEN std::string whoCameUp() const;
  ORRERY_MYSQL_HIDDEN int endWhenCameUp();
  ORRERY_MYSQL_HIDDEN int endAfterImage(const ArchFileListByTimeElement_t& image, int result);
  ORRERY_MYSQL_HIDDEN int giveToOwner();
  /// Only tells what fails.
  ORRERY_MYSQL_HIDDEN void forceFull();
  ORRERY_MYSQL_HIDDEN void forceFullFromHere();
  ORRERY_MYSQL_HIDDEN int bringServerUp();
  ORRERY_MYSQL_HIDDEN void launchServer();
  ORRERY_MYSQL_HIDDEN int endSuccessfully();
  ORRERY_MYSQL_HIDDEN bool isToStop() const;
  ORRERY_MYSQL_HIDDEN int stopOnRequest(const std::string& when);
  ORRERY_MYSQL_HIDDEN int stopBeforeRemoval();
  /// For causes: how far a restore came that has removed nothing.
  ORRERY_MYSQL_HIDDEN std::string untouched() const;
  ORRERY_MYSQL_HIDDEN void removeWorkingDirectory();
  /// Tells the cause with its arguments and, as the job's end, the failure; nothing without a job. Always -1.
  ORRERY_MYSQL_HIDDEN int failJob(std::uint32_t cause, const std::vector<std::string>& arguments = {});
  ORRERY_MYSQL_HIDDEN void tellCause(std::uint32_t cause, const std::vector<std::string>& arguments = {});

  ORRERY_MYSQL_HIDDEN int imageCommand(const std::string& imageName, bool incremental, const std::string& directory,
                                       std::string& command);
  ORRERY_MYSQL_HIDDEN int readDefaultsFile(std::string& path) const;
  ORRERY_MYSQL_HIDDEN std::string runDirectory() const;
  ORRERY_MYSQL_HIDDEN std::string unfitValues(const std::string& imageName, const std::string& defaultsFile,
                                              const std::string& directory) const;
  ORRERY_MYSQL_HIDDEN bool findImageQuery(GetArchFileListByTimeArgs_t& query) const;
  ORRERY_MYSQL_HIDDEN int findRestoredDirectory(std::string& directory);
  ORRERY_MYSQL_HIDDEN void takeOwnerOfInstance();

  std::string imagesProblem_;      // why getBackupImages failed last
  bool serverWasStopped_ = false;  // by this restore: it answered before
  std::vector<pid_t> elsewhere_;   // servers that do not work in the target: the locks of the one that answered told
};
