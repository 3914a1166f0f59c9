#pragma once

/// The one interface through which agents query and command a MySQL or MariaDB server.
///
/// `GetMySqlInfo` is a session with a server and, in itself, the implementation in command mode: every request runs one
/// of the server's own clients (`mysql`, `mysqladmin`) as the instance's Unix account. A derived class may answer the
/// same requests in another way; callers hold a `GetMySqlInfo*` and need not know which they got.
///
/// Results are 0 for success and -1 for failure unless an operation says otherwise. A failure is logged through
/// `evEvent` with the failed step. A failed client leaves the server's error number and text in `iErrorCode` and
/// `strErrorString`; so does a request that the session refuses to send (`iErrorCode` is then -1). No operation throws.
///
/// One thread uses one object at a time. Different objects may be used at the same time. A thread that uses one must
/// not be cancelled meanwhile (pthread_cancel), and the process must not ignore SIGCHLD: its clients could not be
/// waited for.

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orrery/mysql/DatabasePlan.h"
#include "orrery/mysql/FurtherPath.h"
#include "orrery/mysql/export.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/MySqlInstance.h"

namespace IdxMetadata {
class MySqlDbInfo;
}

class DZBkpJobClient;
class DZJobCtrlClient;
class MySqlChildProcess;

namespace orrery::mysql {
class Dialect;
class InstanceLock;
struct InstanceFiles;
struct ReplicationStatus;
}  // namespace orrery::mysql

class ORRERY_MYSQL_EXPORT GetMySqlInfo {
 public:
  /// A session that is not usable before one of the `Init` operations succeeded.
  GetMySqlInfo();
  /// Looks the instance up and calls `Init(MySqlInstance*)`, whose result goes to `rc`; -1 for an unknown instance.
  GetMySqlInfo(long instanceId, int& rc);
  /// The same for the instance of an application.
  GetMySqlInfo(ApplicationId appId, int& rc);
  /// A session of its own on the same instance, with a defaults file of its own. The two share the instance entity,
  /// which lives until the last of them is gone. A copy always counts as initialised, even when its defaults file
  /// could not be written (which is logged): its statements then fail at the client.
  GetMySqlInfo(GetMySqlInfo& other);
  GetMySqlInfo& operator=(const GetMySqlInfo&) = delete;

  /// Interface, in the order of the callers' table of operations: slots must never move.

  /// Removes the defaults file and lets go of the instance entity.
  virtual ~GetMySqlInfo();
  /// The server's data paths by their kind. Keys: "datadir"; "innodb_data_home_dir", "innodb_log_group_home_dir" and
  /// every InnoDB data file that has a directory of its own, under itself, but only where the server says that it has
  /// no InnoDB (library mode reads them where it has). `paths` is emptied first and keeps what was found before a
  /// failure. For a session with an instance, the data directory and its owner go to the inventory, see
  /// `setDataPathsToARDB`.
  virtual int FindAllDatabasePaths(std::map<std::string, std::string>& paths);

  /// Initialisers. On failure the members read so far stay, and the session is not usable.
  /// From an application: the instance it belongs to.
  virtual int Init(ApplicationId appId);
  /// From the id of an instance in the inventory.
  virtual int Init(long instanceId);
  /// From an entity, which stays the caller's. Reads the instance's properties, finds the client that owns it, opens
  /// the stored password and writes the defaults file; an earlier file of this session is removed first.
  virtual int Init(MySqlInstance* instance);
  /// From explicit parameters. Writes no defaults file and opens no password: statements in command mode run with an
  /// empty --defaults-file=, which the clients accept as "no option file", and the removal of the file at the end fails
  /// and is only logged. Meant for sessions that bring their password to the server in another way.
  virtual int Init(MySqlServer server);

