#pragma once

/// Library mode: the interface of `GetMySqlInfo` over one connection of the vendor's client library.
///
/// Everything of the session stays as in `GetMySqlInfo`; requests are answered over a `MySqlInterface` instead of by
/// the server's clients. Requests that a class keeps from its base (marked in the base by their slots) still run
/// clients.
///
/// Results are 0 for success and -1 for failure unless an operation says otherwise. A failure is logged through
/// `evEvent`; where an operation says so it leaves number and text of the failure in `iErrorCode` and
/// `strErrorString`. A request without a connection fails and is logged. No operation throws.
///
/// One thread uses one object at a time; different objects may be used at the same time.

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlMetaData.h"
#include "orrery/platform/DZPlatformInfo.h"

class MySqlInterface;
struct QueryResult;

class ORRERY_MYSQL_EXPORT GetMySqlInfoExt : public GetMySqlInfo {
 public:
  /// Sessions without a connection: `Init` or `ConnectToDB` makes it. The two with a status read the instance as the
  /// constructors of `GetMySqlInfo` do and put the result into it.
  GetMySqlInfoExt();
  GetMySqlInfoExt(ApplicationId appId, int& status);
  GetMySqlInfoExt(long instanceId, int& status);
  GetMySqlInfoExt(const GetMySqlInfoExt&) = delete;
  GetMySqlInfoExt& operator=(const GetMySqlInfoExt&) = delete;
  /// Closes the connection and removes the defaults file.
  ~GetMySqlInfoExt() override;

  /// Read the instance as in `GetMySqlInfo`, then prepare the connection: the result is that of `ConnectToDB`.
  int Init(ApplicationId appId) override;
  int Init(long instanceId) override;
  /// From explicit parameters, the password plain. Writes no defaults file. Leaves host and port of an address in
  /// `strHost` and `strPort`.
  int Init(MySqlServer server) override;
  using GetMySqlInfo::Init;

  /// Prepares the connection from the session's fields: opens the password, looks at the TLS files, loads the client
  /// library. The server itself is first asked by the first request. -1 on failure, with the code of a missing TLS file
  /// (see `sslConnect`) or the loader's text in the session; -2 when the library was loaded and the server refused.
  /// Called again, it replaces the connection.
  int ConnectToDB();
  /// File of the client library for this session: for a TCP address the one below "/usr/lib64/mysql" if it is there,
  /// otherwise the one in the agent's home. The setting "sLibPath" of section "MySQL" goes before both.
  std::string GetLibraryPath();
  /// Hands the TLS files of the instance, or those of the settings when "bSSLEnabled" of section "MySQL" is set, to the
  /// connection and appends them to the defaults file, for clients that are started with it. True also when there are
  /// none. False when one does not exist; `iErrorCode` then holds 0x57000066 for the CA, 0x57000067 for the
  /// certificate, 0x57000068 for the key; -1 when the settings cannot be read, which must not pass for "no files".
  bool sslConnect();
  /// Closes the connection; the next request makes a new one. Needs a connection object. Always 0.
  int Disconnect();
  void SetErrorStatus(int code, std::string text);
  /// Runs a statement without rows. Needs a connection object. Leaves a failure's number and text in the session.
  int runExeQuery(std::string query);

  // Over the connection. A failure leaves its number and text in the session unless it is marked with (-).
  int PingServer() override;
  /// A variable that does not exist is a failure here.
  int QueryVariable(std::string name, std::string& value) override;
  int GetMaxAllowedPacket(long long& size) override;
  int GetLogBinPath(std::string& path) override;
  /// Rotates the server's logs. Does nothing for a cloud database, whose logs are not backed up.
  int FlushLogs() override;
  int PurgeLogsTo(std::string file) override;
  int CreateDB(std::string db) override;
  /// A database that does not exist counts as dropped. The setting "nRetryDropDB" of section "MySQL" is the number of
  /// attempts, five seconds apart.
  int DropDB(std::string db) override;
  /// The server's version up to its last digit, for example 10.6.12-MariaDB-1 or 8.0.36.
  int getVersionFromServer(std::string& version) override;
  int createDatabaseUsingSchema(std::string schema) override;
  int createTableUsingSchema(std::string db, std::string schema) override;
  int discardTableSpace(std::string db, std::string table) override;
  int importTableSpace(std::string db, std::string table) override;
  /// For this connection alone (-).
  int setForeignKeyConstraint(int enabled) override;
  int ResetMaster() override;  ///< (-)
  int FlushPrivileges();       ///< (-)
  /// Takes the global read lock, which lives as long as the connection.
  int QuiesceDB();
  /// Gives the read lock back. When the connection was lost and made again meanwhile, the lock was gone and what was
  /// read may not belong together: that is logged and raised as a major event; the result stays that of the statement.
  int UnQuiesceDB();
  /// True for MySQL 8 and later, never for MariaDB; false also when that cannot be told.
  bool isMySQL8orMore() override;
  /// Compares the server's version with `major`.`minor`, strictly and without the patch number; `mariaDb` tells the
  /// family beside it. -1 when the version or the family cannot be told.
  int isVersionGreaterThan(int major, int minor, bool& mariaDb, bool& greater) override;

