#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

namespace orrery::mysql::metadata {

using Texts = std::list<std::string>;

/// Column `index` of a row that `Answer` has found long enough.
std::string& column(Texts& row, std::size_t index);

/// A request of a session, for those who work on it.
struct Request {
  GetMySqlInfoExt& session;
  MySqlInterface& server;
  const char* tag;

  const EvEvent& log() const { return session.evEvent; }
  const char* error() const { return server.getLastErrorStr().c_str(); }
  /// Leaves the connection's last error in the session: -1.
  int keepError() const;
  /// Leaves a failure of which the client library knows nothing: -1.
  int fail(std::string text) const;
};

// What an answer without memory is told with, by operation; people search logs for all of them.
inline constexpr const char* noMemory = "new QueryResult returned NULL. Insufficient memory";
inline constexpr const char* noMemoryBrief = "new QueryResult() returned NULL";

/// One statement and its rows, which are released with this object. Failures are logged under the request's tag and
/// left in the session.
class [[nodiscard]] Answer {
 public:
  /// `noMemoryText` is logged by the first statement where the object that holds the rows cannot be made.
  Answer(const Request& request, const char* noMemoryText);
  ~Answer() { request_.server.FreeResultSet(result_); }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  /// Sends a statement; earlier rows go.
  int run(const std::string& statement);
  /// The same for a caller with words of his own: a statement that fails is neither logged nor left in the session.
  int send(const std::string& statement);
  /// False: nothing was sent, and that is logged.
  bool hasMemory() const noexcept { return result_ != nullptr; }
  std::uint64_t rows() const noexcept { return result_->rows; }

  /// The next row, of at least so many columns; empty behind the last one.
  int next(Texts& row, std::size_t columns);
  /// The same for a caller with words of his own: what fails is neither logged nor left in the session.
  int fetch(Texts& row);
  /// Hands every row to `take`.
  template <class Take>
  int forEachRow(std::size_t columns, Take take) {
    for (Texts row;;) {
      if (next(row, columns) != 0) return -1;
      if (row.empty()) return 0;
      take(row);
    }
  }

 private:
  const Request request_;
  const char* const noMemoryText_;
  QueryResult* result_;
};

}  // namespace orrery::mysql::metadata