  /// Whether the server answers. 0 only when the client reports it alive; a server that refuses the account counts as
  /// not answering.
  virtual int PingServer();
  /// Reads a server variable. `name` is a LIKE pattern; one that could end its quoting is refused. A variable that does
  /// not exist yields an empty value and 0.
  virtual int QueryVariable(std::string name, std::string& value);
  /// Whether binary logging is on: 1 on, 0 off, -1 when that cannot be told. Sets `iSessionMode`.
  virtual int FindBinLogStatus();
  /// Directory of the binary logs; empty when binary logging is off.
  virtual int GetLogBinPath(std::string& path);
  /// `max_allowed_packet` in bytes.
  virtual int GetMaxAllowedPacket(long long& size);
  /// Append the names of all binary logs, oldest first; nothing when binary logging is off, which is a success. The
  /// first one reads the numbers at the end of the list's first and last name; they stay as they are when nothing is
  /// listed or a name has none, and a null is skipped. The second one lists and then rotates the logs when
  /// `flushAfter` is set, so that every listed log is complete afterwards; a failed rotation fails it with the list
  /// filled.
  virtual int FindMasterLogs(std::list<std::string>& logs, long* first, long* last);
  virtual int FindMasterLogs(std::list<std::string>& logs, bool flushAfter);
  /// Whether the server has a database. Line feeds are removed from `db`, and "_" and "%" in it get a backslash: the
  /// caller's text is the pattern that was asked for afterwards. `present` stays on failure. An empty name is present:
  /// the server answers it with all databases. Here and in the two
  /// operations about one database below, a name with a double quote, a line break or a null is refused: no client
  /// runs.
  // The derived class hides this one on purpose, see there.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  virtual int CheckDBPresence(std::string& db, bool& present);
#pragma GCC diagnostic pop
  /// Rotates the server's logs. Does nothing for a cloud database, whose logs are not backed up.
  virtual int FlushLogs();
  /// Creates a database unless it exists. A name with a back-tick, a double quote, a line break or a null is refused:
  /// no client runs.
  virtual int CreateDB(std::string db);
  /// Drops a database. Server error 1008 when it does not exist. Names are refused as in CreateDB.
  virtual int DropDB(std::string db);
  /// Removes the binary logs before `file`. Server error 1373 when there is no such file. A name with a quote, a line
  /// break, a null, or a backslash before the closing quote is refused.
  virtual int PurgeLogsTo(std::string file);
  /// Version of the server up to its first "-", for example 10.11.6.
  virtual int getVersionFromServer(std::string& version);
  /// Reads the name of the binary log that is written now into `strMasterLogFile`, and the part of it before its first
  /// "." into `strLogBaseName`. Both are empty when binary logging is off.
  virtual int LastLogName();
  /// Appends the names of the databases, each with a "/" before it, without performance_schema and information_schema.
  virtual int FetchDBList(std::list<std::string>& databases);
  /// Start and stop replication, whoever else holds it. Library mode counts who does.
  virtual int StartSlave();
  virtual int StopSlave();
  /// Launches the command that starts the server, with /bin/sh, as the agent's own account. Null: "service mysqld
  /// start". The command is logged as it is. 0 once it is launched: neither its end nor the server is waited for, see
  /// PingServer. It outlives the agent, has no terminal, and its standard streams are /dev/null (see
  /// DzProcess::StartProcess). -1 when it cannot be launched: the reason is logged and left as the last error (number
  /// -1), and the job gets the critical event 0x57000056 with "Error while bringing up database server".
  virtual int StartServer(const char* startCommand);
  /// Stops the server and waits until it answers no more. The command runs as the agent's own account and without a
  /// shell: its first word is a path, and blanks and quotes part it as in a client's command line. Null: mysqladmin's
  /// shutdown with the session's defaults file, and its successor where that name is missing. The command is logged as
  /// it is, is waited for without limit, reads nothing, and its output is thrown away.
  ///
  /// 0 when the server answers no more; its process may need a moment longer to end. 0 also, and no command runs, when
  /// it does not answer a ping to begin with, for whatever reason: the reason, a refused password say, is logged and
  /// left as the last error. A stop leaves the last error as it was. -1 when a part of the built-in command line cannot
  /// be carried (see executeMySqlCommand), when the command cannot be started or fails: the reason is logged and left
  /// as the last error, and the job gets the critical event 0x57000056 with "Error while shutting down database server"
  /// or with the command's error text. -1 also when the server still answers after three checks, 10 seconds apart,
  /// which is only logged.
  virtual int StopServer(const char* stopCommand);
  /// Reads the server's status as a replica. `running`: both replication threads were seen to run; false also on
  /// failure. `partial`, set only when they do: filters leave a part of the primary out. `status` becomes 99 when
  /// replication stands still because backups hold it, see `GetMySqlInfoExt::StopSlave`: the replica then counts as
  /// online; else it stays. `text` stays. -1 also for a server that is no replica.
  virtual int getReplicationStatus(bool& running, bool& partial, int& status, std::string& text);
  /// Size of a database's tables in bytes and the oldest creation time as the server writes it; 0 and "0" for one
  /// without tables, and also when the server cannot be asked for them. `db` is the bare name.
  virtual int getDBProps(std::string db, std::string& createTime, unsigned long long& size);
  /// Whether no table of a database, given by its bare name, is of another engine than InnoDB. True without tables.
  virtual int isUsesInnoDBEngine(std::string db, bool& innoDbOnly);
  virtual int checkInnoDbFilePerTable(std::string db, bool& filePerTable);
  /// Runs a CREATE DATABASE text as it is. A text with a double quote or a null cannot pass a client's command line and
  /// is refused.
  virtual int createDatabaseUsingSchema(std::string schema);
  /// Checks that the database can be reached, then runs a CREATE TABLE text as it is, in a client of its own that has
  /// no default database: the text must name the database where the server needs it.
  virtual int createTableUsingSchema(std::string db, std::string schema);
  /// Check that the database can be reached, then discard or import the tablespace of a table, in a client that has no
  /// default database: `table` is put between back-ticks as it is.
  virtual int discardTableSpace(std::string db, std::string table);
  virtual int importTableSpace(std::string db, std::string table);
  /// Switches foreign-key checks of the server: 0 off, 1 on. Existing connections keep their setting.
  virtual int setForeignKeyConstraint(int enabled);
  /// Accounts are not offered over the command line: this one and the three of them below always fail in command mode.
  virtual int setIdentifiedWithAsHex(const std::string& value);
  /// Removes all binary logs and starts anew with the first.
  virtual int ResetMaster();
  virtual int getUsers(std::vector<std::string>& accounts);
  virtual int getCreateUserQuery(const std::string& account, std::string& statement);
  virtual int getGrantQueries(const std::string& account, std::vector<std::string>& statements);
  /// Metadata for the index; not offered over the command line, so these two always fail in command mode.
  virtual int fillDatabaseInfo(std::string db, IdxMetadata::MySqlDbInfo* record);
  virtual int fillTableInfoForDataBase(std::string db, std::vector<std::string>* records);
  virtual int isXtrabackupPossible();
  /// 1 when the table is partitioned. Always 0 in command mode, which does not look.
  virtual int isPartitionedTable(std::string db, std::string table);
  /// Recovery of one table. Not offered: always -1.
  virtual int recoverTable(std::string db, std::string table, std::string path, std::string target);
  /// Whether the server is MySQL 8 or later. Command mode does not look: false.
  virtual bool isMySQL8orMore();
  /// Compares the server's version. Command mode does not look: -1, the outputs stay as they were.
  virtual int isVersionGreaterThan(int major, int minor, bool& isMariaDb, bool& greater);

