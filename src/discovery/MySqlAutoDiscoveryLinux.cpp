#include "orrery/mysql/MySqlAutoDiscoveryLinux.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <utility>
#include <vector>

#include "orrery/platform/FXErrorUtil.h"
#include "orrery/platform/FXString.h"

#include "discovery/command_line.h"
#include "discovery/commands.h"
#include "discovery/log_text.h"
#include "discovery/pass.h"
#include "discovery/process_list.h"

namespace discovery = orrery::mysql::discovery;
using discovery::LogText;
using orrery::mysql::DiscoveredFact;
using orrery::mysql::FactSource;

namespace {

constexpr const char* passTag = "MySqlAutoDiscoveryLinux::identifyMySqlInstanceInfo";

/// The suite's codes.
constexpr int processListFailed = 1168;
constexpr int userNameFailed = 1627;
constexpr int binaryDirectoryFailed = 0x57000004;

constexpr const char* aroundOutput = " \t\r\n";
constexpr const char* noBinaryDirectory = "Failed to get the binary directory.";  // users: the pass and identifyBinDir

/// Kept: the tilde of the last one is taken literally; nothing looks into home folders.
constexpr std::array<const char*, 4> usualOptionFiles{"/etc/my.cnf", "/etc/mysql/my.cnf", "/usr/etc/my.cnf",
                                                      "~/.my.cnf"};

/// What is run from the folder of an instance's programs.
constexpr std::array<const char*, 4> clientPrograms{"mysql", "mysqladmin", "mariadb", "mariadb-admin"};

/// Tells `fact` the value that a step found, if it changed it.
void learn(DiscoveredFact& fact, const std::string& value, FactSource source) {
  if (value == fact.value) return;
  fact = {value, value.empty() ? FactSource::nowhere : source, {}};
}

}  // namespace

MySqlAutoDiscoveryLinux::MySqlAutoDiscoveryLinux(std::string clientName)
    : MySqlAutoDiscoveryBase(std::move(clientName)) {}
MySqlAutoDiscoveryLinux::MySqlAutoDiscoveryLinux(std::string clientName, std::unique_ptr<discovery::Host> host)
    : MySqlAutoDiscoveryBase(std::move(clientName), std::move(host)) {}
MySqlAutoDiscoveryLinux::~MySqlAutoDiscoveryLinux() = default;

CKyError MySqlAutoDiscoveryLinux::identifyMySqlInstanceInfo() {
  try {
    if (CKyError error = listProcesses(); error.isError()) return error;
    const std::string unixUser = readUnixUser();
    for (ServerProcess& server : m_pass->explanation.processes) {
      if (isStopped()) break;
      describe(server, unixUser);
    }
    m_pass->finish();
    if (isStopped()) {
      m_instances.clear();
      return FXErrorUtil::ErrorErrNo(ECANCELED, FXSourceLocation::here(), "discovery was stopped by its caller");
    }
    return {};
  } catch (const std::exception& failure) {
    m_event.Error(passTag, "given up: %s", failure.what());
    return FXErrorUtil::ErrorErrNo(processListFailed, FXSourceLocation::here(), "given up: %s", failure.what());
  }
}

bool MySqlAutoDiscoveryLinux::isStopped() const {
  return m_pass->isStopped && m_pass->isStopped();
}

CKyError MySqlAutoDiscoveryLinux::listProcesses() {
  m_pids.clear();
  m_instances.clear();
  m_pass->explanation = {};
  // A process may have as long a title as it likes; no server's program has.
  m_pass->rules.dropsLongLines = true;
  if (!succeeds(discovery::listServersCommand)) {
    constexpr const char* text = "Failed to find mysql server's PIDs. stdout=%s stderr=%s";
    const LogText output(m_output);
    const LogText error(m_error);
    m_event.Debug(passTag, text, output.c_str(), error.c_str());
    return FXErrorUtil::ErrorErrNo(processListFailed, FXSourceLocation::here(), text, output.c_str(), error.c_str());
  }
  m_event.DebugLvl(passTag, 6, "MySQL server's PIDs found. stdout=%s stderr=%s", LogText(m_output).c_str(),
                   LogText(m_error).c_str());
  discovery::addMissingProgram(m_error, "ps", "procps", m_pass->explanation);
  discovery::addMissingProgram(m_error, "grep", "grep", m_pass->explanation);
  std::vector<discovery::ListedProcess> others;
  for (discovery::ListedProcess& process : discovery::serversIn(m_output, &others)) {
    m_pids.push_back(process.pid);
    ServerProcess& server = m_pass->explanation.processes.emplace_back();
    server.pid = std::move(process.pid);
    server.program = std::move(process.program);
  }
  discovery::addUnmatched(others, *m_pass);
  return {};
}

