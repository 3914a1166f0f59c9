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
/// emptied while a process has it open.

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
  /// Appends the images for the restore's time, in the order in which they are to be applied; each has been read from
  /// end to end.
  int getBackupImages(std::vector<ArchFileListByTimeElement_t>& images);
  /// The whole restore: images, stop, empty directory, images in order, owner, full backups next, start, ping. Ends the
  /// job. Causes: 0x5700006F no usable images, 0x57000072 the server would not stop or keeps its directory open,
  /// 0x57000070 the directory is not empty, 0x5700006C an image failed, 0x5700006A the owner could not be set,
  /// 0x57000071 the server does not answer.
  int sbtRestoreToTime();
  /// One run of `mysqlbackup`, supervised when there is a job, else through the shell. Prints its success.
  int sbtRestoreFromImage(const std::string& imageName, bool incremental);
  /// Gives the data directory to the account of the server.
  int setPermissionsToDataDir();
  /// Makes the next backup of every subclient of the destination instance a full one.
  int setForceFullFlags();
  void cleanUp() override;

  /// What the task or the caller said, after `initialize`.
  const std::string& targetDirectory() const noexcept { return targetDirectory_; }
  bool isIntoServer() const noexcept { return restoreToServer_; }

 private:
  std::string targetDirectory_;
  std::string extraOptions_;
  bool commandLineInputs_ = false;
  bool restoreToServer_ = false;
  std::unique_ptr<DZRestoreTask> task_;
  std::string ownerUser_;
  std::string ownerGroup_;
  GetMySqlInfoExt session_;
};
