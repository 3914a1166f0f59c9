#pragma once

#include <memory>
#include <string>

#include "orrery/mysql/MySqlInterface.h"

#include "client/family.h"

namespace orrery::mysql {

// The client library's types as its manual declares them, with its objects kept opaque: no vendor header is used,
// because one build serves libraries of several generations, whose headers differ. Enumerations travel as int, flags
// as one byte.
using Row = char**;

/// The 19 functions of the binding, in the order in which they are looked for.
struct ClientFunctions {
  ConnectionHandle* (*mysql_init)(ConnectionHandle*) = nullptr;
  void (*mysql_close)(ConnectionHandle*) = nullptr;
  const char* (*mysql_error)(ConnectionHandle*) = nullptr;
  unsigned int (*mysql_errno)(ConnectionHandle*) = nullptr;
  ConnectionHandle* (*mysql_real_connect)(ConnectionHandle*, const char* host, const char* user, const char* password,
                                          const char* db, unsigned int port, const char* socket,
                                          unsigned long flags) = nullptr;
  unsigned char (*mysql_ssl_set)(ConnectionHandle*, const char* key, const char* cert, const char* ca,
                                 const char* capath, const char* cipher) = nullptr;
  int (*mysql_options)(ConnectionHandle*, int option, const void* value) = nullptr;
  const char* (*mysql_get_server_info)(ConnectionHandle*) = nullptr;
  int (*mysql_real_query)(ConnectionHandle*, const char* text, unsigned long length) = nullptr;
  ResultHandle* (*mysql_store_result)(ConnectionHandle*) = nullptr;
  Row (*mysql_fetch_row)(ResultHandle*) = nullptr;
  unsigned int (*mysql_field_count)(ConnectionHandle*) = nullptr;
  ResultHandle* (*mysql_list_dbs)(ConnectionHandle*, const char* pattern) = nullptr;
  int (*mysql_select_db)(ConnectionHandle*, const char* db) = nullptr;
  unsigned int (*mysql_num_fields)(ResultHandle*) = nullptr;
  unsigned long long (*mysql_affected_rows)(ConnectionHandle*) = nullptr;
  void (*mysql_free_result)(ResultHandle*) = nullptr;
  unsigned long long (*mysql_num_rows)(ResultHandle*) = nullptr;
  int (*mysql_ping)(ConnectionHandle*) = nullptr;
};

/// What makes things better where a library has it. Every real one of the known families does.
struct OptionalFunctions {
  unsigned long (*mysql_get_client_version)() = nullptr;
  const char* (*mysql_get_client_info)() = nullptr;
  unsigned long* (*mysql_fetch_lengths)(ResultHandle*) = nullptr;
  const char* (*mysql_get_ssl_cipher)(ConnectionHandle*) = nullptr;
  unsigned char (*mysql_thread_init)() = nullptr;
  void (*mysql_thread_end)() = nullptr;
};

/// A loaded client library.
class ClientLibrary {
 public:
  /// Opens the file. Null, with the loader's text in `error`, when it cannot be loaded.
  static std::unique_ptr<ClientLibrary> open(const std::string& path, std::string& error);
  ClientLibrary(const ClientLibrary&) = delete;
  ClientLibrary& operator=(const ClientLibrary&) = delete;
  ~ClientLibrary();

  struct MissingSymbol {
    std::string logged;  ///< log line, with "%s" for the tag
    std::string stored;  ///< error text
    std::string logLine(const std::string& tag) const;
  };
  /// Finds the 19 functions; false at the first that is missing.
  bool resolve(MissingSymbol& missing);

  ClientFamily family(bool hasCa) const;

  /// Makes the library ready for the calling thread; to be called before every use of it but `newConnection`, costs
  /// next to nothing after the first. A connection was made before, on any thread. The thread's state is released when
  /// the thread ends.
  void attachThread() const;
  /// mysql_init, one at a time in the process: the first one of a library sets it up and is not safe by itself.
  ConnectionHandle* newConnection() const;

  ClientFunctions call;
  OptionalFunctions optional;

 private:
  explicit ClientLibrary(void* handle) : handle_(handle) {}
  template <class Function>
  bool find(const char* name, Function& function) const;

  void* handle_;
  bool isMariaDbConnector_ = false;
};

}  // namespace orrery::mysql
