// Rows of any statement, as values of the server, in either mode.

#include "paths/rows.h"

#include <algorithm>
#include <iterator>
#include <list>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "access/client_output.h"
#include "client/rows.h"

namespace orrery::mysql::paths {

std::vector<Row> rowsOf(std::string_view output) {
  std::vector<Row> rows;
  while (!output.empty()) {
    std::string_view line = output.substr(0, output.find('\n'));
    output.remove_prefix(std::min(line.size() + 1, output.size()));
    Row& row = rows.emplace_back();
    for (std::size_t tab = 0; tab != std::string_view::npos;) {
      tab = line.find('\t');
      row.push_back(unescapeValue(line.substr(0, tab)));
      if (tab != std::string_view::npos) line.remove_prefix(tab + 1);
    }
  }
  return rows;
}

}  // namespace orrery::mysql::paths

int GetMySqlInfo::fetchRows(const char* tag, const std::string& statement,
                            std::vector<std::vector<std::string>>& rows) {
  rows.clear();
  // No slot of the table of operations does this, and none may be added: the class with the connection is told apart.
  if (auto* const library = dynamic_cast<GetMySqlInfoExt*>(this)) {
    return library->fetchRowsOverConnection(tag, statement, rows);
  }
  std::string output;
  if (runQuery(tag, statement, output) != 0) return -1;
  rows = orrery::mysql::paths::rowsOf(output);
  return 0;
}

int GetMySqlInfoExt::fetchRowsOverConnection(const char* tag, const std::string& statement,
                                             std::vector<std::vector<std::string>>& rows) {
  if (m_Conn == nullptr) return withoutConnection(tag, "there is no connection to ask over");
  orrery::mysql::Rows result(*m_Conn);
  std::list<std::string> row;
  int rc = m_Conn->RunQuery(statement, result.result());
  while (rc == 0 && (rc = result.next(row)) == 0 && !row.empty()) {
    rows.emplace_back(std::make_move_iterator(row.begin()), std::make_move_iterator(row.end()));
  }
  if (rc == 0) return 0;
  evEvent.Debug(tag, "%s failed [%d:%s]", statement.c_str(), m_Conn->getLastError(), m_Conn->getLastErrorStr().c_str());
  return keepConnectionError();
}
