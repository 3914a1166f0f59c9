#pragma once

/// One connection to a server through the vendor's client library, which is loaded at run time.
///
/// Nothing links against a client library: `LoadAndInitialize` opens the file that the caller names and finds 19
/// functions in it by name, so one agent serves servers whose client libraries differ. An object keeps one connection,
/// made by the first request that needs it and made again when it was lost, runs statements on it and hands rows back
/// as lists of texts.
///
/// Results are 0 for success and -1 for failure unless an operation says otherwise. A failure leaves a number and a
/// text in `getLastError()` and `getLastErrorStr()`: the client library's own, or -1 and a text of ours. No operation
/// throws. What is logged goes to the agent's log at level 5, or to "/tmp/debugMySqlInterface.log" when that file
/// exists (see `MySQLErrorLog`).
///
/// Threads: one thread uses one object at a time; different objects may be used at the same time. The library's
/// per-thread state is made and released here; a thread needs no preparation. The connection must not be used in a
/// child of fork.
///
/// Encryption: once `setSslParameters` was called, a connection is encrypted or it fails, whatever the loaded library
/// does by itself, and also after a lost connection was made again. A certificate that the given CA did not sign is
/// refused. Libraries of MariaDB Connector/C 3.4 and later then want the certificate to name the host as well.

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "orrery/mysql/export.h"
#include "orrery/platform/export.h"

namespace orrery::mysql {
class ClientLibrary;
class Dialect;
class LogTarget;
namespace metadata {
class Answer;
}
struct ConnectionHandle;  ///< MYSQL of the client library
struct ResultHandle;      ///< MYSQL_RES of the client library
}  // namespace orrery::mysql

/// What a statement returned. `RunQuery` fills it; `FreeResultSet` releases it.
struct QueryResult {
  orrery::mysql::ResultHandle* result = nullptr;  ///< the rows; null when the statement has none
  std::uint64_t rows = 0;                         ///< number of rows; of changed rows when there is no result set
  std::uint32_t fields = 0;                       ///< number of columns
};

class ORRERY_MYSQL_EXPORT MySqlInterface {
 public:
  /// Over a socket. `port` counts only when `socket` is empty; 0 is the library's default.
  MySqlInterface(std::string user, std::string password, std::string socket, unsigned int port);
  /// Over TCP, to an `endpoint` "host:port". Anything but exactly two pieces leaves host and port empty: the library's
  /// default socket on this machine. Host names "localhost" mean that socket as well; 127.0.0.1 means TCP.
  MySqlInterface(std::string user, std::string password, std::string endpoint);
  /// Closes the connection and the library's handle, and wipes the password. The library's code stays in the process:
  /// libraries keep state per thread and run code when a thread ends, so it must not vanish under them. A library
  /// file that was replaced is therefore used from the agent's next start on.
  ~MySqlInterface();
  MySqlInterface(const MySqlInterface&) = delete;
  MySqlInterface& operator=(const MySqlInterface&) = delete;

  /// Loads the library with its symbols local to it and finds the functions. A function that is missing is named in
  /// the log and in the error text. An earlier library of this object is let go first, with its connection; its
  /// results must have been released.
  int LoadAndInitialize(std::string libraryPath);

  /// Asks for TLS from the next connection on. Files in PEM form; empty ones are not used. `capath` and `cipher` are
  /// not looked at, see the definition. Returns 1.
  int setSslParameters(std::string key, std::string cert, std::string ca, std::string capath, std::string cipher);

  /// Connects unless there is a connection. -1 also when no library is loaded.
  int GetConnection();
  /// Closes the connection, if there is one. The next request makes a new one.
  void Disconnect();

  /// Runs one statement, after connecting when there is no connection. `result` may be null when no rows are wanted;
  /// otherwise the whole result is fetched into memory, and the caller releases it with `FreeResultSet`. Rows that an
  /// earlier statement left in the same `result` are released here.
  int RunQuery(std::string query, QueryResult* result);
  /// Appends the next row's columns to `row`; SQL NULL becomes the text "NULL". 0 with nothing appended means that
  /// there is no further row.
  int FetchNextRow(QueryResult* result, std::list<std::string>& row);
  /// Releases the rows and the object itself, which was made with new; `result` is then null. 0 also for null.
  int FreeResultSet(QueryResult*& result);

  /// Makes a database the connection's default, for the statements that follow.
  int UseDatabase(std::string db);
  /// Whether the server answers, after connecting when there is no connection.
  int PingServer();
  /// The server's version as it introduced itself, for example "10.11.6-MariaDB-log"; a "5.5.5-" that MariaDB servers
  /// put before it for old replicas is not part of it.
  int GetServerVersion(std::string& version);
  /// `text` with a backslash before every "_" and "%", so that a LIKE pattern matches it literally.
  std::string SpecialCharactersCheck(std::string text);
  void ResetErrors();

  // Statements. Names stand in them as they are given; a name that could end its quoting is refused with -1, and
  // nothing is sent. Names of databases may hold quotes and backslashes where they are looked for. Outputs are written
  // on success only.