/// Kept: the account that runs the discovery, not the one that runs a server, and a failure ends nothing.
std::string MySqlAutoDiscoveryLinux::readUnixUser() {
  if (succeeds(discovery::whoAmICommand)) return FXString::Trim(m_output, aroundOutput);
  constexpr const char* text = "Failed to find unix username. stdout=%s stderr=%s";
  m_event.Debug(passTag, text, m_output.c_str(), m_error.c_str());
  // Kept: built for whoever watches errors being raised, and dropped.
  static_cast<void>(
      FXErrorUtil::ErrorErrNo(userNameFailed, FXSourceLocation::here(), text, m_output.c_str(), m_error.c_str()));
  return FXString::Trim(m_output, aroundOutput);
}

/// The steps for one process, in this order: later ones use what earlier ones found.
void MySqlAutoDiscoveryLinux::describe(ServerProcess& server, const std::string& unixUser) {
  discovery::Evidence evidence;
  m_pass->begin(server.pid);
  if (m_pass->process == nullptr || !m_pass->process->commandLine(evidence.bytes)) {
    m_event.Debug(passTag, "Failed to open cmdline file for MySQL process [%s]. Continuing.", server.pid.c_str());
    server.leftOut = "its command line cannot be read; it may have ended";
    return;
  }
  m_pass->account = m_pass->process->account();
  m_pass->places = m_pass->process->places();
  discovery::WorkingTexts texts = readOptions(evidence, server);
  findSocket(texts, server);
  if (findBinaryDirectory(texts, server)) {
    findPort(texts, server);
    findInOptionFile(texts, server);
    preferLogDirectory(texts, server);
    record(texts, unixUser, server);
  }
  evidence.texts = std::move(texts);
  discovery::addHints(evidence, *m_pass, server);
}

discovery::WorkingTexts MySqlAutoDiscoveryLinux::readOptions(discovery::Evidence& evidence, ServerProcess& server) {
  discovery::WorkingTexts texts = discovery::optionsIn(evidence.bytes);
  evidence.fromLine = texts;
  server.account = m_pass->account.name;
  learn(server.socket, texts.socket, FactSource::commandLine);
  learn(server.logDataDirectory, texts.dataDirectory, FactSource::commandLine);
  learn(server.port, texts.port, FactSource::commandLine);
  learn(server.configFile, texts.configFile, FactSource::commandLine);
  m_pass->logSource = FactSource::commandLine;
  return texts;
}

void MySqlAutoDiscoveryLinux::findSocket(discovery::WorkingTexts& texts, ServerProcess& server) {
  if (texts.socket.empty()) {
    if (!succeeds(discovery::findSocketCommand(server.pid))) {
      m_event.Debug(passTag, "Failed to find socket file. stdout=%s stderr=%s", LogText(m_output).c_str(),
                    LogText(m_error).c_str());
    } else if (!m_output.empty()) {
      texts.socket = discovery::firstLine(m_output);  // a line for each that the process listens on
    }
    discovery::addMissingProgram(m_error, "ss", "iproute2", m_pass->explanation);
    discovery::addMissingProgram(m_error, "grep", "grep", m_pass->explanation);
  }
  texts.socket = FXString::Trim(texts.socket, aroundOutput);
  learn(server.socket, texts.socket, FactSource::socketList);
}

