// A client library whose server is a folder: a file named for a statement holds the statement's rows, one per line,
// columns separated by tabs. A statement without a file is rejected with error 1064. What was sent is appended to the
// folder's file "asked".

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Result {
  std::vector<std::vector<std::string>> rows;
  std::vector<char*> columns;
  std::size_t next = 0;
};

struct Connection {
  std::string folder;  // stands in the password
  unsigned error = 0;
  Result result;
};

void readRows(std::istream& text, Result& result) {
  result = Result();
  for (std::string line; std::getline(text, line);) {
    std::istringstream cells(line);
    auto& row = result.rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, '\t');) row.push_back(cell);
  }
}

}  // namespace

extern "C" {

Connection* mysql_init(Connection*) {
  return new Connection;
}
void mysql_close(Connection* connection) {
  delete connection;
}
const char* mysql_error(Connection* connection) {
  return connection->error == 0 ? "" : "You have an error in your SQL syntax";
}
unsigned mysql_errno(Connection* connection) {
  return connection->error;
}
Connection* mysql_real_connect(Connection* connection, const char*, const char*, const char* password, const char*,
                               unsigned, const char*, unsigned long) {
  connection->folder = password;
  return connection;
}
unsigned char mysql_ssl_set(Connection*, const char*, const char*, const char*, const char*, const char*) {
  return 0;
}
int mysql_options(Connection*, int, const void*) {
  return 0;
}
const char* mysql_get_server_info(Connection*) {
  return "10.11.6-MariaDB";
}
int mysql_real_query(Connection* connection, const char* text, unsigned long length) {
  const std::string statement(text, length);
  std::ofstream(connection->folder + "/asked", std::ios::app) << statement << '\n';
  std::ifstream rows(connection->folder + "/" + statement);
  connection->error = rows ? 0 : 1064;
  if (rows) readRows(rows, connection->result);
  return connection->error == 0 ? 0 : 1;
}
Result* mysql_store_result(Connection* connection) {
  return &connection->result;
}
char** mysql_fetch_row(Result* result) {
  if (result->next == result->rows.size()) return nullptr;
  result->columns.clear();
  for (std::string& cell : result->rows[result->next]) result->columns.push_back(cell.data());
  ++result->next;
  return result->columns.data();
}
unsigned mysql_field_count(Connection*) {
  return 0;
}
Result* mysql_list_dbs(Connection*, const char*) {
  return nullptr;
}
int mysql_select_db(Connection*, const char*) {
  return 0;
}
unsigned mysql_num_fields(Result* result) {
  return result->rows.empty() ? 2 : static_cast<unsigned>(result->rows.front().size());
}
unsigned long long mysql_affected_rows(Connection*) {
  return 0;
}
void mysql_free_result(Result*) {}
unsigned long long mysql_num_rows(Result* result) {
  return result->rows.size();
}
int mysql_ping(Connection*) {
  return 0;
}

}  // extern "C"
