#include "support/mariadb_sandbox.h"

#include <signal.h>

#include <charconv>
#include <cstdio>
#include <exception>
#include <sstream>
#include <stdexcept>

#include "support/program.h"

namespace orrery::test {
namespace {

std::string runScript(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{ORRERY_MARIADB_SANDBOX};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const ProgramResult result = runProgram(command, {.limit = std::chrono::minutes(3)});
  if (result.exitStatus != 0) {
    throw std::runtime_error("mariadb_sandbox " + arguments[0] + " failed: " + result.errors);
  }
  return result.output;
}

std::string firstLine(const std::string& path) {
  const std::string content = readFile(path);
  return content.substr(0, content.find('\n'));
}

int number(const std::string& text, int otherwise) {
  int value = otherwise;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

MariaDbSandbox::MariaDbSandbox(const Options& options) : MariaDbSandbox(Unstarted{}) {
  std::vector<std::string> arguments{"start", directory_};
  if (options.tcp) arguments.emplace_back("--tcp");
  if (options.tls) arguments.emplace_back("--tls");
  if (options.logBin) arguments.emplace_back("--log-bin");
  if (!options.replicaOf.empty()) arguments.insert(arguments.end(), {"--replica-of", options.replicaOf});
  arguments.emplace_back("--");
  arguments.insert(arguments.end(), options.serverOptions.begin(), options.serverOptions.end());
  runScript(arguments);
  started_ = true;
  agentPassword_ = firstLine(directory_ + "/agent.password");
  readState();
}

MariaDbSandbox::~MariaDbSandbox() {
  if (!started_) return;
  try {
    runScript({"stop", directory_});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
}

void MariaDbSandbox::readState() {
  std::istringstream lines(runScript({"env", directory_}));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t sign = line.find('=');
    const std::string name = line.substr(0, sign);
    const std::string value = line.substr(sign + 1);
    if (name == "PORT") port_ = number(value, 0);
    if (name == "PID") pid_ = number(value, -1);
    if (name == "ACCOUNT") account_ = value;
  }
}

std::string MariaDbSandbox::execute(const std::string& statements) const {
  const ProgramResult result =
      runProgram({"mariadb", "--defaults-file=" + directory_ + "/agent.cnf", "--batch", "--skip-column-names"},
                 {.input = statements});
  if (result.exitStatus != 0) throw std::runtime_error(statements + ": " + result.errors);
  return result.output;
}

void MariaDbSandbox::stop() {
  runScript({"stop", directory_, "--keep"});
  pid_ = -1;
}

void MariaDbSandbox::crash() {
  if (pid_ <= 0 || ::kill(pid_, SIGKILL) != 0) throw std::runtime_error("there is no server to kill");
  if (!waitUntil([this] { return hasEnded(); })) {
    throw std::runtime_error("the server did not end");
  }
  pid_ = -1;
}

std::string MariaDbSandbox::startCommand() const {
  return std::string(ORRERY_MARIADB_SANDBOX) + " start " + directory_;
}

bool MariaDbSandbox::hasEnded() const {
  return runScript({"env", directory_}).find("PID=''") != std::string::npos;
}

void MariaDbSandbox::start() {
  runScript({"start", directory_});
  readState();
}

}  // namespace orrery::test
