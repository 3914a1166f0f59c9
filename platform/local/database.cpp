#include "database.h"

#include <unistd.h>

#include <cerrno>
#include <new>

#include "posix.h"

namespace orrery::platform::local {
namespace {

constexpr int busyMilliseconds = 10000;
constexpr std::size_t mostIdle = 64;

/// The system's reason where it is known, and what to do about it.
std::string withReason(const std::string& reason, int error) {
  std::string text = error != 0 ? reason + ": " + errorText(error) : reason;
  if (error == ENOSPC || error == EDQUOT || error == EFBIG) text += "; make room on its disk and try again";
  return text;
}

Status describe(const std::string& path, const std::string& step, int code, const std::string& reason, int error) {
  const std::string what = step + ": ";
  switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return Status::failure(what + path + " was in use by another process for more than " +
                             std::to_string(busyMilliseconds / 1000) + " seconds; try again");
    case SQLITE_NOTADB:
      return Status::unavailable(what + path + " is not a store of this agent; put the store back from a copy");
    case SQLITE_CORRUPT:
      return Status::unavailable(what + path + " is damaged (" + reason + "); put the store back from a copy");
    case SQLITE_CANTOPEN:
      if (error == EACCES || error == EPERM)
        return Status::unavailable(what + path + " may not be opened by this account; run the command as its owner");
      if (error == ENOSPC || error == EDQUOT || error == EFBIG)
        return Status::unavailable(what + path + " cannot be opened: " + withReason(reason, error));
      return Status::unavailable(what + path + " cannot be opened (" + (error != 0 ? errorText(error) : reason) +
                                 "); see that its folder is there");
    case SQLITE_IOERR:
      return Status::failure(what + path + ": " + withReason(reason, error));
    case SQLITE_PERM:
    case SQLITE_AUTH:
    case SQLITE_READONLY:
      return Status::unavailable(what + path + " may not be written by this account; run the command as its owner");
    case SQLITE_FULL:
      return Status::failure(what + "there is no room on the disk of " + path + "; make some and try again");
    case SQLITE_NOMEM:
      return Status::failure(what + "out of memory");
    default:
      return Status::failure(what + path + ": " + reason);
  }
}

}  // namespace

void refuseForkedChild(pid_t owner) {
  if (::getpid() != owner)
    throw Failure(Status::unavailable("the store cannot be used in a child process that did not open it"));
}

Database::Database(std::string path) : path_(std::move(path)), owner_(::getpid()), step_("open the store") {
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(path_.c_str(), &handle_, flags, nullptr);
  try {
    if (code != SQLITE_OK) fail(code);
    sqlite3_busy_timeout(handle_, busyMilliseconds);
    execute("PRAGMA foreign_keys = ON");
  } catch (...) {
    sqlite3_close_v2(handle_);
    throw;
  }
}

Database::~Database() {
  // In a forked child closing would give up the locks of files that the parent goes on using.
  if (::getpid() != owner_) return;
  for (const auto& [sql, statement] : idle_) sqlite3_finalize(statement);
  sqlite3_close_v2(handle_);
}

sqlite3_stmt* Database::takeIdle(std::string_view sql) {
  const auto found = idle_.find(sql);
  if (found == idle_.end()) return nullptr;
  sqlite3_stmt* const statement = found->second;
  idle_.erase(found);
  return statement;
}

void Database::keepIdle(sqlite3_stmt* statement) noexcept {
  if (statement == nullptr) return;
  // Values are bound without copies; they end with the request.
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  try {
    if (idle_.size() < mostIdle) {
      idle_.emplace(sqlite3_sql(statement), statement);
      return;
    }
  } catch (const std::bad_alloc&) {
  }
  sqlite3_finalize(statement);
}

void Database::execute(const char* sql) {
  if (const int code = sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr); code != SQLITE_OK) fail(code);
}

void Database::fail(int code) const {
  const std::string step = std::string("cannot ") + (step_ == nullptr ? "use the store" : step_);
  const char* reason = handle_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(handle_);
  Status status = describe(path_, step, code, reason, handle_ == nullptr ? 0 : sqlite3_system_errno(handle_));
  const int kind = code & 0xff;
  if (kind == SQLITE_BUSY || kind == SQLITE_LOCKED) throw Busy(std::move(status));
  throw Failure(std::move(status));
}

void Database::failBusy(const char* step, std::chrono::milliseconds patience) const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience).count();
  throw Failure(Status::failure(std::string("cannot ") + step + ": " + path_ + " was in use by another process for " +
                                std::to_string(seconds) + " seconds"));
}

Statement::Statement(Database& database, std::string_view sql) : database_(database), handle_(database.takeIdle(sql)) {
  if (handle_ != nullptr) return;
  check(sqlite3_prepare_v2(database.handle_, sql.data(), static_cast<int>(sql.size()), &handle_, nullptr));
}

bool Statement::next() {
  const int code = sqlite3_step(handle_);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) check(code);
  return false;
}

void Statement::run() {
  while (next()) {
  }
}

std::string Statement::text(int column) const {
  const void* bytes = sqlite3_column_blob(handle_, column);
  const int size = sqlite3_column_bytes(handle_, column);
  return bytes == nullptr ? std::string()
                          : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

void Statement::bindText(int position, std::string_view text) {
  check(sqlite3_bind_text64(handle_, position, text.data() == nullptr ? "" : text.data(), text.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
}

void Statement::check(int code) const {
  if (code != SQLITE_OK) database_.fail(code);
}

Transaction::Transaction(Database& database, const char* begin) : database_(database) {
  Statement(database, begin).run();
}

Transaction::~Transaction() {
  // Some errors have rolled back already; then there is nothing to do and SQLite says so.
  if (open_) sqlite3_exec(database_.handle_, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  Statement(database_, "COMMIT").run();
  open_ = false;
}

}  // namespace orrery::platform::local
