#pragma once

/// A backup of an instance to one image on the media, made by the server's enterprise backup program.
///
/// Order of calls: construct; initialize; doMEBBackup; sendIndexingMetaData; NotifyArbiterJobComplete; destroy. The job
/// must be the job of the process (orrery::platform::ScopedJob). Operations return 0, or -1 with the reason in the log.
/// One thread uses an object; see MySqlSBTCommon.h for the threads that a run adds.

#include <cstdint>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/MySqlInstance.h"

/// What a backup program is started with. A plain record.
struct mysqlBackupArgs_t {
  std::int64_t jobId = 0;
  std::uint32_t backupLevel = 1;           ///< 2 incremental; every other value: full
  std::uint32_t applicationInstance = 0;   ///< of the ApplicationId: the instance
  std::uint32_t applicationSubclient = 0;  ///< the subclient
  char applicationText[64] = {};           ///< handed on to the index; null-terminated
  std::string indexImage;                  ///< name of the image in the index, unless the next one is set
  std::uint32_t reserved1[4] = {};
  std::int64_t reserved2 = 0;
  std::string indexImageFirst;  ///< goes before `indexImage` when it is not empty
};

class ORRERY_MYSQL_EXPORT MySqlSBTBackupUtils : public MySqlSBTUtils {
 public:
  MySqlSBTBackupUtils();
  ~MySqlSBTBackupUtils() override;
  MySqlSBTBackupUtils(const MySqlSBTBackupUtils&) = delete;
  MySqlSBTBackupUtils& operator=(const MySqlSBTBackupUtils&) = delete;

  /// Attaches to the job and to the instance, and finds the programs. Tells the job when the instance's session or
  /// properties cannot be had (0x5700004A), or the media library is missing (0x12000022).
  int initialize(mysqlBackupArgs_t& args);
  /// Reads what `mysqlbackup` needs to know of the instance, and makes up the image's name. Part of `initialize`.
  int fetchProperties();
  /// Runs `mysqlbackup` under supervision. A failure is told to the job (0x5700006B) and leaves the working directory,
  /// where the program may have left words of its own; a success removes it. What its command line cannot carry, a
  /// double quote in a path or a comma in a name, is refused and told to the job (0x570000F6); nothing runs then.
  int doMEBBackup();
  /// Enters the instance's databases in the index, for restores to be chosen by. Tells the job when they cannot be
  /// listed (0x57000034).
  int sendIndexingMetaData();
  /// The base's.
  void cleanUp() override;

  /// "sbt:INSTANCE_JOB_SECONDS" once the properties are known. The media know it without "sbt:".
  const std::string& imageName() const noexcept { return imageName_; }
  /// `indexImage` of the arguments, for callers who want the image's own name there: it is not known before
  /// `initialize`.
  void setIndexImage(std::string name) { args_.indexImage = std::move(name); }
  /// The last part of the working directory's name, 0 unless the caller sets it before `initialize`: runs of several
  /// instances that begin in the same second need folders of their own.
  void setInstanceId(std::uint64_t id) noexcept { params_.instanceId = id; }
  /// Handed to `mysqlbackup` with the next run; empty unless the caller sets it.
  void setTokenFile(std::string path) { params_.tokenFile = std::move(path); }

 private:
  ORRERY_MYSQL_HIDDEN int initializeWith(const mysqlBackupArgs_t& args);
  ORRERY_MYSQL_HIDDEN int backupCommand(std::string& command);
  ORRERY_MYSQL_HIDDEN int refuseUnfit(const std::string& directory);
  ORRERY_MYSQL_HIDDEN int sendDatabases();

  std::string imageName_;
  std::string program_;
  std::string saUser_;
  std::string socket_;
  GetMySqlInfoExt session_;
  std::uint32_t backupLevel_ = 1;
  mysqlBackupArgs_t args_;
  ApplicationId application_;
};