  /// A cloud database counts as one without binary logs; it is not asked.
  int FindBinLogStatus() override;
  int FindMasterLogs(std::list<std::string>& logs, long* first, long* last) override;
  int FindMasterLogs(std::list<std::string>& logs, bool flushAfter) override;
  /// `strLogBaseName` ends before the last "." of the name here. Without binary logging `strMasterLogFile` stays as it
  /// is.
  int LastLogName() override;
  /// Current binary log and position as "file:position". Fails when binary logging is off.
  int FetchMasterInfo(std::string& info);
  /// Of a cloud database, also without mysql, innodb and sys.
  int FetchDBList(std::list<std::string>& databases) override;
  /// Whether the server has a database; `db` is a LIKE pattern (see MySqlInterface::CheckDBExistence), and one line
  /// feed at its end does not count. An empty one matches every database, as in the base. Not an override: through a
  /// pointer to the base, callers reach what the base does.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  int CheckDBPresence(std::string db, bool& present);
#pragma GCC diagnostic pop
  /// Fills the session's own map, see `dataPaths`; not an override either. Beside the keys of the base: "datadirlink",
  /// where a data directory that is a link leads; "databaselinks", the targets of links in it, each with a "," behind
  /// it; "datadirUserPath", the property text with the owner. InnoDB's keys are there for a server that has InnoDB.
  int FindAllDatabasePaths();
  using GetMySqlInfo::FindAllDatabasePaths;
  const std::map<std::string, std::string>& dataPaths() const noexcept {
    return m_dataPaths;
  }
  // Parallel backups of one replica, in any number of processes and sessions, share two files in the agent's temporary
  // directory: a lock file and a counter of those who hold replication stopped. The first stops it, the last starts it
  // again. A holder that dies stays counted. The operations wait up to ten minutes for the lock.

  /// Joins those who hold replication stopped; the first stops it. Sets `bSlaveStoppedBySession`. -1 also when the
  /// counter cannot be read or written; the flag is then set only if replication was stopped, so that `StartSlave` can
  /// start it. A connection that is lost while the server stops replication fails it as well; replication is then
  /// started again at once, and a critical event (0x5700004e) tells when that cannot be done.
  int StopSlave() override;
  /// Leaves them; the last starts replication and looks for up to three seconds whether it runs. 0 without doing
  /// anything for a session that does not hold it. A replica that does not start, or does not run then, is a critical
  /// event (0x5700004e); only the former is a failure. 0, with nothing changed, when the counter cannot be opened or
  /// read; 0 also when it cannot be made anew. The session's last error then says so.
  int StartSlave() override;
  /// As in the base, over the connection, and 100 for a server that is no replica.
  int getReplicationStatus(bool& running, bool& partial, int& status, std::string& text) override;
  /// As in the base, of all databases that `db` matches: it is a LIKE pattern here. -1 when the server cannot be asked.
  int getDBProps(std::string db, std::string& createTime, unsigned long long& size) override;
  int isUsesInnoDBEngine(std::string db, bool& innoDbOnly) override;
  int checkInnoDbFilePerTable(std::string db, bool& filePerTable) override;

  // Schema metadata, over the connection. A failure is logged with the failed statement and leaves its number and text
  // in the session. Names stand between back-ticks, one in a name doubled.