  /// End of the interface by slots.

  /// Writes this session's defaults file: a private option file for the clients, "[client]" and the password, in the
  /// agent's temporary directory, mode 0600, owned by `strUnixUser` when that is set. Sets `strConfigPwdFile` and
  /// `bInitialized`. -1 when there is no temporary directory, the account does not exist or the file cannot be
  /// written; nothing of the attempt is left on disk then. An earlier file of this session is removed once the new
  /// one is written. A password that an option file cannot carry as it is, is written all the
  /// same and a log line warns, without showing it: the clients will be refused.
  int CreateConfigPwdFile(unsigned long suffix);
  /// Removes the defaults file; afterwards the session refuses statements. 0 also when there is nothing to remove. -1
  /// when the file cannot be removed; the session then stays usable.
  int DeleteConfFile();
  /// Creates a directory with its missing parents.
  int CreateDir(std::string path);
  /// Connection part of a client's command line: " --host=H --port=P", or " --socket=S" when there is no host.
  std::string GetConnectMethod();
  std::string GetConnectMethod(const std::string& socket);
  std::string GetConnectMethod(const std::string& socket, const std::string& host, const std::string& port);
  /// Splits "host:port". Anything but exactly two pieces leaves both outputs as they are.
  void GetHostPortFromSocket(const std::string& socket, std::string& host, std::string& port);
  /// The part of `name` before its first ".". Without one, `shortName` stays as it is.
  void GetShortName(const std::string& name, std::string& shortName);
  /// `text` with a backslash before every "_" and "%", so that a LIKE pattern matches it literally.
  std::string SpecialCharactersCheck(std::string text);
  void clearErrors();
  /// Whether a client is a cloud database client. The last answer is remembered for the process; a client that cannot
  /// be looked up is logged and remembered as none.
  bool IsCloudDBInstance(const unsigned long& clientId);
  /// Where this machine, as a proxy, holds the client programs for a client's servers of a version. `path` stays empty
  /// when no directory is known. -1 when the directory service cannot answer.
  int GetProxyBinPath(const unsigned long& clientId, const unsigned long& appType, const std::string& version,
                      std::string& path);

