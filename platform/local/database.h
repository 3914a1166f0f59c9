#pragma once

/// The store of a home: one SQLite connection, its statements and transactions.
/// Inside, failures are thrown as Failure; `read` and `write` turn them into a Status.

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>

#include <sqlite3.h>

#include "failure.h"

namespace orrery::platform::local {

/// Throws Failure when the calling process is not the one that opened the store.
void refuseForkedChild(pid_t owner);

/// Another process kept the store longer than a request waits.
class Busy final : public Failure {
 public:
  using Failure::Failure;
};

/// A connection that the threads of this process share, one at a time. A forked child must not touch it, and is
/// refused: SQLite's locks belong to the process that opened the file.
class Database {
 public:
  /// Opens an existing file. Throws Failure with statusUnavailable and a text that names the file and what to do.
  explicit Database(std::string path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs `body` in a transaction that sees one state of the store. `step` completes "cannot ...".
  template <class Body>
  Status read(const char* step, Body&& body) noexcept {
    return guarded([&] { inTransaction("BEGIN", step, std::forward<Body>(body)); });
  }

  /// The same for a body of one statement, which sees one state of the store by itself.
  template <class Body>
  Status readOne(const char* step, Body&& body) noexcept {
    return guarded([&] {
      refuseForkedChild(owner_);
      const std::lock_guard lock(mutex_);
      step_ = step;
      std::forward<Body>(body)();
    });
  }

  /// Runs `body` in a transaction that changes the store wholly or not at all.
  template <class Body>
  Status write(const char* step, Body&& body) noexcept {
    return guarded([&] { inTransaction("BEGIN IMMEDIATE", step, std::forward<Body>(body)); });
  }

  /// The same for a change that would cost hours to bring about again: a busy store is waited for until the patience is
  /// over. Other threads get their turns meanwhile. `body` may be run several times.
  template <class Body>
  Status writePatiently(std::chrono::milliseconds patience, const char* step, Body&& body) noexcept {
    return guarded([&] {
      const auto end = std::chrono::steady_clock::now() + patience;
      while (!triedInTransaction(step, body))
        if (std::chrono::steady_clock::now() >= end) failBusy(step, patience);
    });
  }

  /// Runs statements outside any transaction. For opening and making a store only.
  void execute(const char* sql);

  /// Throws what SQLite says went wrong, as a Failure that names the file; Busy when the store is in use.
  [[noreturn]] void fail(int code) const;

  const std::string& path() const noexcept { return path_; }
  std::int64_t lastRowId() const noexcept { return sqlite3_last_insert_rowid(handle_); }
  std::int64_t changes() const noexcept { return sqlite3_changes64(handle_); }

 private:
  friend class Statement;
  friend class Transaction;

  template <class Body>
  void inTransaction(const char* begin, const char* step, Body&& body);
  template <class Body>
  bool triedInTransaction(const char* step, Body&& body);
  [[noreturn]] void failBusy(const char* step, std::chrono::milliseconds patience) const;

  /// Statements that ran and wait for the next use: most of what a short request costs is their preparation. Under the
  /// mutex.
  sqlite3_stmt* takeIdle(std::string_view sql);
  void keepIdle(sqlite3_stmt* statement) noexcept;

  std::multimap<std::string, sqlite3_stmt*, std::less<>> idle_;
  const std::string path_;
  const pid_t owner_;
  std::mutex mutex_;
  const char* step_ = nullptr;  // under the mutex
  sqlite3* handle_ = nullptr;
};

/// A prepared statement; values are bound, never pasted into the text.
class Statement {
 public:
  Statement(Database& database, std::string_view sql);
  ~Statement() { database_.keepIdle(handle_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Binds all parameters in their order, and makes the statement ready to run again. Bound texts must live until
  /// the statement has run.
  template <class... Values>
  Statement& with(const Values&... values) {
    sqlite3_reset(handle_);
    int position = 0;
    (bind(++position, values), ...);
    return *this;
  }

  /// Fetches the next row; false at the end.
  bool next();
  /// Runs a statement that yields no rows.
  void run();

  std::int64_t integer(int column) const noexcept { return sqlite3_column_int64(handle_, column); }
  bool isNull(int column) const noexcept { return sqlite3_column_type(handle_, column) == SQLITE_NULL; }
  std::string text(int column) const;

 private:
  template <class Value>
  void bind(int position, const Value& value) {
    if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>)
      check(sqlite3_bind_int64(handle_, position, static_cast<sqlite3_int64>(value)));
    else
      bindText(position, value);
  }
  void bindText(int position, std::string_view text);
  void check(int code) const;

  Database& database_;
  sqlite3_stmt* handle_ = nullptr;
};

/// Rolls back at the end of its scope, unless it was committed.
class [[nodiscard]] Transaction {
 public:
  Transaction(Database& database, const char* begin);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

template <class Body>
void Database::inTransaction(const char* begin, const char* step, Body&& body) {
  refuseForkedChild(owner_);  // before the mutex: a thread of the parent may have held it at the fork
  const std::lock_guard lock(mutex_);
  step_ = step;
  Transaction transaction(*this, begin);
  std::forward<Body>(body)();
  transaction.commit();
}

/// False when the store was busy.
template <class Body>
bool Database::triedInTransaction(const char* step, Body&& body) {
  try {
    inTransaction("BEGIN IMMEDIATE", step, body);
    return true;
  } catch (const Busy&) {
    return false;
  }
}

}  // namespace orrery::platform::local
