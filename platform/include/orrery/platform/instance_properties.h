#pragma once

/// Keys of the properties of a MySQL or MariaDB instance in the inventory. All values are texts; numbers are decimal.

namespace orrery::platform::property {

/// The suite's number for MySQL and MariaDB among the applications it protects.
inline constexpr int applicationTypeMySql = 104;
/// A client's application type that says: a database service in a cloud, reached through a proxy machine.
inline constexpr int clientTypeCloudDatabase = 1;

inline constexpr const char* unixUser = "unix_user";      ///< account that owns the server
inline constexpr const char* saUser = "sa_user";          ///< MySQL account of the agent
inline constexpr const char* saPassword = "sa_password";  ///< sealed by the password vault
inline constexpr const char* ntUser = "nt_user";
inline constexpr const char* ntPassword = "nt_password";
inline constexpr const char* version = "version";
inline constexpr const char* socketFile = "socket_file";  ///< path, or host:port
inline constexpr const char* port = "port";  ///< TCP port that the server is known by; not how it is reached
inline constexpr const char* binaryPath = "binary_path";  ///< directory of mysql, mysqladmin
inline constexpr const char* dataPath = "data_path";
inline constexpr const char* configFile = "config_file";
inline constexpr const char* archiveLogIndex = "binlog_index";  ///< absent: sessions use "Dummy"
inline constexpr const char* autoDiscovery = "auto_discovery";  ///< 1: new databases are added by the agent
inline constexpr const char* sslCa = "ssl_ca";
inline constexpr const char* sslKey = "ssl_key";
inline constexpr const char* sslCert = "ssl_cert";
inline constexpr const char* isMariaDb = "is_mariadb";    ///< 0 or 1
inline constexpr const char* dataDirOwner = "data_dir";   ///< "datadir:PATH;usergroup:USER#GROUP;"
inline constexpr const char* mebEnabled = "meb_enabled";  ///< 0 or 1
inline constexpr const char* mebBinPath = "meb_bin_path";
inline constexpr const char* mebNoLocking = "meb_no_locking";  ///< 0 or 1

}  // namespace orrery::platform::property