  /// Collects every database's base tables with their engines, and the server's variables. Entries of `metadata` are
  /// kept and extended; a failure leaves what was stored until then. From information_schema where that can be
  /// selected, which stays the connection's database then: the database records have no name of their own. Otherwise
  /// from each database in turn, without information_schema and performance_schema and without those that hold no base
  /// table. Sequences are no base tables to the server; system-versioned tables are none in its catalogue.
  int CollectMetadata(ClMySqlMetaData& metadata);
  /// Makes `db` the connection's current database and appends the names of its tables, without its views.
  int FetchTableList(std::string db, std::list<std::string>& tables);
  /// Name, creation statement and the server's default engine of one database. `record` changes only on success.
  int fillDatabaseInfo(std::string db, IdxMetadata::MySqlDbInfo* record) override;
  /// The tables of `db` of which `fillTableInfoForDataBase` makes records, with their engines, added to `tables`: all
  /// but views, so sequences and system-versioned tables too. One statement.
  int collectTables(const std::string& db, ClMySqlDbInfo& tables);
  /// Appends one serialized IdxMetadata::MySqlMetaData for each table of `db`, in the server's order, without its
  /// views. 0 with nothing appended for a database without tables, and for none of that name. A failure leaves what was
  /// appended until then; a table that was dropped meanwhile is one (1146).
  int fillTableInfoForDataBase(std::string db, std::vector<std::string>* records) override;
  /// The same records one by one, none of them kept: `take` gets each one's table name and bytes, which live during the
  /// call; false from it ends the operation with 1. `fillTableInfoForDataBase` is this with a list.
  int forEachTableRecord(const std::string& db,
                         const std::function<bool(const std::string& table, const std::string& bytes)>& take);

  // Foreign keys.

  /// Adds to `children`, by parent database and parent table, each table whose creation statement references it: of
  /// InnoDB tables the first key only, found in the text. A "(" or "." in the parent's name misleads it, and a
  /// back-tick there stays doubled. See `collectForeignKeys` for all of them. A failure leaves what was added until
  /// then.
  int CollectChildTableData(MySqlChildTables& children);
  /// Appends every foreign key that the server's catalogue holds and this account may see, of all databases, ordered by
  /// database, table and name. Of tables that the account may only read, the rules are empty. One statement, whose time
  /// grows with the number of tables. Answers nothing that `CollectChildTableData` does, and is not mixed with it.
  int collectForeignKeys(std::vector<orrery::mysql::ForeignKey>& keys);

  /// Told of operations that ask the server table by table (fillTableInfoForDataBase, forEachTableRecord,
  /// CollectChildTableData): database and table at hand and how many tables were done in the operation, before each
  /// table's statement. CollectMetadata asks for many at once: it is told before each database, without a table, and of
  /// nothing where information_schema can be selected. False ends the operation with 1, logged, with nothing undone.
  /// Empty: nobody is told. It must not use this session.
  void watchTables(std::function<bool(const std::string& db, const std::string& table, std::size_t tables)> watcher);

  // Accounts. An account is "`user`@`host`", as `getUsers` makes it; the parts are not escaped. Where a name holds a
  // back-tick the text is no account: the server refuses it with 1064 or, with a comment sign in the name, answers
  // about another account. It only shows then, each request being one statement; take no answer for such a text.
  //
  // To run what these operations give on an empty server, so that accounts and roles are as they were (measured with
  // MariaDB 10.11): CREATE ROLE for every role but `PUBLIC`, which every server has; the grants of every role; the
  // creation statement of every account; its grants. Roles first, because a grant of a role wants the role; all of them
  // before their grants, because roles are granted to roles. The grants of a role hold those of the roles granted to it
  // as well, each naming whom it is for, so some come twice, which does no harm. The grants of an account bring its
  // roles (WITH ADMIN OPTION where so) and, last, its default role. Who runs it gets each role WITH ADMIN OPTION, as
  // every role's maker does. MySQL's roles are accounts, locked and listed as such: make those first, because a
  // creation statement names its DEFAULT ROLE.

