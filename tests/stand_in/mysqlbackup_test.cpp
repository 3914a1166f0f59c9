#include "mysqlbackup_test.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace orrery::test {

namespace fs = std::filesystem;

namespace {

constexpr const char* environment = "--sbt-environment=DzSrcClientName=,DzKycmdTokenFile=,DzMySQLSBTInstance=db1,";

ProgramOptions with(const std::string& fault, const std::string& path) {
  ProgramOptions options;
  options.environment = {"ORRERY_MYSQLBACKUP_FAULT=" + fault};
  if (!path.empty()) options.environment.push_back("PATH=" + path);
  return options;
}

}  // namespace

void MysqlbackupTest::SetUpTestSuite() {
  server_ = std::make_unique<MariaDbSandbox>();
  server_->execute(
      "CREATE DATABASE shop; USE shop; CREATE TABLE goods (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(200)) "
      "ENGINE=InnoDB; INSERT INTO goods (name) SELECT REPEAT(MD5(seq), 4) FROM seq_1_to_5000;");
}

std::vector<std::string> MysqlbackupTest::backupCommand(const std::string& name,
                                                        const std::vector<std::string>& options) const {
  std::vector<std::string> command{ORRERY_MYSQLBACKUP,
                                   "--defaults-file=" + (folder_ / "password.cnf"),
                                   "-u",
                                   "agent",
                                   "--socket=" + server_->socket(),
                                   std::string("--sbt-lib-path=") + ORRERY_LIBOBK,
                                   "--backup-dir=" + backupDirectory(name),
                                   "--backup-image=sbt:" + name};
  command.insert(command.end(), options.begin(), options.end());
  const std::string job = "-j 17 -a " + std::to_string(instance_) + ":0 -at 104 -t 1";
  command.insert(command.end(), {std::string(environment) + "ThreadCommandLine=" + job, "--verbose", "--debug=all",
                                 "backup-to-image"});
  return command;
}

std::vector<std::string> MysqlbackupTest::restoreCommand(const std::string& name,
                                                         const std::vector<std::string>& options) const {
  std::vector<std::string> command{ORRERY_MYSQLBACKUP, "--backup-dir=" + restoreDirectory(name),
                                   "--backup-image=sbt:" + name, std::string("--sbt-lib-path=") + ORRERY_LIBOBK};
  command.insert(command.end(), options.begin(), options.end());
  command.insert(command.end(),
                 {"--datadir=" + data(), environment, "--verbose", "--debug=all", "copy-back-and-apply-log"});
  return command;
}

ProgramResult MysqlbackupTest::backup(const std::string& name, const std::vector<std::string>& options,
                                      const std::string& fault, const std::string& path) const {
  writeFile(folder_ / "password.cnf", "[client]\npassword='" + server_->agentPassword() + "'\n", 0600);
  return runProgram(backupCommand(name, options), with(fault, path));
}

ProgramResult MysqlbackupTest::backupIncrement(const std::string& name) const {
  return backup(name, {"--incremental", "--incremental-base=history:last_backup"});
}

ProgramResult MysqlbackupTest::restore(const std::string& name, const std::vector<std::string>& options,
                                       const std::string& fault, const std::string& path) const {
  std::error_code error;
  fs::remove_all(restoreDirectory(name), error);
  return runProgram(restoreCommand(name, options), with(fault, path));
}

std::string MysqlbackupTest::fingerprintOfData() const {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(data()))
    files.push_back(entry.path().string() +
                    (entry.is_regular_file() ? std::to_string(std::hash<std::string>{}(readFile(entry.path()))) : ""));
  std::sort(files.begin(), files.end());
  std::string all;
  for (const std::string& file : files) all += file + "\n";
  return all;
}

::testing::AssertionResult completed(const ProgramResult& result) {
  if (result.exitStatus == 0 && result.errors.ends_with("mysqlbackup completed OK!\n"))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "exit status " << result.exitStatus << ":\n" << result.errors;
}

::testing::AssertionResult failedWith(const ProgramResult& result, const std::string& part) {
  const std::size_t line = result.errors.rfind('\n', result.errors.size() - 2) + 1;
  const std::size_t first = ("\n" + result.errors).find("\nERROR:");
  if (result.exitStatus == 1 && first == line && result.errors.find(part, line) != std::string::npos)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "exit status " << result.exitStatus << ", wanted \"" << part << "\":\n"
                                       << result.errors;
}

bool someProcessMentions(const std::string& text) {
  for (const auto& entry : fs::directory_iterator("/proc")) {
    try {
      if (readFile(entry.path().string() + "/cmdline").find(text) != std::string::npos) return true;
    } catch (const std::system_error&) {
      // It has ended meanwhile, or is no process.
    }
  }
  return false;
}

}  // namespace orrery::test
