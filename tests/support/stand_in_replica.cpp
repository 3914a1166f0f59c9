// A client library whose server is a file: the "socket" that a session connects to. It holds "running" or "stopped",
// and STOP SLAVE, START SLAVE and SHOW SLAVE STATUS write and read it as a replica's threads would be. Words in a file
// beside it, SOCKET.mode, change what the server does:
//   later      it knows none of the statements with SLAVE, as servers of today
//   stuck      START has no effect
//   refusing   STOP and START fail
//   sources    it has a second source, which never runs
// Statements are appended to SOCKET.statements when that file is there. The socket "memory" is no file: the state is
// this library's own, for measurements.

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#define STAND_IN extern "C" [[gnu::visibility("default")]]

namespace {

using Row = std::array<std::string, 54>;

struct Connection {
  std::string socket;
  unsigned int error = 0;
  std::string errorText;
  std::vector<Row> rows;
  bool hasRows = false;
};

struct Result {
  std::vector<Row> rows;
  std::size_t next = 0;
  std::array<char*, 54> columns{};
};

bool runsInMemory = true;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool isInMemory(const Connection& connection) {
  return connection.socket == "memory";
}

bool runs(const Connection& connection) {
  return isInMemory(connection) ? runsInMemory : contentOf(connection.socket) == "running";
}

void setRunning(const Connection& connection, bool running) {
  if (isInMemory(connection)) {
    runsInMemory = running;
  } else {
    std::ofstream(connection.socket, std::ios::trunc) << (running ? "running" : "stopped");
  }
}

Row statusRow(bool running) {
  Row row;
  for (const int number : {3, 4, 6, 8, 18, 20, 21, 22, 25, 34, 36}) row[static_cast<std::size_t>(number)] = "0";
  row[0] = running ? "Waiting for master to send event" : "";
  row[9] = "mysql-bin.000001";
  row[10] = row[11] = running ? "Yes" : "No";
  row[21] = "774";
  row[26] = "No";
  return row;
}

int fail(Connection& connection, unsigned int error, const char* text) {
  connection.error = error;
  connection.errorText = text;
  return 1;
}

int answer(Connection& connection, std::string_view statement, const std::string& mode) {
  const auto says = [&](std::string_view word) { return mode.find(word) != std::string::npos; };
  if (says("later") && statement.find("SLAVE") != std::string_view::npos) {
    return fail(connection, 1064, "You have an error in your SQL syntax");
  }
  if (statement == "SHOW SLAVE STATUS" || statement == "SHOW REPLICA STATUS") {
    connection.rows = {statusRow(runs(connection))};
    if (says("sources")) connection.rows.push_back(statusRow(false));
    connection.hasRows = true;
  } else if (statement == "STOP SLAVE" || statement == "STOP REPLICA") {
    if (says("refusing")) return fail(connection, 1227, "Access denied; you need privileges for this operation");
    setRunning(connection, false);
  } else if (statement == "START SLAVE" || statement == "START REPLICA") {
    if (says("refusing")) return fail(connection, 1200, "The server is not configured as replica");
    if (!says("stuck")) setRunning(connection, true);
  } else {
    return fail(connection, 1105, "this server knows nothing but replication");
  }
  return 0;
}

}  // namespace

STAND_IN Connection* mysql_init(Connection*) {
  return new Connection;
}
STAND_IN void mysql_close(Connection* connection) {
  delete connection;
}
STAND_IN const char* mysql_error(Connection* connection) {
  return connection->errorText.c_str();
}
STAND_IN unsigned int mysql_errno(Connection* connection) {
  return connection->error;
}
STAND_IN Connection* mysql_real_connect(Connection* connection, const char*, const char*, const char*, const char*,
                                        unsigned int, const char* socket, unsigned long) {
  connection->socket = socket == nullptr ? "" : socket;
  return connection;
}
STAND_IN unsigned char mysql_ssl_set(Connection*, const char*, const char*, const char*, const char*, const char*) {
  return 0;
}
STAND_IN int mysql_options(Connection*, int, const void*) {
  return 0;
}
STAND_IN const char* mysql_get_server_info(Connection*) {
  return "10.11.0-MariaDB-stand-in";
}
STAND_IN int mysql_real_query(Connection* connection, const char* text, unsigned long length) {
  const std::string_view statement(text, length);
  connection->error = 0;
  connection->errorText.clear();
  connection->hasRows = false;
  std::string mode;
  if (!isInMemory(*connection)) {
    mode = contentOf(connection->socket + ".mode");
    std::fstream statements(connection->socket + ".statements", std::ios::in | std::ios::out | std::ios::ate);
    if (statements) statements << statement << "\n";
  }
  return answer(*connection, statement, mode);
}
STAND_IN Result* mysql_store_result(Connection* connection) {
  if (!connection->hasRows) return nullptr;
  auto* result = new Result;
  result->rows = connection->rows;
  return result;
}
STAND_IN char** mysql_fetch_row(Result* result) {
  if (result->next == result->rows.size()) return nullptr;
  Row& row = result->rows[result->next++];
  for (std::size_t i = 0; i < row.size(); ++i) result->columns[i] = row[i].data();
  return result->columns.data();
}
STAND_IN unsigned int mysql_field_count(Connection* connection) {
  return connection->hasRows ? 54 : 0;
}
STAND_IN Result* mysql_list_dbs(Connection*, const char*) {
  return nullptr;
}
STAND_IN int mysql_select_db(Connection*, const char*) {
  return 0;
}
STAND_IN unsigned int mysql_num_fields(Result*) {
  return 54;
}
STAND_IN unsigned long long mysql_affected_rows(Connection*) {
  return 0;
}
STAND_IN void mysql_free_result(Result* result) {
  delete result;
}
STAND_IN unsigned long long mysql_num_rows(Result* result) {
  return result->rows.size();
}
STAND_IN int mysql_ping(Connection*) {
  return 0;
}