  /// A server variable; `name` is a LIKE pattern. A variable that does not exist is a failure.
  int QueryVariable(std::string name, std::string& value);
  /// Whether binary logging is on.
  int GetLogBinStatus(bool& on);
  int GetMaxAllowedPacket(long long& size);
  int GetDataDir(std::string& path);
  /// Directory of the binary logs; empty while binary logging is off.
  int GetLogBinPath(std::string& path);
  /// Current binary log and position as "file:position". A server without binary logging has no such row: -1.
  int FetchMasterInfo(std::string& info);
  /// Current binary log. A server without binary logging has no such row: -1.
  int GetLastLogName(std::string& name);
  /// Appends the names of the binary logs, oldest first; then rotates the logs when `flushAfter` is set. A rotation
  /// that fails leaves the names in the list.
  int FindMasterLogs(std::list<std::string>& logs, bool flushAfter);
  /// Appends the names of all databases.
  int FetchDBList(std::list<std::string>& databases);
  /// Whether there is a database of this name, a LIKE pattern. In patterns of this class a backslash before "_" or "%"
  /// takes their meaning from them; any other backslash stands for itself, whatever the server's sql_mode.
  int CheckDBExistence(std::string db, bool& found);
  /// Size in bytes of the tables and the oldest creation time as the server writes it; 0 and "0" for a database without
  /// tables. `db` is a LIKE pattern.
  int GetDBProperties(std::string db, unsigned long long& size, std::string& created);
  /// Whether all tables of a database that are not views are of the engines InnoDB or MEMORY.
  int isUsesInnoDBEngine(std::string db, bool& innoDbOnly);
  /// Appends the columns of the replica's status row; of several, one per source, that of the one that replicates
  /// worst. 100 when the server is no replica.
  int GetReplicationStatus(std::list<std::string>& values);
  int CreateDB(std::string db);
  int DropDB(std::string db);
  int StartSlave();
  int StopSlave();
  int FlushLogs();
  int PurgeLogsTo(std::string file);
  /// Takes the global read lock, which lives as long as the connection.
  int QuiesceDB();
  /// Gives the read lock of this object back. See `readLockWasLost`.
  int UnQuiesceDB();
  int FlushPrivileges();
  int ResetMaster();
  /// The text as it is.
  int createDatabaseUsingSchema(std::string schema);
  /// Select the database, then run the text or the statement on a table in it.
  int createTableUsingSchema(std::string db, std::string schema);
  int discardTableSpace(std::string db, std::string table);
  int importTableSpace(std::string db, std::string table);

  /// Whether the last UnQuiesceDB found that the lock taken by QuiesceDB was gone before: client libraries make a lost
  /// connection again in silence, and the lock goes with the old one. What was read meanwhile may not belong together.
  bool readLockWasLost() const noexcept { return m_readLockWasLost; }

  /// Number and text of the last failure.
  int getLastError() const noexcept { return static_cast<int>(m_errNo); }
  const std::string& getLastErrorStr() const noexcept { return m_errStr; }
  /// Where this object connects to, as its constructor read it.
  const std::string& getHost() const noexcept { return m_host; }
  unsigned int getPort() const noexcept { return m_port; }

  /// Logs a line of this class: one that is formatted into 4095 bytes. When "/tmp/debugMySqlInterface.log" exists, is a
  /// plain file and belongs to root or to the agent's account, the line is appended to it with a time stamp, so that
  /// someone can watch a running agent by making that file; else it goes to the agent's log at level 5. The file is
  /// looked for once per statement and once per 256 rows.
  void MySQLErrorLog(const char* format, ...) ORRERY_PRINTF(2, 3);

 private:
  friend class GetMySqlInfoExt;  // the session that the connection is of
  friend class orrery::mysql::metadata::Answer;
  ORRERY_MYSQL_HIDDEN int fail(int number, std::string text);
  ORRERY_MYSQL_HIDDEN void keepClientError();
  ORRERY_MYSQL_HIDDEN int refuse(const char* tag, const std::string& reason);
  ORRERY_MYSQL_HIDDEN int connect(const char* tag);
  ORRERY_MYSQL_HIDDEN int setOptions(const char* tag);
  ORRERY_MYSQL_HIDDEN int realConnect(const char* tag);
  ORRERY_MYSQL_HIDDEN bool isEncrypted();
  ORRERY_MYSQL_HIDDEN void dropConnection();
  ORRERY_MYSQL_HIDDEN int storeResult(const char* tag, QueryResult& result);
  ORRERY_MYSQL_HIDDEN void releaseRows(QueryResult& result);
  ORRERY_MYSQL_HIDDEN int runKnown(const std::string& statement, QueryResult* result);
  ORRERY_MYSQL_HIDDEN int firstRow(const std::string& statement, std::size_t columns, std::list<std::string>& row);
  ORRERY_MYSQL_HIDDEN int oneRow(const char* tag, const std::string& statement, std::size_t columns,
                                 std::list<std::string>& row);
  ORRERY_MYSQL_HIDDEN int firstColumn(const std::string& statement, std::list<std::string>& values);
  ORRERY_MYSQL_HIDDEN int runInDatabase(const char* tag, const std::string& db, const std::string& statement);

  std::uint32_t m_errNo = 0;
  std::string m_errStr;
  bool m_reserved = false;
  bool m_bConnected = false;
  orrery::mysql::ConnectionHandle* m_pMySql = nullptr;
  std::string m_user;
  std::string m_password;
  std::string m_socket;
  bool m_bUseSsl = false;
  std::string m_sslKey;
  std::string m_sslCert;
  std::string m_sslCa;
  std::string m_sslCaPath;
  std::string m_sslCipher;
  std::string m_host;
  std::uint32_t m_port = 0;
  std::unique_ptr<orrery::mysql::ClientLibrary> m_library;  // the 19 functions, and what else the library offers

  bool m_reconnectsItself = false;  // the library may make a lost connection again by itself
  bool m_isLost = false;            // it may not, and the connection is lost
  std::string m_database;           // the default database, which a connection made again gets as well
  bool m_holdsReadLock = false;
  bool m_readLockWasLost = false;
  std::unique_ptr<orrery::mysql::Dialect> m_dialect;
  std::unique_ptr<orrery::mysql::LogTarget> m_log;
};
