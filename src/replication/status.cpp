#include "replication/status.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace orrery::mysql {
namespace {

// Positions of columns. All servers that have such a row agree on them up to Last_SQL_Error.
constexpr std::size_t ioState = 0;
constexpr std::size_t masterPort = 3;
constexpr std::size_t connectRetry = 4;
constexpr std::size_t readMasterLogPos = 6;
constexpr std::size_t relayLogPos = 8;
constexpr std::size_t relayMasterLogFile = 9;
constexpr std::size_t ioRunning = 10;
constexpr std::size_t sqlRunning = 11;
constexpr std::size_t firstFilter = 12;
constexpr std::size_t lastErrno = 18;
constexpr std::size_t lastError = 19;
constexpr std::size_t skipCounter = 20;
constexpr std::size_t execMasterLogPos = 21;
constexpr std::size_t relayLogSpace = 22;
constexpr std::size_t sslAllowed = 26;
constexpr std::size_t lastIoErrno = 34;
constexpr std::size_t lastIoError = 35;
constexpr std::size_t lastSqlErrno = 36;
constexpr std::size_t lastSqlError = 37;

/// Without the threads and the filters a row says nothing that could be relied on.
constexpr std::size_t leastColumns = lastErrno;

using Values = std::vector<std::string_view>;

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), text) != words.end();
}

/// The columns of one row, of which one before `position` may stand on several lines.
class Row {
 public:
  explicit Row(Values values) : values_(std::move(values)) {
    while (extra_ < values_.size() && !fits()) ++extra_;
    found_ = extra_ < values_.size();
    if (!found_) extra_ = 0;
    while (found_ && lastSqlErrno + extra_ + ioExtra_ < values_.size() && !isNumber(afterIoError(lastSqlErrno))) {
      ++ioExtra_;
    }
    if (lastSqlErrno + extra_ + ioExtra_ >= values_.size()) ioExtra_ = 0;
  }

  std::string_view before(std::size_t position) const { return at(position); }
  std::string_view afterError(std::size_t position) const { return at(position + extra_); }
  std::string_view afterIoError(std::size_t position) const { return at(position + extra_ + ioExtra_); }

  std::string error() const { return lines(lastError, extra_); }
  std::string ioError() const { return lines(lastIoError + extra_, ioExtra_); }

  std::size_t size() const noexcept { return values_.size(); }
  bool hasEndOfError() const noexcept { return found_; }

 private:
  std::string_view at(std::size_t index) const { return index < values_.size() ? values_[index] : std::string_view(); }

  /// Whether Last_Error ends `extra_` lines behind its first one, by what the columns after it must be.
  bool fits() const {
    return isNumber(afterError(skipCounter)) && isNumber(afterError(execMasterLogPos)) &&
           isNumber(afterError(relayLogSpace)) && isOneOf(afterError(sslAllowed), {"Yes", "No", "Ignored"});
  }

  std::string lines(std::size_t first, std::size_t more) const {
    std::string text(at(first));
    for (std::size_t i = 1; i <= more; ++i) text.append("\n").append(at(first + i));
    return text;
  }

  Values values_;
  std::size_t extra_ = 0;    // lines of Last_Error behind its first one
  std::size_t ioExtra_ = 0;  // the same for Last_IO_Error
  bool found_ = false;
};

constexpr std::array numbersBeforeTheStates{masterPort, connectRetry, readMasterLogPos, relayLogPos};

/// Whether a column before the threads' states that must be a number holds another text: the values behind it, the
/// states among them, are then not those of their columns.
bool isShifted(const Row& row) {
  return std::any_of(numbersBeforeTheStates.begin(), numbersBeforeTheStates.end(), [&](std::size_t position) {
    return !row.before(position).empty() && !isNumber(row.before(position));
  });
}

std::string oddityOf(const Row& row) {
  if (row.size() < leastColumns) return "it has only " + std::to_string(row.size()) + " columns";
  const auto notA = [](const char* what, std::size_t position, std::string_view value) {
    return "[" + std::string(value) + "] at position " + std::to_string(position) + " is no " + what;
  };
  for (const std::size_t position : numbersBeforeTheStates) {
    if (!isNumber(row.before(position))) return notA("number", position, row.before(position));
  }
  for (const std::size_t position : {ioRunning, sqlRunning}) {
    if (isOneOf(row.before(position), {"Yes", "No", "Connecting", "Preparing"})) continue;
    return notA("state of a thread", position, row.before(position));
  }
  if (!isNumber(row.before(lastErrno))) return notA("number", lastErrno, row.before(lastErrno));
  if (!row.hasEndOfError()) return "the end of Last_Error and the columns behind it were not found";
  if (!isNumber(row.afterError(lastIoErrno))) return notA("number", lastIoErrno, row.afterError(lastIoErrno));
  if (!isNumber(row.afterIoError(lastSqlErrno))) return notA("number", lastSqlErrno, row.afterIoError(lastSqlErrno));
  return {};
}

ReplicationStatus readRow(Values values) {
  const Row row(std::move(values));
  ReplicationStatus status;
  status.oddity = oddityOf(row);
  status.isRow = row.size() >= leastColumns;
  if (!status.isRow) return status;
  status.ioState = row.before(ioState);
  status.relayMasterLogFile = row.before(relayMasterLogFile);
  const bool areInPlace = !isShifted(row);
  status.ioRuns = areInPlace && row.before(ioRunning) == "Yes";
  status.ioWorks = areInPlace && row.before(ioRunning) != "No";
  status.sqlRuns = areInPlace && row.before(sqlRunning) == "Yes";
  for (std::size_t i = 0; i < status.filters.size(); ++i) status.filters[i] = row.before(firstFilter + i);
  status.lastErrno = row.before(lastErrno);
  status.lastError = row.error();
  if (isNumber(row.afterError(execMasterLogPos))) status.execMasterLogPos = row.afterError(execMasterLogPos);
  status.lastIoErrno = row.afterError(lastIoErrno);
  status.lastIoError = row.ioError();
  status.lastSqlErrno = row.afterIoError(lastSqlErrno);
  status.lastSqlError = row.afterIoError(lastSqlError);
  return status;
}

/// The line that a client puts before each row of a vertical listing.
bool isRowHeader(std::string_view line) {
  constexpr std::string_view stars = "***************************";
  return line.substr(0, stars.size()) == stars && line.find(". row ***") != std::string_view::npos;
}

}  // namespace

bool ReplicationStatus::isFiltered() const noexcept {
  return std::any_of(filters.begin(), filters.end(), [](const std::string& filter) { return !filter.empty(); });
}

bool saysLess(const ReplicationStatus& status, const ReplicationStatus& than) noexcept {
  if (status.isRow != than.isRow) return !status.isRow;
  if (status.runs() != than.runs()) return !status.runs();
  return status.isFiltered() && !than.isFiltered();
}

ReplicationStatus readReplicationStatus(const std::list<std::string>& values) {
  auto at = values.begin();
  const bool isListing = at != values.end() && at->find("1. row") != std::string::npos;
  if (isListing) ++at;
  std::optional<ReplicationStatus> worst;
  Values row;
  const auto take = [&] {
    ReplicationStatus status = readRow(std::exchange(row, {}));
    if (!worst || saysLess(status, *worst)) worst = std::move(status);
  };
  for (; at != values.end(); ++at) {
    if (isListing && isRowHeader(*at)) {
      take();
    } else {
      row.emplace_back(*at);
    }
  }
  take();
  return *std::move(worst);
}

}  // namespace orrery::mysql
