#pragma once

#include <list>
#include <string>

#include "orrery/mysql/MySqlInterface.h"

namespace orrery::mysql {

/// The rows of one statement, released with this object.
class [[nodiscard]] Rows {
 public:
  explicit Rows(MySqlInterface& connection) : connection_(connection), result_(new QueryResult) {}
  ~Rows() { connection_.FreeResultSet(result_); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  QueryResult* result() noexcept { return result_; }
  /// The next row; empty after the last one. -1 when it cannot be read.
  int next(std::list<std::string>& row) {
    row.clear();
    return connection_.FetchNextRow(result_, row);
  }

 private:
  MySqlInterface& connection_;
  QueryResult* result_;
};

}  // namespace orrery::mysql
