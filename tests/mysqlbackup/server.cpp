#include "server.h"

#include <time.h>

#include <sstream>
#include <string_view>

#include "child_program.h"

namespace orrery::standin {
namespace {

constexpr const char* historyTable = R"(
CREATE TABLE IF NOT EXISTS mysql.backup_history (
  backup_id BIGINT UNSIGNED NOT NULL PRIMARY KEY,
  tool_name VARCHAR(4096) NOT NULL,
  start_time TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,
  end_time TIMESTAMP NOT NULL DEFAULT CURRENT_TIMESTAMP,
  start_lsn BIGINT UNSIGNED NOT NULL,
  end_lsn BIGINT UNSIGNED NOT NULL,
  incremental_base_lsn BIGINT UNSIGNED NOT NULL,
  backup_type VARCHAR(50) NOT NULL,
  backup_format VARCHAR(50) NOT NULL,
  mysql_data_dir VARCHAR(2048) NOT NULL,
  backup_destination VARCHAR(4096) NOT NULL,
  exit_state ENUM('SUCCESS', 'FAILURE') NOT NULL,
  last_error VARCHAR(4096) NOT NULL,
  last_error_code INT NOT NULL) ENGINE=InnoDB CHARACTER SET utf8mb4;
)";

/// A text as a statement can hold it whatever is in it and whatever the server's quoting rules are.
std::string quoted(std::string_view text) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string literal = "X'";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    literal += digits[byte >> 4];
    literal += digits[byte & 15];
  }
  return literal + "'";
}

}  // namespace

std::string Server::query(const std::string& statements) const {
  return outputOf({"mariadb", "--defaults-file=" + options_.defaultsFile, "--user=" + options_.user,
                   "--socket=" + options_.socket, "--batch", "--raw", "--skip-column-names", "--execute=" + statements},
                  ending_);
}

std::string Server::dataDirectory() const {
  std::string directory = query("SELECT @@datadir");
  while (!directory.empty() && (directory.back() == '\n' || directory.back() == '/')) directory.pop_back();
  if (directory.empty()) throw Failure("the server does not tell its data directory");
  return directory;
}

void Server::findBase(ImageFacts& facts) const {
  const bool hasHistory =
      !query("SELECT 1 FROM information_schema.tables WHERE table_schema='mysql' AND table_name='backup_history'")
           .empty();
  std::istringstream row(hasHistory ? query("SELECT backup_id, end_lsn FROM mysql.backup_history WHERE "
                                            "exit_state='SUCCESS' ORDER BY end_time DESC, backup_id DESC LIMIT 1")
                                    : "");
  if (!(row >> facts.baseId >> facts.fromLsn))
    throw Failure(
        "mysql.backup_history holds no successful backup that an incremental one could follow; take a full one");
}

void Server::record(const ImageFacts& facts, const std::string& dataDirectory, std::int64_t started) const {
  std::ostringstream statements;
  statements << "SET SESSION sql_log_bin=0;" << historyTable
             << "INSERT INTO mysql.backup_history (backup_id, tool_name, start_time, end_time, start_lsn, end_lsn, "
                "incremental_base_lsn, backup_type, backup_format, mysql_data_dir, backup_destination, exit_state, "
                "last_error, last_error_code) VALUES ("
             << facts.backupId << ", 'mysqlbackup', FROM_UNIXTIME(" << started << "), FROM_UNIXTIME(" << ::time(nullptr)
             << "), " << facts.fromLsn << ", " << facts.toLsn << ", " << facts.fromLsn << ", '"
             << (facts.incremental ? "INCREMENTAL" : "FULL") << "', 'IMAGE', " << quoted(dataDirectory) << ", "
             << quoted("sbt:" + options_.imageName) << ", 'SUCCESS', 'NO_ERROR', 0);";
  query(statements.str());
}

std::string dataDirectoryIn(const std::string& optionFile, const Ending& ending) {
  std::istringstream options(outputOf({"my_print_defaults", "--defaults-file=" + optionFile, "mysqld"}, ending));
  constexpr std::string_view name = "--datadir=";
  std::string found;
  for (std::string line; std::getline(options, line);)
    if (line.starts_with(name)) found = line.substr(name.size());
  if (found.empty()) throw Failure("the [mysqld] group of " + optionFile + " tells no datadir");
  return found;
}

}  // namespace orrery::standin
