// What describing the tables of a large database costs. A private server, its data in the temporary folder, with
// 10,000 small InnoDB tables, each with a foreign key to the one before; all ways run in turn in one process:
//   records     fillTableInfoForDataBase; raw: the same statements by the binding's RunQuery and FetchNextRow, rows
//               dropped
//   references  CollectChildTableData, of the server's own schemas as well; raw: its statements in the same way
//   dump        forEachTableRecord with its own login; raw: mariadb-dump --no-data of the database, output to nowhere,
//               without what it does that grows with the square of the tables: LOCK TABLES of all of them, under which
//               each statement waits for all, and a search of the whole database for each table's triggers
//   memory      what this process has resident at the most while it fills a list with all records, less what it had
//               before; over the size of the records
// usage: orrery-bench-metadata [PAIRS [TABLES]]     prints a table; ratios are medians of the pairs' ratios

#include <malloc.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"

#include "bench/home_with_server.h"
#include "bench/pairs.h"
#include "tests/support/program.h"

namespace {

using orrery::bench::compare;
using orrery::bench::require;
using Row = std::list<std::string>;

constexpr const char* clientLibrary = "libmariadb.so.3";

void makeTables(const orrery::test::MariaDbSandbox& server, int tables) {
  std::string script =
      "SET GLOBAL innodb_flush_log_at_trx_commit=0; SET foreign_key_checks=0; CREATE DATABASE big; USE big;\n"
      "CREATE TABLE parent (id INT PRIMARY KEY) ENGINE=InnoDB;\n";
  std::string parent = "parent";
  for (int i = 0; i < tables; ++i) {
    const std::string name = "table_" + std::to_string(i);
    script += "CREATE TABLE " + name +
              " (id INT PRIMARY KEY, pid INT, note VARCHAR(200) NOT NULL DEFAULT 'a longer default text' COMMENT 'what "
              "this column is for', amount DECIMAL(12,2) NOT NULL DEFAULT 0.00, made DATETIME NOT NULL DEFAULT "
              "CURRENT_TIMESTAMP, KEY k (pid), CONSTRAINT key_" +
              std::to_string(i) + " FOREIGN KEY (pid) REFERENCES " + parent +
              " (id)) ENGINE=InnoDB COMMENT='one of many';\n";
    parent = name;
  }
  server.execute(script);
}

/// The rows of a statement, as a program without the library's own operations would fetch them.
std::vector<Row> rowsOf(MySqlInterface& connection, const std::string& statement) {
  auto* result = new QueryResult;
  require(connection.RunQuery(statement, result) == 0, connection.getLastErrorStr());
  std::vector<Row> rows;
  for (;;) {
    Row row;
    require(connection.FetchNextRow(result, row) == 0, connection.getLastErrorStr());
    if (row.empty()) break;
    rows.push_back(std::move(row));
  }
  connection.FreeResultSet(result);
  return rows;
}

std::size_t rawRecords(MySqlInterface& connection) {
  std::size_t bytes = 0;
  for (Row& table : rowsOf(connection,
                           "SELECT `TABLE_SCHEMA` ,`TABLE_NAME` ,`ENGINE` FROM `INFORMATION_SCHEMA`.`TABLES` WHERE "
                           "`TABLE_SCHEMA`='big'AND `TABLE_TYPE`!='VIEW'")) {
    const std::string name = *std::next(table.begin());
    bytes += rowsOf(connection, "show create table `big`.`" + name + "`").front().back().size();
  }
  return bytes;
}

std::size_t rawReferences(MySqlInterface& connection) {
  std::size_t bytes = 0;
  for (Row& schema : rowsOf(connection, "SHOW DATABASES")) {
    if (schema.front() == "information_schema") continue;
    require(connection.RunQuery("use `" + schema.front() + "`;", nullptr) == 0, connection.getLastErrorStr());
    for (Row& table : rowsOf(connection, "show full tables where Table_Type != 'VIEW';")) {
      bytes += rowsOf(connection, "show create table `" + table.front() + "`;").front().back().size();
    }
  }
  return bytes;
}

std::vector<std::string> recordsOf(GetMySqlInfoExt& session) {
  std::vector<std::string> records;
  require(session.fillTableInfoForDataBase("big", &records) == 0, session.strErrorString);
  return records;
}

/// A line of this process's status in bytes: "VmRSS:", what is resident, or "VmHWM:", the most that was.
double statusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name, 0) == 0) return std::strtod(line.c_str() + name.size(), nullptr) * 1024;
  }
  throw std::runtime_error("no " + name);
}