bool MySqlAutoDiscoveryLinux::findBinaryDirectory(discovery::WorkingTexts& texts, ServerProcess& server) {
  m_pass->binarySource = texts.baseDirectory.empty() ? FactSource::searchPath : FactSource::commandLine;
  const CKyError error = identifyBinDir(texts.baseDirectory, server.pid, texts.binaryDirectory);
  learn(server.binaryDirectory, texts.binaryDirectory, m_pass->binarySource);
  if (!error.isError()) return true;
  dropForBinaryDirectory();
  server.leftOut = texts.binaryDirectory.empty() ? "the folder of its programs was not found"
                                                 : "there is no folder " + texts.binaryDirectory;
  return false;
}

/// Kept: the error is built for whoever watches errors being raised, and dropped: one server's folder ends no pass.
void MySqlAutoDiscoveryLinux::dropForBinaryDirectory() {
  m_event.Debug(passTag, noBinaryDirectory);
  static_cast<void>(FXErrorUtil::ErrorErrNo(binaryDirectoryFailed, FXSourceLocation::here(), noBinaryDirectory));
}

/// The short name of the host and the port.
std::string MySqlAutoDiscoveryLinux::instanceName(const std::string& port) const {
  std::string client;
  getClientName(client);
  return client.substr(0, client.find('.')) + "_" + port;
}

void MySqlAutoDiscoveryLinux::findPort(discovery::WorkingTexts& texts, ServerProcess& server) {
  if (texts.port.empty()) {
    if (!succeeds(discovery::findPortCommand(server.pid))) {
      m_event.Debug(passTag, "Failed to find port. stdout=%s stderr=%s", LogText(m_output).c_str(),
                    LogText(m_error).c_str());
    } else if (!m_output.empty()) {
      texts.port = m_output;
    }
    discovery::addMissingProgram(m_error, "ss", "iproute2", m_pass->explanation);
    discovery::addMissingProgram(m_error, "grep", "grep", m_pass->explanation);
  }
  texts.port = FXString::Trim(texts.port, aroundOutput);
  learn(server.port, texts.port, FactSource::socketList);
}

void MySqlAutoDiscoveryLinux::findInOptionFile(discovery::WorkingTexts& texts, ServerProcess& server) {
  if (texts.configFile.empty()) {
    const auto isThere = [&](const char* path) {
      bool isFile = false;
      return m_pass->host->exists(path, isFile);
    };
    const auto* const found = std::find_if(usualOptionFiles.begin(), usualOptionFiles.end(), isThere);
    if (found != usualOptionFiles.end()) texts.configFile = *found;
  }
  learn(server.configFile, texts.configFile, FactSource::usualPlace);
  const bool logIsKnown = !texts.logDirectory.empty();
  identifyInfoFromConfigFile(texts.configFile, texts.logDirectory, texts.dataDirectory, texts.port);
  if (!logIsKnown) m_pass->logSource = FactSource::optionFile;
  learn(server.logDataDirectory, texts.dataDirectory, FactSource::optionFile);
  learn(server.port, texts.port, m_pass->portSource);
}

/// Kept: where the folder of the binary logs is known, the record has it in place of the data directory.
void MySqlAutoDiscoveryLinux::preferLogDirectory(discovery::WorkingTexts& texts, ServerProcess& server) {
  if (texts.logDirectory.empty() || texts.logDirectory.find('/') == std::string::npos) return;
  texts.dataDirectory = texts.logDirectory;
  learn(server.logDataDirectory, texts.dataDirectory, m_pass->logSource);
}

void MySqlAutoDiscoveryLinux::record(const discovery::WorkingTexts& texts, const std::string& unixUser,
                                     ServerProcess& server) {
  MysqlInstanceInfo info{unixUser,   texts.socket,     texts.dataDirectory,     texts.binaryDirectory,
                         texts.port, texts.configFile, instanceName(texts.port)};
  server.unixUser = {unixUser, FactSource::agentAccount, {}};
  server.instanceName = {info.strInstanceName, FactSource::composed, {}};
  // Kept: the record has the folder found first. The one of the running program only serves to ask the version.
  std::string bindir = texts.binaryDirectory;
  bool isFile = false;
  if (!m_pass->host->exists(FXPath::Append(bindir, "mysqld"), isFile)) {
    m_event.Debug(passTag, "`mysqld` not found in the PATH.bindir[%s]", LogText(bindir).c_str());
    if (identifyMysqldBindir(server.pid, bindir).isError()) dropForBinaryDirectory();
  }
  // Kept: a server that is left out here gets no further message of the pass.
  server.recorded = isMysqlVersionSupported(bindir);
  server.leftOut = server.recorded ? std::string() : m_pass->refusal;
  if (!server.recorded) return;
  server.claimedBecause = m_pass->programNote;
  server.binaryDirectory.replaceableBy = replacerOfClients(texts.binaryDirectory);
  if (!texts.configFile.empty())
    server.configFile.replaceableBy = m_pass->host->whoCanReplace(texts.configFile).doubt();
  m_instances.push_back(std::move(info));
}

