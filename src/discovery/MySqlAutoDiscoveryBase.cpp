#include "orrery/mysql/MySqlAutoDiscoveryBase.h"

#include <exception>
#include <utility>

#include "orrery/platform/FXString.h"

#include "discovery/command_line.h"
#include "discovery/commands.h"
#include "discovery/foreign_program.h"
#include "discovery/option_file.h"
#include "discovery/pass.h"
#include "discovery/version.h"

namespace discovery = orrery::mysql::discovery;

namespace {

constexpr const char* defaultPort = "3306";

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
  m_event.DebugLvl(tag, 6, "Executing command [%s]", command.c_str());
  try {
    if (shellCall) {
      const auto& account = m_pass->programAccount;
      processReturnCode = m_pass->host->shell(command, account ? &*account : nullptr, output, error);
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
  m_event.DebugLvl(tag, 6, "Output read: [%s]", output.c_str());
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
  m_event.DebugLvl("findParamInCmdLine", 3, "Param [%s] not found in [%s]", option.c_str(), commandLine.c_str());
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
      m_event.DebugLvl(tag, 6, "[%s] is not read: %s", path.c_str(), reason.c_str());
      return;
    }
    const discovery::ServerSection found = discovery::readServerSection(text);
    // Kept: what the command line and the sockets say wins.
    if (logDir.empty()) logDir = found.logDirectory.value_or(std::string());
    if (dataDir.empty()) dataDir = found.dataDirectory.value_or(std::string());
    if (port.empty()) {
      port = found.port.value_or(defaultPort);
      m_pass->portSource = found.port ? orrery::mysql::FactSource::optionFile : orrery::mysql::FactSource::defaultValue;
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

bool MySqlAutoDiscoveryBase::asksVersion(const std::string& bindir) {
  constexpr const char* tag = "isMysqlVersionSupported";
  const std::string program = bindir + "/mysqld";
  const std::string replaceableBy = m_pass->host->whoCanReplace(program);
  const discovery::ProgramRun run = discovery::howToRun(replaceableBy, m_pass->host->agentUid(), m_pass->account);
  m_pass->programNote = run.account ? replaceableBy : std::string();
  if (!run.refusal.empty()) {
    m_event.Error(tag, "[%s] is not run: %s", program.c_str(), run.refusal.c_str());
    m_pass->refusal = program + " is not asked for its version, because others could have put it there: " + run.refusal;
    return false;
  }
  int code = 0;
  int result = 0;
  m_pass->programAccount = run.account;
  if (run.account) {
    m_event.Debug(tag, "[%s] is run as %s: %s", program.c_str(), m_pass->account.name.c_str(), replaceableBy.c_str());
  }
  const bool answered = succeeds(discovery::versionCommand(bindir), &code, &result);
  m_pass->programAccount.reset();
  if (!answered) {
    m_event.Error(tag, "Failed to find mysql version. errCode[%d], nprocessRetCode[%d], output[%s], err[%s]", result,
                  code, m_output.c_str(), m_error.c_str());
    m_pass->refusal = program + " --version failed with " + std::to_string(code) + ": " + FXString::Trim(m_error);
    return false;
  }
  const auto version = discovery::versionIn(m_output);
  if (!version) {
    m_event.Error(tag, "Got improper binary directory %s.", m_output.c_str());
    m_pass->refusal = program + " --version does not tell a version";
    return false;
  }
  const discovery::VersionVerdict verdict = discovery::verdictOn(*version);
  if (verdict == discovery::VersionVerdict::improper) {
    m_event.Debug(tag, "Got improper MySql version [%s].", version->c_str());
  }
  if (verdict != discovery::VersionVerdict::supported) m_pass->refusal = "version " + *version + " is not supported";
  return verdict == discovery::VersionVerdict::supported;
}
