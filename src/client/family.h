#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orrery::mysql {

/// What a loaded library tells about itself.
struct LibraryIdentity {
  bool isMariaDbConnector = false;  ///< has a function that only MariaDB Connector/C 3 and later have
  unsigned long version = 0;        ///< mysql_get_client_version, as 80036 for 8.0.36; 0: not told
  std::string_view info;            ///< mysql_get_client_info; empty: not told
};

/// How one generation of client libraries numbers its options, and what it does of itself about encryption. The numbers
/// are those of each generation's own header; there is no way to ask a library for them.
struct ClientFamily {
  const char* name = "unknown";
  int charsetName = 7;  ///< MYSQL_SET_CHARSET_NAME
  int reconnect = 15;   ///< MYSQL_OPT_RECONNECT

  /// The option that asks for an encrypted connection.
  struct TlsOption {
    int number;
    bool isFlag;  ///< takes a flag that is set; else the mode SSL_MODE_REQUIRED, an unsigned int
  };
  std::optional<TlsOption> requireTls = TlsOption{35, false};
  /// Whether the library keeps to that option, also on connections that it makes again by itself. If not, it must not
  /// make any by itself.
  bool keepsTls = false;
};

/// `hasCa`: a CA is given, against which a certificate can be checked.
ClientFamily familyOf(const LibraryIdentity& library, bool hasCa);

}  // namespace orrery::mysql