void measureMemory(GetMySqlInfoExt& session) {
  std::string port;
  require(session.QueryVariable("port", port) == 0, session.strErrorString);
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";  // from here on VmHWM counts anew
  const double before = statusBytes("VmRSS:");
  const std::vector<std::string> records = recordsOf(session);
  const double peak = statusBytes("VmHWM:") - before;
  double bytes = 0;
  for (const std::string& record : records) bytes += static_cast<double>(record.size());
  std::printf("%-37s %8.2f MB %8.2f MB   %.3f\n", "peak of all records, beside their size", peak / 1e6, bytes / 1e6,
              peak / bytes);
  std::fflush(stdout);
}

double processorMilliseconds(const std::function<void()>& work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
  };
  const double start = now();
  work();
  return now() - start;
}

/// Time that passes, most of it the server's, and this thread's processor time, which other work on the machine bends
/// less.
void compareBoth(const std::string& name, int pairs, const std::function<void()>& ours,
                 const std::function<void()>& raw) {
  compare(name.c_str(), pairs, ours, raw);
  std::vector<double> mine;
  std::vector<double> theirs;
  for (int i = 0; i < pairs; ++i) {
    mine.push_back(processorMilliseconds(ours));
    theirs.push_back(processorMilliseconds(raw));
  }
  std::printf("%-37s %8.2f ms %8.2f ms   %.3f\n", "  of the client's processor", orrery::bench::median(mine),
              orrery::bench::median(theirs), orrery::bench::median(mine) / orrery::bench::median(theirs));
  std::fflush(stdout);
}

int measure(int pairs, int tables) {
  const orrery::bench::HomeWithServer home;
  home.set("sLibPath", clientLibrary);
  makeTables(home.server(), tables);
  std::printf("%-37s %11s %11s   %s\n", "", "ours", "raw", "ratio");
  GetMySqlInfoExt session;
  require(session.Init(home.instance()) == 0, session.strErrorString);
  measureMemory(session);
  MySqlInterface connection("agent", home.server().agentPassword(), home.server().socket(), 0);
  require(connection.LoadAndInitialize(clientLibrary) == 0, connection.getLastErrorStr());
  compareBoth(
      "records of all tables", pairs,
      [&] { require(recordsOf(session).size() == static_cast<std::size_t>(tables) + 1, "records"); },
      [&] { require(rawRecords(connection) > 0, "raw records"); });
  compareBoth(
      "references of all tables", pairs,
      [&] {
        MySqlChildTables children;
        require(session.CollectChildTableData(children) == 0 &&
                    children["big"].size() + 1 > static_cast<std::size_t>(tables),
                session.strErrorString);
      },
      [&] { require(rawReferences(connection) > 0, "raw references"); });
  const std::vector<std::string> dump = {"/usr/bin/mariadb-dump",
                                         "--no-defaults",
                                         "--no-data",
                                         "--user=agent",
                                         "--password=" + home.server().agentPassword(),
                                         "--socket=" + home.server().socket(),
                                         "--result-file=/dev/null",
                                         "big"};
  compare(
      "login and records, beside a dump", pairs,
      [&] {
        GetMySqlInfoExt own;
        std::size_t bytes = 0;
        require(own.Init(home.instance()) == 0 &&
                    own.forEachTableRecord("big",
                                           [&](const std::string&, const std::string& record) {
                                             bytes += record.size();
                                             return true;
                                           }) == 0,
                own.strErrorString);
      },
      [&] {
        orrery::test::ProgramOptions options;
        options.limit = std::chrono::minutes(20);
        const auto result = orrery::test::runProgram(dump, options);
        require(result.exitStatus == 0, "the dump failed: " + result.errors);
      });
  compare(
      "catalogue's foreign keys, beside reading", pairs,
      [&] {
        std::vector<orrery::mysql::ForeignKey> keys;
        require(session.collectForeignKeys(keys) == 0 && keys.size() == static_cast<std::size_t>(tables),
                session.strErrorString);
      },
      [&] { require(rawReferences(connection) > 0, "raw references"); });
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return measure(argc > 1 ? std::atoi(argv[1]) : 7, argc > 2 ? std::atoi(argv[2]) : 10000);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