  /// Runs one statement with `mysql`, or a ping with `mysqladmin` when `bPing` is set (`statement` is then ignored).
  /// `output` receives what the client wrote to standard output: rows without a header, columns separated by tabs.
  /// -1 when the session is not initialised, a part of the command line cannot be carried (a blank or a quote in a
  /// path, no account, a double quote in the statement), the client cannot be started, or it fails. Each call is a
  /// client of its own: no default database and no session variable lasts.
  int executeMySqlCommand(std::string statement, std::string& output, bool bPing);
  /// Calls StopServer, as the object's own class has it.
  int StopServerFn(const char* stopCommand);
  /// Appends the lines of `text`, without their line feeds; empty ones too, and a last one that has none. Always 0.
  int MakeListFromBuffer(const std::string& text, std::list<std::string>& lines);
  /// Makes the outputs of `getReplicationStatus` out of a replica's status row: the values of its columns in the
  /// server's order, or the lines of a client's vertical listing. Of a row that does not look like one the log tells.
  /// When replication does not run, the counter of running backups is read under the instance's lock, for which this
  /// may wait ten minutes. Keeps the file and position of the primary and the filters in the session. -1 for an empty
  /// list, for one that is too short to tell, and when the lock cannot be had.
  int ProcessReplicationStatusOutput(std::list<std::string>& values, bool& running, bool& partial, int& status,
                                     std::string& text);
  /// What the server wrote of its two replication threads at the last `getReplicationStatus`: whether the one that
  /// fetches from the primary does something, connected or not, and whether the one that carries it out runs.
  bool replicaFetches() const noexcept {
    return replicaFetches_;
  }
  bool replicaApplies() const noexcept {
    return replicaApplies_;
  }
  /// Checks that a database can be reached. Server error 1049 when it does not exist. Does not select it for later
  /// statements. A name with a quote, a back-tick, a line break, a null or a backslash is refused: clients resolve
  /// backslashes in this request and would check another database.
  int UseDatabase(std::string db);

