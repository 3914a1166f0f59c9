#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "metadata/answer.h"

namespace orrery::mysql::metadata {

using TableWatcher = std::function<bool(const std::string& db, const std::string& table, std::size_t tables)>;

/// Result of an operation that its caller stopped.
inline constexpr int stopped = 1;

/// One operation's progress, for the session's watcher.
class Watch {
 public:
  Watch(const Request& request, const TableWatcher& watcher) : request_(request), watcher_(watcher) {}

  /// Before a table's statement, or one about all tables of `db`: 0, or `stopped` and logged.
  int beforeTable(const std::string& db, const std::string& table = {}) {
    if (!watcher_ || watcher_(db, table, tables_)) return 0;
    return stop(db);
  }
  void done(std::size_t tables = 1) noexcept { tables_ += tables; }
  int stop(const std::string& db) const {
    request_.log().Debug(request_.tag, "stopped by the caller in database [%s], %zu tables done", db.c_str(), tables_);
    return stopped;
  }

 private:
  const Request request_;
  const TableWatcher& watcher_;
  std::size_t tables_ = 0;
};

}  // namespace orrery::mysql::metadata