  /// Has this connection print authentication strings in hexadecimal digits: ON or OFF; a connection made again forgets
  /// it. The value goes into the statement unchecked. Server error 1193 where the server does not know the switch.
  int setIdentifiedWithAsHex(const std::string& value) override;
  /// Appends the server's accounts without those of the hosts localhost and 127.0.0.1. MariaDB lists its roles with
  /// them, each with an empty host, "`role`@``", which the two below refuse (1133, 1141): leave those out. Its accounts
  /// have no empty host.
  int getUsers(std::vector<std::string>& accounts) override;
  /// Appends MariaDB's roles, each between back-ticks, one in a name doubled, as CREATE ROLE and `getGrantQueries` take
  /// them. None, and 0, on servers whose roles are accounts.
  int getRoles(std::vector<std::string>& roles);
  /// The statement that creates an account, as the server prints it. `statement` stays as it is when there is none.
  int getCreateUserQuery(const std::string& account, std::string& statement) override;
  /// Appends an account's or a role's grant statements as the server prints them.
  int getGrantQueries(const std::string& account, std::vector<std::string>& statements) override;
  int isXtrabackupPossible() override;
  int isPartitionedTable(std::string db, std::string table) override;

 private:
  friend class GetMySqlInfo;
  ORRERY_MYSQL_HIDDEN int fetchRowsOverConnection(const char* tag, const std::string& statement,
                                                  std::vector<std::vector<std::string>>& rows);
  ORRERY_MYSQL_HIDDEN void forgetConnectionFields();
  ORRERY_MYSQL_HIDDEN void forgetEarlierServer();
  ORRERY_MYSQL_HIDDEN void fillLibraryPath();
  ORRERY_MYSQL_HIDDEN int prepareConnection(const char* tag);
  ORRERY_MYSQL_HIDDEN bool takeTlsFilesFromSettings(const char* tag);
  ORRERY_MYSQL_HIDDEN bool refuseUnreadableSettings(const char* tag, const std::string& reason);
  ORRERY_MYSQL_HIDDEN bool haveTlsFiles(const char* tag);
  ORRERY_MYSQL_HIDDEN void appendToDefaultsFile(const char* tag);
  ORRERY_MYSQL_HIDDEN int keepConnectionError();
  ORRERY_MYSQL_HIDDEN int withoutConnection(const char* tag, const char* text);
  ORRERY_MYSQL_HIDDEN void tellOfLostReadLock(const char* tag);
  ORRERY_MYSQL_HIDDEN int tableRecords(const char* tag, const std::string& db,
                                       const std::function<bool(const std::string&, const std::string&)>& take);
  ORRERY_MYSQL_HIDDEN int findDataDirectoryLink(const std::string& directory);
  ORRERY_MYSQL_HIDDEN int findDatabaseLinks(const std::string& directory);
  ORRERY_MYSQL_HIDDEN int hasInnoDb(bool& available);
  ORRERY_MYSQL_HIDDEN int findInnoDbPaths();
  ORRERY_MYSQL_HIDDEN int listMasterLogs(std::list<std::string>& logs, bool flushAfter, bool& listed);
  /// How a step under the instance's lock went; `brokenOff` ends the operation without a further step.
  enum class Step { done, failed, brokenOff };
  ORRERY_MYSQL_HIDDEN Step holdReplica(orrery::mysql::InstanceLock& lock, const std::string& counter);
  ORRERY_MYSQL_HIDDEN int stopReplication();
  ORRERY_MYSQL_HIDDEN void undoStop();
  ORRERY_MYSQL_HIDDEN Step letReplicaGo(const orrery::mysql::InstanceLock& lock, const std::string& counter);
  ORRERY_MYSQL_HIDDEN int startReplication(const char* tag);
  ORRERY_MYSQL_HIDDEN void watchReplicationResume(const char* tag, const orrery::mysql::InstanceLock& lock);
  /// A request in its simple form: fails with `nullText` without a connection, else runs `request`; a failure is told
  /// by `tell` and left in the session.
  template <class Request, class Tell>
  int forward(const char* tag, const char* nullText, Request request, Tell tell);

  std::string m_libraryPath;
  DZPlatformInfo m_platformInfo;
  std::unique_ptr<MySqlInterface> m_Conn;
  std::map<std::string, std::string> m_dataPaths;
  std::function<bool(const std::string&, const std::string&, std::size_t)> m_tableWatcher;
};