  /// Reconciles the server's databases with the content of the subclients of `application`'s backup set, and appends
  /// what its subclient has to protect now to `valid`. New databases of the server go into the content of a default
  /// subclient whose instance has automatic discovery on: appended to `newDatabases`, with their sizes in bytes in
  /// `sizes`. Databases that discovery added and that are gone are taken out of the content (information event
  /// 0x57000020). Those that people added and that are gone are left out, told as major event 0x5700001c and counted
  /// as failures of `job`, unless `backupKind` is 2. `reserved` is not looked at. `jobControl` may be null; 1 when its
  /// quit flag stopped the scan of new databases, whose content was then not written. -1 without a subclient, when the
  /// server's list (cause 0x57000034 of `job`) or the content (cause 0x57000035) cannot be read, or new content cannot
  /// be written.
  int getValidDatabasesListForBackup(ApplicationId* application, std::list<std::string>& valid, int& reserved,
                                     DZJobCtrlClient* jobControl, DZBkpJobClient* job,
                                     std::list<std::string>& newDatabases,
                                     std::map<std::string, unsigned long long>& sizes, int backupKind);
  /// What `getValidDatabasesListForBackup` would find, without changing or telling anything. -1 as there; `plan` then
  /// stays.
  int planDatabasesForBackup(ApplicationId* application, orrery::mysql::DatabasePlan& plan);

  /// Owner of a file or directory, links followed: "usergroup:USER#GROUP;". A user id without an entry makes both
  /// numbers, and the group is not looked up; a group id without an entry is a failure. `owner` stays then.
  int getUserGroupOfPath(std::string path, std::string& owner);
  /// Writes the data directory and its owner into the instance's property, see `MySqlInstance::getMySqlDataDir`. The
  /// directory is left out for the path "./", the owner for a cloud database.
  int setDataPathsToARDB(std::string path);
  /// Reads that property and takes what stands behind the first ":" of its first field, whatever the field is; the
  /// whole field when it has none. -1 for null and when the inventory cannot be read; `dataDir` stays then.
  int getDataDir(MySqlInstance* instance, std::string& dataDir);
  /// Takes the property apart. Outputs whose field is missing, or holds its separator once more, stay.
  static void extractDataDir(const std::string& property, std::string& dataDir, std::string& user, std::string& group);
  /// Appends the paths of a directory's entries whose name contains `fragment`, in the directory's order. What was
  /// found before a failure stays.
  int readFileListByPattern(const std::string& directory, const std::string& fragment, std::vector<std::string>& files);
  /// Appends the places that hold this server's data outside its data directory and that `FindAllDatabasePaths` of the
  /// session's mode does not name, in the order of kinds and paths, and linked databases in either mode, because the
  /// map gives them as one text that cannot be taken apart: absolute, without links, and nothing that lies in another
  /// such place of its kind or in a database's directory. Asks the server and looks into its data directory, so it has
  /// to run on the server's machine, with the right to read there. Variables and tables that the server does not know,
  /// and links that lead nowhere, are passed over. `paths` stays on failure.
  int findFurtherPaths(std::vector<orrery::mysql::FurtherPath>& paths);

  /// Name of a database's directory or a table's files on disk: letters and digits of ASCII and "_" stay, every other
  /// character becomes "@" and its code point in at least four hexadecimal digits. A byte that is no part of a UTF-8
  /// character counts as the code point U+FFFD. Servers have shorter codes for some letters outside ASCII, which this
  /// rule deliberately does not know.
  std::string getMySqlHexName(const std::string& name);
  void convertSpecialCharsToHexChars(const std::string& name, std::string& encoded);

  /// Whether the server is MariaDB; works in every mode. 0 when that could be told, -1 when it could not; `mariaDb` is
  /// false then. The server's version comment tells; where it names neither family, as packagers' comments do, the
  /// version text does, and the log says so.
  int isMariaDb(bool& mariaDb);
  /// Brings the instance's stored MariaDB property into line with the server; writes only when they differ. -1 when the
  /// session was not built from an instance, the server cannot be asked or the inventory cannot be read or written.
  int updateMariaDbFlag();

