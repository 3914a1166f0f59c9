#include "orrery/mysql/MySqlAutoDiscoveryBase.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

#include "orrery/platform/FXString.h"

#include "discovery/command_line.h"
#include "discovery/commands.h"
#include "discovery/foreign_program.h"
#include "discovery/log_text.h"
#include "discovery/option_file.h"
#include "discovery/pass.h"
#include "discovery/version.h"

namespace discovery = orrery::mysql::discovery;
using discovery::LogText;

namespace {

constexpr const char* defaultPort = "3306";
constexpr std::int64_t longestForeignRun = 10000;  // milliseconds

}  // namespace

MySqlAutoDiscoveryBase::MySqlAutoDiscoveryBase(std::string clientName)
    : MySqlAutoDiscoveryBase(std::move(clientName), discovery::realHost()) {}

MySqlAutoDiscoveryBase::MySqlAutoDiscoveryBase(std::string clientName, std::unique_ptr<discovery::Host> host)
    : m_clientName(std::move(clientName)), m_pass(std::make_unique<discovery::Pass>(std::move(host))) {}

MySqlAutoDiscoveryBase::~MySqlAutoDiscoveryBase() = default;

void MySqlAutoDiscoveryBase::identifyInstancesRunning() {}

const orrery::mysql::DiscoveryExplanation& MySqlAutoDiscoveryBase::getExplanation() const noexcept {
  return m_pass->explanation;
}

int MySqlAutoDiscoveryBase::RunCommand(const std::string& command, std::string& output, std::string& error,
                                       int& processReturnCode, bool shellCall) {
  constexpr const char* tag = "RunCommand";
  m_event.DebugLvl(tag, 6, "Executing command [%s]", LogText(command).c_str());
  try {
    if (shellCall) {
      discovery::CommandRules rules = std::exchange(m_pass->rules, {});
      if (m_pass->isStopped) rules.isStopped = &m_pass->isStopped;
      processReturnCode = m_pass->host->shell(command, rules, output, error);
    } else {
      std::string reason;
      if (m_pass->host->start(command, output, error, processReturnCode, reason) != 1) {
        m_event.Debug(tag, "StartProcess ERROR: %s", reason.c_str());
        processReturnCode = 1;
        return -1;
      }
    }
  } catch (const std::exception& failure) {
    m_event.Error(tag, "given up: %s", failure.what());
    processReturnCode = 1;
    return -1;
  }
  m_event.DebugLvl(tag, 6, "Output read: [%s]", LogText(output).c_str());
  return 0;
}

bool MySqlAutoDiscoveryBase::succeeds(std::string command, int* returnCode, int* result) {
  m_command = std::move(command);
  int code = 0;
  const int ran = RunCommand(m_command, m_output, m_error, code, true);
  if (returnCode != nullptr) *returnCode = code;
  if (result != nullptr) *result = ran;
  return ran == 0 && code == 0;
}

std::string MySqlAutoDiscoveryBase::findParamInCmdLine(const std::string& commandLine, const std::string& option) {
  try {
    if (auto value = discovery::parameterIn(commandLine, option)) return *std::move(value);
  } catch (const std::exception& failure) {
    m_event.Error("findParamInCmdLine", "given up: %s", failure.what());
    return {};
  }
  m_event.DebugLvl("findParamInCmdLine", 3, "Param [%s] not found in [%s]", option.c_str(),
                   LogText(commandLine).c_str());
  return {};
}

void MySqlAutoDiscoveryBase::identifyInfoFromConfigFile(const std::string& path, std::string& logDir,
                                                        std::string& dataDir, std::string& port) {
  constexpr const char* tag = "MySqlAutoDiscoveryBase::identifyInfoFromConfigFile";
  try {
    std::string text;
    std::string reason;
    // Kept: without a file not even the default port is known.
    if (!m_pass->host->readOptionFile(path, text, reason)) {
      m_event.DebugLvl(tag, 6, "[%s] is not read: %s", LogText(path).c_str(), reason.c_str());
      return;
    }
    const discovery::ServerSection found = discovery::readServerSection(text);
    // Kept: what the command line and the sockets say wins.
    if (logDir.empty()) logDir = found.logDirectory.value_or(std::string());
    if (dataDir.empty()) dataDir = found.dataDirectory.value_or(std::string());
    if (port.empty()) {
      // "port =" sets nothing.
      const bool isSet = found.port && !found.port->empty();
      port = isSet ? *found.port : defaultPort;
      m_pass->portSource = isSet ? orrery::mysql::FactSource::optionFile : orrery::mysql::FactSource::defaultValue;
    }
    m_pass->configText = std::move(text);
  } catch (const std::exception& failure) {
    m_event.Error(tag, "given up: %s", failure.what());
  }
}

