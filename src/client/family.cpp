#include "client/family.h"

namespace orrery::mysql {
namespace {

// MySQL's header of 5.7 (include/mysql.h, enum mysql_option) has MYSQL_OPT_RECONNECT at 20 and, from 5.7.11 on,
// MYSQL_OPT_SSL_MODE at 42; that of 8.0 dropped options before both, which are 15 and 35 there. MariaDB Connector/C
// kept the older numbering (include/mysql.h) and never had MYSQL_OPT_SSL_MODE: its 35 is the name of a key file.
constexpr int reconnectBefore8 = 20;
constexpr int sslModeIn57 = 42;
constexpr int mariaDbVerifyServerCertificate = 21;

constexpr unsigned long mySql8 = 80000;
constexpr unsigned long mySql5711 = 50711;
constexpr unsigned long mySql6 = 60000;
constexpr unsigned long connector34 = 30400;

/// Connector/C before 3.4 checks a certificate against the CA but talks in plain text to a server without TLS, even
/// when told to enforce it. From 3.4 on it accepts any certificate unless told to verify, and then refuses plain text
/// too; verifying covers the host's name, so older ones, which need no telling, are left as they are.
ClientFamily mariaDbConnector(unsigned long version, bool hasCa) {
  ClientFamily family{"MariaDB Connector/C", 7, reconnectBefore8, std::nullopt, false};
  if (hasCa && version >= connector34) {
    family.requireTls = ClientFamily::TlsOption{mariaDbVerifyServerCertificate, true};
    family.keepsTls = true;
  }
  return family;
}

}  // namespace

ClientFamily familyOf(const LibraryIdentity& library, bool hasCa) {
  if (library.isMariaDbConnector) return mariaDbConnector(library.version, hasCa);
  // Client libraries that MariaDB servers brought before Connector/C: their version is the server's, 10.1.48 say.
  if (library.info.find("MariaDB") != std::string_view::npos) return mariaDbConnector(0, hasCa);
  if (library.version == 0) return {};
  if (library.version >= mySql8) return {"MySQL 8", 7, 15, ClientFamily::TlsOption{35, false}, true};
  ClientFamily family{"MySQL 5", 7, reconnectBefore8, std::nullopt, false};
  if (library.version >= mySql5711 && library.version < mySql6) {
    family.requireTls = ClientFamily::TlsOption{sslModeIn57, false};
    family.keepsTls = true;
  }
  return family;
}

}  // namespace orrery::mysql
