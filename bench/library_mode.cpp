// What library mode costs beside raw calls of the same client library. Both ways run in turn against the same private
// server, over its socket:
//   statement  RunQuery and one row over the kept connection; raw: mysql_real_query, store, fetch, free
//   rows       a million rows of five columns into lists of texts; raw: a loop that builds the same lists
//   session    from a new GetMySqlInfoExt to its first answer; raw: mysql_init to the first answer. From an instance
//   the
//              session also reads the inventory, opens the password and writes the defaults file
// usage: orrery-bench-library-mode [PAIRS [CLIENT-LIBRARY]]     prints a table; ratios are medians of the pairs' ratios

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "bench/home_with_server.h"
#include "bench/pairs.h"

namespace {

using orrery::bench::compare;
using orrery::bench::require;
using Row = std::list<std::string>;

/// The client library as an ordinary program would use it.
class Raw {
 public:
  Raw(const std::string& library, const orrery::test::MariaDbSandbox& server) : server_(server) {
    handle_ = dlopen(library.c_str(), RTLD_LAZY);
    require(handle_ != nullptr, "the client library cannot be loaded");
    find("mysql_init", init);
    find("mysql_close", close);
    find("mysql_options", options);
    find("mysql_real_connect", realConnect);
    find("mysql_real_query", realQuery);
    find("mysql_store_result", storeResult);
    find("mysql_num_fields", numFields);
    find("mysql_fetch_row", fetchRow);
    find("mysql_fetch_lengths", fetchLengths);
    find("mysql_free_result", freeResult);
  }
  void connect() {
    connection_ = init(nullptr);
    options(connection_, 7, "utf8");
    require(realConnect(connection_, "localhost", "agent", server_.agentPassword().c_str(), nullptr, 0,
                        server_.socket().c_str(), 0) != nullptr,
            "no raw connection");
  }
  void disconnect() { close(connection_); }
  std::list<Row> rowsOf(const std::string& statement) {
    require(realQuery(connection_, statement.data(), statement.size()) == 0, "a raw statement failed");
    void* const result = storeResult(connection_);
    require(result != nullptr, "no raw result");
    const unsigned int fields = numFields(result);
    std::list<Row> rows;
    while (char** const columns = fetchRow(result)) {
      const unsigned long* const lengths = fetchLengths(result);
      Row row;
      for (unsigned int i = 0; i < fields; ++i) {
        if (columns[i] == nullptr) {
          row.emplace_back("NULL");
        } else {
          row.emplace_back(columns[i], lengths[i]);
        }
      }
      rows.push_back(std::move(row));
    }
    freeResult(result);
    return rows;
  }

 private:
  template <class Function>
  void find(const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(handle_, name));
    require(function != nullptr, std::string("no ") + name);
  }

  const orrery::test::MariaDbSandbox& server_;
  void* handle_ = nullptr;
  void* connection_ = nullptr;
  void* (*init)(void*) = nullptr;
  void (*close)(void*) = nullptr;
  int (*options)(void*, int, const void*) = nullptr;
  void* (*realConnect)(void*, const char*, const char*, const char*, const char*, unsigned, const char*,
                       unsigned long) = nullptr;
  int (*realQuery)(void*, const char*, unsigned long) = nullptr;
  void* (*storeResult)(void*) = nullptr;
  unsigned (*numFields)(void*) = nullptr;
  char** (*fetchRow)(void*) = nullptr;
  unsigned long* (*fetchLengths)(void*) = nullptr;
  void (*freeResult)(void*) = nullptr;
};

std::list<Row> rowsOf(MySqlInterface& connection, const std::string& statement) {
  auto* result = new QueryResult;
  require(connection.RunQuery(statement, result) == 0, connection.getLastErrorStr());
  std::list<Row> rows;
  for (;;) {
    Row row;
    require(connection.FetchNextRow(result, row) == 0, connection.getLastErrorStr());
    if (row.empty()) break;
    rows.push_back(std::move(row));
  }
  connection.FreeResultSet(result);
  return rows;
}

int measure(int pairs, const std::string& library) {
  const orrery::bench::HomeWithServer home;
  home.set("sLibPath", library);
  Raw raw(library, home.server());
  raw.connect();
  MySqlInterface connection("agent", home.server().agentPassword(), home.server().socket(), 0);
  require(connection.LoadAndInitialize(library) == 0, connection.getLastErrorStr());

  std::printf("%-37s %11s %11s   %s\n", "", "ours", "raw", "ratio");
  const std::string small = "SHOW VARIABLES LIKE 'port'";
  require(rowsOf(connection, small) == raw.rowsOf(small), "answers differ");
  const auto repeat = [](auto&& work) {
    for (int i = 0; i < 20; ++i) work();
  };
  compare(
      "20 statements, kept connection", pairs * 5, [&] { repeat([&] { rowsOf(connection, small); }); },
      [&] { repeat([&] { raw.rowsOf(small); }); });

  const std::string large = "SELECT seq, seq * 7, CONCAT('name of ', seq), NULL, 'text' FROM mysql.seq_1_to_1000000";
  require(rowsOf(connection, large) == raw.rowsOf(large), "rows differ");
  compare(
      "a million rows of five columns", 7, [&] { rowsOf(connection, large); }, [&] { raw.rowsOf(large); });
  raw.disconnect();

  const auto rawSession = [&] {
    raw.connect();
    raw.rowsOf(small);
    raw.disconnect();
  };
  MySqlServer record;
  record.SetSaUser("agent");
  record.SetPasswd(home.server().agentPassword());
  record.SetSocketFile(home.server().socket());
  const auto start = [](auto from) {
    GetMySqlInfoExt session;
    std::string port;
    require(session.Init(from) == 0 && session.QueryVariable("port", port) == 0, session.strErrorString);
  };
  compare(
      "session from a record, first answer", pairs, [&] { start(record); }, rawSession);
  compare(
      "session from an instance, first answer", pairs, [&] { start(home.instance()); }, rawSession);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return measure(argc > 1 ? std::atoi(argv[1]) : 100, argc > 2 ? argv[2] : "libmariadb.so.3");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
