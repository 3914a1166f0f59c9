#include "metadata/answer.h"

#include <iterator>
#include <new>
#include <utility>

namespace orrery::mysql::metadata {

std::string& column(Texts& row, std::size_t index) {
  return *std::next(row.begin(), static_cast<Texts::difference_type>(index));
}

int Request::keepError() const {
  session.SetErrorStatus(server.getLastError(), server.getLastErrorStr());
  return -1;
}

int Request::fail(std::string text) const {
  session.SetErrorStatus(-1, std::move(text));
  return -1;
}

Answer::Answer(const Request& request, const char* noMemoryText)
    : request_(request), noMemoryText_(noMemoryText), result_(new (std::nothrow) QueryResult) {}

int Answer::send(const std::string& statement) {
  if (!hasMemory()) {
    request_.log().Debug(request_.tag, "%s", noMemoryText_);
    return request_.server.fail(-1, "there is not enough memory for the answer");
  }
  return request_.server.runKnown(statement, result_);
}

int Answer::run(const std::string& statement) {
  if (send(statement) == 0) return 0;
  if (hasMemory()) {
    request_.log().Debug(request_.tag, "[%s] query execution failed:%s", statement.c_str(), request_.error());
  }
  return request_.keepError();
}

int Answer::fetch(Texts& row) {
  row.clear();
  return request_.server.FetchNextRow(result_, row);
}

int Answer::next(Texts& row, std::size_t columns) {
  const bool isRead = fetch(row) == 0;
  if (isRead && (row.empty() || row.size() >= columns)) return 0;
  if (isRead) request_.server.fail(-1, "the server's row has fewer columns than expected");
  request_.log().Debug(request_.tag, "FetchNextRow failed:%s", request_.error());
  return request_.keepError();
}

}  // namespace orrery::mysql::metadata