  // The session. Callers may read it; only the library writes it.
  std::int32_t iErrorCode = 0;              ///< server error number of the last failure; -1 when there was none to read
  std::string strErrorString;               ///< text of the last failure
  bool bInitialized = false;                ///< usable
  MySqlInstance* pMySqlInstance = nullptr;  ///< the entity the session was built from; the session's own
  EvEvent evEvent;                          ///< log and job context
  std::string strArchiveLogIndexFile;       ///< binary-log index file
  std::string strSocketFile;                ///< socket, or "host:port"
  std::string strUnixUser;                  ///< account that owns the server; clients run as it
  std::string strSaUser;                    ///< MySQL account of all statements
  std::string strSaPassword;                ///< its password as the agent stores it
  std::string strPassword;                  ///< its password
  std::string strVersion;                   ///< version as configured
  std::string strBinaryPath;                ///< directory of the clients and server programs
  std::string strDataPath;                  ///< data directory as configured
  std::string strConfigFile;                ///< the server's option file
  std::string strNTUser;                    ///< not used on Linux
  std::string strNTPassword;                ///< not used on Linux
  std::uint64_t ulInstanceId = 0;           ///< also part of the defaults file's name
  std::int32_t iDbAutoDiscovery = 0;        ///< 1: the agent adds new databases itself
  std::string strHost;                      ///< of a "host:port" socket
  std::string strPort;                      ///< of a "host:port" socket
  std::string strSessionString1;            ///< reserved
  bool bSlaveStoppedBySession = false;      ///< this session holds replication stopped, alone or with others
  std::string strMasterLogFile;             ///< binary log written at the last LastLogName
  std::string strLogBaseName;               ///< its name without the number
  std::int32_t iSessionMode = 2;            ///< binary logging at the last FindBinLogStatus: 0 off, 1 on, 2 unknown
  std::string strConfigPwdFile;             ///< path of the defaults file
  ApplicationId appId;                      ///< the application the session was built from
  std::string strReplicationFile;           ///< path of the instance's lock file, once it was used
  std::string strSessionString2;            ///< Relay_Master_Log_File of the last replication status
  std::string strSessionString3;            ///< its Exec_Master_Log_Pos
  std::string strSessionString4;            ///< its Replicate_Do_DB
  std::string strSessionString5;            ///< its Replicate_Ignore_DB
  std::string strSessionString6;            ///< its Replicate_Do_Table
  std::string strSessionString7;            ///< its Replicate_Ignore_Table
  std::string strSessionString8;            ///< its Replicate_Wild_Do_Table
  std::string strSessionString9;            ///< its Replicate_Wild_Ignore_Table
  bool bUseSsl = false;                     ///< the CA is set, or key and certificate are
  std::uint64_t ulClientId = 0;             ///< client that owns the instance
  std::string strSslCa;
  std::string strSslKey;
  std::string strSslCert;

 protected:
  /// Fails an operation that this build does not offer yet: logs its name and returns -1.
  ORRERY_MYSQL_HIDDEN int notBuiltYet(const char* operation);
  /// Whether the session's TLS files ask for encryption: sets `bUseSsl`.
  ORRERY_MYSQL_HIDDEN void updateUseSsl();
  ORRERY_MYSQL_HIDDEN void takeRecord(const MySqlServer& server);
  /// Names of the files in which the backups of this instance meet. -1, logged, without a temporary directory or an
  /// instance. The lock file's path goes into the session.
  ORRERY_MYSQL_HIDDEN int findInstanceFiles(const char* tag, orrery::mysql::InstanceFiles& files);

  /// The instance's lock while this session holds it and asks for the replication status meanwhile: a second lock of
  /// its own would wait for the first.
  const orrery::mysql::InstanceLock* heldLock_ = nullptr;

