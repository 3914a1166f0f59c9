// The binding's life: the library, the connection, its encryption.

#include <string.h>

#include <cstdarg>
#include <cstdlib>
#include <utility>
#include <vector>

#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/EvEvent.h"
#include "orrery/platform/FXString.h"

#include "access/dialect.h"
#include "client/library.h"
#include "client/log_target.h"
#include "session/guarded.h"

using orrery::mysql::ClientFamily;
using orrery::mysql::ClientLibrary;
using orrery::mysql::guarded;
using orrery::mysql::LogTarget;

namespace {

constexpr int ownError = -1;

// Client error numbers (errmsg.h of the libraries): the connection is gone, or could not be encrypted.
constexpr unsigned int serverGone = 2006;
constexpr unsigned int serverLost = 2013;
constexpr unsigned int serverLostExtended = 2055;
constexpr int tlsError = 2026;

const char* orNull(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

MySqlInterface::MySqlInterface(std::string user, std::string password, std::string socket, unsigned int port)
    : m_user(std::move(user)),
      m_password(std::move(password)),
      m_socket(std::move(socket)),
      m_port(port),
      m_dialect(std::make_unique<orrery::mysql::Dialect>()),
      m_log(std::make_unique<LogTarget>()) {}

MySqlInterface::MySqlInterface(std::string user, std::string password, std::string endpoint)
    : MySqlInterface(std::move(user), std::move(password), std::string(), 0) {
  const std::vector<std::string> pieces = FXString::Split(endpoint, ':');
  if (pieces.size() != 2) return;
  m_host = pieces[0];
  m_port = static_cast<std::uint32_t>(std::atoi(pieces[1].c_str()));
}

MySqlInterface::~MySqlInterface() {
  m_log->look();
  Disconnect();
  explicit_bzero(m_password.data(), m_password.size());
}

int MySqlInterface::fail(int number, std::string text) {
  m_errNo = static_cast<std::uint32_t>(number);
  m_errStr = std::move(text);
  return -1;
}

void MySqlInterface::keepClientError() {
  const unsigned int number = m_library->call.mysql_errno(m_pMySql);
  const char* text = m_library->call.mysql_error(m_pMySql);
  fail(static_cast<int>(number), text == nullptr ? "" : text);
  const bool isGone = number == serverGone || number == serverLost || number == serverLostExtended;
  if (isGone && !m_reconnectsItself) m_isLost = true;
}

void MySqlInterface::ResetErrors() {
  m_errNo = 0;
  m_errStr.clear();
}

void MySqlInterface::MySQLErrorLog(const char* format, ...) {
  m_log->look();
  va_list arguments;
  va_start(arguments, format);
  m_log->vline(format, arguments);
  va_end(arguments);
}

int MySqlInterface::LoadAndInitialize(std::string libraryPath) {
  constexpr const char* tag = "[ MySqlInterface::LoadAndInitialize ]";
  return guarded(EvEvent(), tag, [&] {
    m_log->look();
    m_log->line("Using Library : %s", libraryPath.c_str());
    dropConnection();
    m_library.reset();
    std::string error;
    auto library = ClientLibrary::open(libraryPath, error);
    if (library == nullptr) {
      m_log->line("%s dlopen(%s) failed with error %s", tag, libraryPath.c_str(), error.c_str());
      return fail(ownError, error);
    }
    ClientLibrary::MissingSymbol missing;
    if (!library->resolve(missing)) {
      m_log->line("%s", missing.logLine(tag).c_str());
      return fail(ownError, missing.stored);
    }
    m_library = std::move(library);
    return 0;
  });
}

int MySqlInterface::setSslParameters(std::string key, std::string cert, std::string ca, std::string, std::string) {
  m_bUseSsl = true;
  m_sslKey = std::move(key);
  m_sslCert = std::move(cert);
  m_sslCa = std::move(ca);
  // Kept: the folder of CAs and the cipher list that callers pass are not used. Agents keep their TLS files in one
  // folder, and this list is the one that servers of all generations know; TLS 1.3 has suites of its own beside it.
  if (m_sslCaPath.empty()) m_sslCaPath = FXPath::SplitParentPath(m_sslKey);
  if (m_sslCipher.empty()) m_sslCipher = "AES128-SHA:AES128-SHA256:AES256-SHA256";
  return 1;
}

int MySqlInterface::GetConnection() {
  constexpr const char* tag = "MySqlInterface::GetConnection";
  return guarded(EvEvent(), tag, [&] {
    if (m_library == nullptr) return fail(ownError, "no client library is loaded");
    if (m_pMySql != nullptr && !m_isLost) {
      m_library->attachThread();
      return 0;
    }
    // A library that could make the connection again in plain text is not let do so; it is made anew here.
    const std::string database = std::exchange(m_database, {});
    dropConnection();
    if (connect(tag) != 0) {
      m_database = database;  // for the attempt that reaches the server
      return -1;
    }
    return database.empty() ? 0 : UseDatabase(database);
  });
}

int MySqlInterface::connect(const char* tag) {
  m_pMySql = m_library->newConnection();
  if (m_pMySql == nullptr) {
    fail(ownError, "mysql_init failed");
    m_log->line("[ %s ] mysql_init failed:%s", tag, m_errStr.c_str());
    return -1;
  }
  if (setOptions(tag) == 0 && realConnect(tag) == 0) {
    m_bConnected = true;
    return 0;
  }
  dropConnection();  // a handle that is there counts as a connection
  return -1;
}

int MySqlInterface::setOptions(const char* tag) {
  const auto& call = m_library->call;
  const ClientFamily family = m_library->family(!m_sslCa.empty());
  bool isKeptEncrypted = true;
  if (m_bUseSsl) {
    call.mysql_ssl_set(m_pMySql, orNull(m_sslKey), orNull(m_sslCert), orNull(m_sslCa), orNull(m_sslCaPath),
                       orNull(m_sslCipher));
    constexpr unsigned int required = 3;
    constexpr unsigned char yes = 1;
    isKeptEncrypted = family.keepsTls;
    if (family.requireTls) {
      const void* value = family.requireTls->isFlag ? static_cast<const void*>(&yes) : &required;
      if (call.mysql_options(m_pMySql, family.requireTls->number, value) != 0) isKeptEncrypted = false;
    }
  }
  if (call.mysql_options(m_pMySql, family.charsetName, "utf8") != 0) {
    keepClientError();
    m_errStr += " Failed to execute mysql_options ";
    m_log->line("[%s] mysql_options failed : Errno[%ld] %s", tag, static_cast<long>(m_errNo), m_errStr.c_str());
    return -1;
  }
  constexpr unsigned char yes = 1;
  m_reconnectsItself = isKeptEncrypted && call.mysql_options(m_pMySql, family.reconnect, &yes) == 0;
  return 0;
}

int MySqlInterface::realConnect(const char* tag) {
  const auto& call = m_library->call;
  const char* host = m_host.empty() ? "localhost" : m_host.c_str();
  if (call.mysql_real_connect(m_pMySql, host, m_user.c_str(), m_password.c_str(), nullptr, m_port, orNull(m_socket),
                              0) == nullptr) {
    keepClientError();
  } else if (m_bUseSsl && !isEncrypted()) {
    fail(tlsError, "the connection is not encrypted, as TLS files of the instance ask for");
  } else {
    return 0;
  }
  m_errStr += " Failed to execute mysql_real_connect ";
  if (m_bUseSsl) m_errStr += ", SSL parameteres may be incorrect " + m_sslKey + " " + m_sslCert + " " + m_sslCa;
  m_log->line("[ %s ] mysql_real_connect failed: Errno [%ld] %s", tag, static_cast<long>(m_errNo), m_errStr.c_str());
  return -1;
}

bool MySqlInterface::isEncrypted() {
  if (m_library->optional.mysql_get_ssl_cipher != nullptr) {
    const char* cipher = m_library->optional.mysql_get_ssl_cipher(m_pMySql);
    return cipher != nullptr && *cipher != '\0';
  }
  // A library that does not tell: the server does.
  const auto& call = m_library->call;
  constexpr std::string_view question = "SHOW SESSION STATUS LIKE 'Ssl_cipher'";
  if (call.mysql_real_query(m_pMySql, question.data(), question.size()) != 0) return false;
  orrery::mysql::ResultHandle* answer = call.mysql_store_result(m_pMySql);
  if (answer == nullptr) return false;
  const orrery::mysql::Row row = call.mysql_num_fields(answer) == 2 ? call.mysql_fetch_row(answer) : nullptr;
  const bool hasCipher = row != nullptr && row[1] != nullptr && *row[1] != '\0';
  call.mysql_free_result(answer);
  return hasCipher;
}

void MySqlInterface::dropConnection() {
  m_database.clear();
  if (m_pMySql == nullptr) return;
  m_library->attachThread();
  m_library->call.mysql_close(m_pMySql);
  m_pMySql = nullptr;
  m_bConnected = false;
  m_isLost = false;
}

void MySqlInterface::Disconnect() {
  constexpr const char* tag = "MySqlInterface::Disconnect";
  guarded(EvEvent(), tag, [&] {
    m_log->look();
    const bool wasConnected = m_pMySql != nullptr;
    dropConnection();
    if (!wasConnected) return 0;
    m_log->line("[ %s ] MySQL Disconnected Gracefully", tag);
    return 0;
  });
}