bool MySqlAutoDiscoveryBase::isMysqlVersionSupported(const std::string& bindir) {
  constexpr const char* tag = "isMysqlVersionSupported";
  if (bindir.empty()) {
    m_event.Error(tag, "Empty binary directory found.");
    m_pass->refusal = "the folder of its program is not known";
    return false;
  }
  try {
    return asksVersion(bindir);
  } catch (const std::exception& failure) {
    m_event.Error(tag, "given up: %s", failure.what());
    m_pass->refusal = failure.what();
    return false;
  }
}

void MySqlAutoDiscoveryBase::stopWhen(std::function<bool()> isStopped) {
  m_pass->isStopped = std::move(isStopped);
}

/// Runs the version command with the rights of the process's account, unless it has been asked in this pass before.
bool MySqlAutoDiscoveryBase::asksForeign(const std::string& bindir, const discovery::PathVerdict& place,
                                         const discovery::OtherAccount& account, int& code, int& result) {
  discovery::ForeignRuns& runs = m_pass->foreignRuns;
  const discovery::ForeignRuns::Program program{place.device, place.inode, account.uid};
  if (const auto earlier = runs.answers.find(program); place.inode != 0 && earlier != runs.answers.end()) {
    m_output = earlier->second.output;
    m_error = earlier->second.errors;
    code = earlier->second.code;
    return earlier->second.succeeded;
  }
  m_pass->rules.account = account;
  m_pass->rules.milliseconds = std::min(longestForeignRun, runs.millisecondsLeft);
  const std::int64_t start = m_pass->host->milliseconds();
  const bool answered = succeeds(discovery::versionCommand(bindir), &code, &result);
  runs.millisecondsLeft -= m_pass->host->milliseconds() - start;
  if (place.inode != 0)
    runs.answers.emplace(program, discovery::ForeignRuns::Answer{answered, code, m_output, m_error});
  return answered;
}

bool MySqlAutoDiscoveryBase::asksVersion(const std::string& bindir) {
  constexpr const char* tag = "isMysqlVersionSupported";
  const std::string program = bindir + "/mysqld";
  const discovery::PathVerdict place = m_pass->host->whoCanReplace(program);
  // Asked again: a process may have taken another account since it was first looked at.
  if (m_pass->process != nullptr) m_pass->account = m_pass->process->account();
  discovery::ProgramRun run = discovery::howToRun(place, m_pass->host->agentUid(), m_pass->account, m_pass->places);
  if (run.account && m_pass->foreignRuns.millisecondsLeft <= 0) {
    run.refusal = "the time of a pass for programs that others could have put there is used up";
  }
  m_pass->programNote = run.account ? run.doubt : std::string();
  if (!run.refusal.empty()) {
    m_event.Error(tag, "[%s] is not run: %s", LogText(program).c_str(), LogText(run.refusal).c_str());
    m_pass->refusal = program + " is not asked for its version: " + run.refusal;
    return false;
  }
  int code = 0;
  int result = 0;
  bool answered = false;
  if (run.account) {
    m_event.Debug(tag, "[%s] is run as %s: %s", LogText(program).c_str(), m_pass->account.name.c_str(),
                  LogText(run.doubt).c_str());
    answered = asksForeign(bindir, place, *run.account, code, result);
  } else {
    answered = succeeds(discovery::versionCommand(bindir), &code, &result);
  }
  if (!answered) {
    m_event.Error(tag, "Failed to find mysql version. errCode[%d], nprocessRetCode[%d], output[%s], err[%s]", result,
                  code, LogText(m_output).c_str(), LogText(m_error).c_str());
    m_pass->refusal =
        program + " --version failed with " + std::to_string(code) + ": " + LogText(FXString::Trim(m_error)).c_str();
    return false;
  }
  const auto version = discovery::versionIn(m_output);
  if (!version) {
    m_event.Error(tag, "Got improper binary directory %s.", LogText(m_output).c_str());
    m_pass->refusal = program + " --version does not tell a version";
    return false;
  }
  const discovery::VersionVerdict verdict = discovery::verdictOn(*version);
  if (verdict == discovery::VersionVerdict::improper) {
    m_event.Debug(tag, "Got improper MySql version [%s].", LogText(*version).c_str());
  }
  if (verdict != discovery::VersionVerdict::supported) m_pass->refusal = "version " + *version + " is not supported";
  return verdict == discovery::VersionVerdict::supported;
}