 private:
  ORRERY_MYSQL_HIDDEN void keepReplicationFields(const orrery::mysql::ReplicationStatus& row);
  ORRERY_MYSQL_HIDDEN int checkParallelBackups(const char* tag, int& status);
  ORRERY_MYSQL_HIDDEN void lookForParallelBackups(const char* tag, const std::string& counter, int& status);
  ORRERY_MYSQL_HIDDEN int adoptInstance(std::unique_ptr<MySqlInstance> instance);
  ORRERY_MYSQL_HIDDEN int initFromInstance(const char* tag, MySqlInstance& instance);
  ORRERY_MYSQL_HIDDEN int readProperties(const char* tag, const MySqlInstance& instance);
  ORRERY_MYSQL_HIDDEN int useProxyClients(const char* tag);
  ORRERY_MYSQL_HIDDEN int openPassword(const char* tag);
  ORRERY_MYSQL_HIDDEN int refuse(const char* tag, const std::string& reason);
  ORRERY_MYSQL_HIDDEN int notOverClients(const char* tag);
  ORRERY_MYSQL_HIDDEN int runStatement(const char* tag, const std::string& statement);
  ORRERY_MYSQL_HIDDEN int runQuery(const char* tag, const std::string& statement, std::string& output);
  ORRERY_MYSQL_HIDDEN int runTableStatement(const char* tag, const std::string& db, const std::string& statement);
  ORRERY_MYSQL_HIDDEN int checkCommandParts(const char* tag, const std::string& statement, bool bPing);
  ORRERY_MYSQL_HIDDEN std::string commandLine(const std::string& program, const std::string& statement, bool bPing);
  ORRERY_MYSQL_HIDDEN int runClient(const char* tag, const std::string& command, bool bPing, std::string& output);
  ORRERY_MYSQL_HIDDEN int rememberClientError(const char* tag, MySqlChildProcess& client);
  ORRERY_MYSQL_HIDDEN bool answersPing();
  ORRERY_MYSQL_HIDDEN std::string shutdownCommand();
  ORRERY_MYSQL_HIDDEN int runStopCommand(const char* stopCommand);
  ORRERY_MYSQL_HIDDEN int waitUntilDown();
  ORRERY_MYSQL_HIDDEN void forgetEarlierServer();
  ORRERY_MYSQL_HIDDEN int fetchRows(const char* tag, const std::string& statement,
                                    std::vector<std::vector<std::string>>& rows);
  ORRERY_MYSQL_HIDDEN int listTablespaces(std::vector<std::vector<std::string>>& rows);
  ORRERY_MYSQL_HIDDEN int askForPath(const char* statement, std::string& output);
  ORRERY_MYSQL_HIDDEN int findInnoDbPaths(std::map<std::string, std::string>& found);

  bool replicaFetches_ = false;
  bool replicaApplies_ = false;
  // Entities of this session, each shared with the session's copies. Earlier ones stay until the session ends, because
  // a caller may still hold their address.
  std::vector<std::shared_ptr<MySqlInstance>> instances_;
  // What this session learned about the texts that its server and clients know.
  std::unique_ptr<orrery::mysql::Dialect> dialect_;
};

/// Reads the database content of every subclient of the application's backup set: appends the names of all to `all`,
/// with 1 for those that discovery added, and those of `subclient` to `own`. A subclient whose content cannot be read
/// is logged and passed over. -1 when the subclients cannot be listed; the outputs then stay.
ORRERY_MYSQL_EXPORT int getDBsFromArbiter(ApplicationId* application, std::list<std::string>& own,
                                          std::list<std::pair<std::string, int>>& all, MySqlSubclient* subclient);

/// Which class an agent constructs for an instance: `commandMode` is set for `GetMySqlInfo` and cleared for
/// `GetMySqlInfoExt`. 0 when that was decided, -1 when it could not be; `commandMode` is false then.
///
/// Settings of section "MySQL" decide first: "sCommandMode" other than 0 forces command mode, a "sLibPath" library
/// mode, and then no server is asked. Otherwise the version of the instance's server does, which a client of its own
/// reads. The reason for the decision or the failure is logged. May be called from any thread; does not throw.
ORRERY_MYSQL_EXPORT int getGetMySqlInfoMode(long instanceId, bool& commandMode);