/// Whoever works with the record runs the clients of its folder, often as root: the folder counts, and every one of
/// them that it has or that could appear in it.
std::string MySqlAutoDiscoveryLinux::replacerOfClients(const std::string& folder) const {
  std::string doubt = m_pass->host->whoCanReplace(folder).doubt();
  for (const char* client : clientPrograms) {
    if (doubt.empty()) doubt = m_pass->host->whoCanReplace(FXPath::Append(folder, client)).doubt();
  }
  return doubt;
}

CKyError MySqlAutoDiscoveryLinux::identifyBinDir(const std::string& basedir, const std::string& pid,
                                                 std::string& bindir) {
  // Kept: the blank before the colons, as people search logs for it.
  constexpr const char* tag = "MySqlAutoDiscoveryLinux ::identifyBinDir";
  const auto failed = [] {
    return FXErrorUtil::ErrorErrNo(binaryDirectoryFailed, FXSourceLocation::here(tag),
                                   "MySqlAutoDiscoveryLinux ::identifyBinDir Failed : %d", -1);
  };
  if (!basedir.empty()) {
    bindir = basedir + "/" + "bin";
  } else if (succeeds(discovery::findClientCommand)) {
    bindir = FXPath::SplitParentPath(FXString::Trim(m_output));
    m_event.Debug(tag, "bindir found: %s", LogText(bindir).c_str());
  } else {
    m_event.Debug(tag, "`mysql` not found in the PATH. stdout=%s stderr=%s", LogText(m_output).c_str(),
                  LogText(m_error).c_str());
    discovery::addMissingProgram(m_error, "which", "debianutils", m_pass->explanation);
    m_pass->binarySource = FactSource::program;
    // Kept: goes on with whatever the caller has.
    if (identifyMysqldBindir(pid, bindir).isError()) m_event.Debug(tag, noBinaryDirectory);
  }
  bool isFile = false;
  if (!m_pass->host->exists(bindir, isFile)) {
    m_event.Debug(tag, "Path [%s] does not exist. out=%s basedir=%s", LogText(bindir).c_str(),
                  LogText(m_output).c_str(), LogText(basedir).c_str());
    return failed();
  }
  if (isFile) {
    m_event.Debug(tag, "Path [%s] is found to be a file. Please check configuration.", LogText(bindir).c_str());
    return failed();
  }
  return {};
}

CKyError MySqlAutoDiscoveryLinux::identifyMysqldBindir(const std::string& pid, std::string& bindir) {
  constexpr const char* tag = "MySqlAutoDiscoveryLinux ::identifyMysqldBindir";
  int code = 0;
  if (!discovery::isProcessId(pid) || !succeeds(discovery::findProgramCommand(pid), &code)) {
    discovery::addMissingProgram(m_error, "readlink", "coreutils", m_pass->explanation);
    const LogText output(m_output);
    const LogText error(m_error);
    m_event.Debug(tag, "Failed to find binary directory. stdout=%s stderr=%s retCode=%d cmd=%s", output.c_str(),
                  error.c_str(), code, LogText(m_command).c_str());
    return FXErrorUtil::ErrorErrNo(binaryDirectoryFailed, FXSourceLocation::here(tag),
                                   "Failed to find binary directory. stdout=%s stderr=%s", output.c_str(),
                                   error.c_str());
  }
  bindir = FXPath::SplitParentPath(FXString::Trim(m_output, " \r\n"));
  m_event.Debug(tag, "bindir found: %s", LogText(bindir).c_str());
  return {};
}
