// Command mode: one client program per request.

#include <array>
#include <memory>
#include <new>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"

#include "access/client_output.h"
#include "access/dialect.h"
#include "access/identifiers.h"
#include "session/guarded.h"
#include "session/kept_error.h"

using orrery::mysql::Dialect;
using orrery::mysql::KeptError;
using orrery::mysql::OutputEnd;

namespace {

constexpr const char* executeTag = " <<FALLBACK>> GetMySqlInfo::executeMySqlCommand";
constexpr std::size_t errorTextRoom = 4095;  // 4094 bytes and a null

/// The parts of a command line stand in it without quotes, so a blank or a quote would make others of them, and another
/// program could run in the account's name.
bool canStandUnquoted(const std::string& part) {
  return part.find_first_of(std::string(" \"'\0", 4)) == std::string::npos;
}

}  // namespace

int GetMySqlInfo::refuse(const char* tag, const std::string& reason) {
  evEvent.Error(tag, "refused, nothing was sent: %s", reason.c_str());
  iErrorCode = -1;
  strErrorString = reason;
  return -1;
}

int GetMySqlInfo::checkCommandParts(const char* tag, const std::string& statement, bool bPing) {
  if (strSaUser.empty()) return refuse(tag, "the instance has no account to connect as");
  const struct {
    const char* name;
    const std::string& text;
  } parts[] = {{"binary path", strBinaryPath},
               {"defaults file", strConfigPwdFile},
               {"account", strSaUser},
               {"socket", strSocketFile},
               {"host", strHost},
               {"port", strPort}};
  for (const auto& part : parts) {
    if (canStandUnquoted(part.text)) continue;
    return refuse(tag, std::string("the ") + part.name + " [" + part.text +
                           "] holds a blank or a quote, which a client's command line cannot carry");
  }
  if (bPing) return 0;
  const auto reason = orrery::mysql::reasonToRefuse("statement", statement, orrery::mysql::Quoting::none);
  return reason ? refuse(tag, *reason) : 0;
}

std::string GetMySqlInfo::commandLine(const std::string& program, const std::string& statement, bool bPing) {
  const std::string start = strBinaryPath + "/" + dialect_->program(program) + " ";
  const std::string tls = bUseSsl ? dialect_->tlsOption() : std::string();
  if (bPing) {
    return start + " --defaults-file=" + strConfigPwdFile + " -u " + strSaUser + GetConnectMethod() + " ping" + tls;
  }
  return start + " --defaults-file=" + strConfigPwdFile + " --default-character-set=utf8 -u " + strSaUser +
         GetConnectMethod() + " -e " + "\"" + dialect_->statement(statement) + "\" " + " --batch --skip-column-names" +
         dialect_->layoutOption(statement) + tls;
}

int GetMySqlInfo::executeMySqlCommand(std::string statement, std::string& output, bool bPing) {
  return orrery::mysql::guarded(evEvent, executeTag, [&] {
    if (!bInitialized) {
      evEvent.Debug(executeTag, "GetMySqlInfo Not Initialized...ABORT");
      return -1;
    }
    if (checkCommandParts(executeTag, statement, bPing) != 0) return -1;

    const std::string program = bPing ? "mysqladmin" : "mysql";
    const KeptError before(*this);
    for (;;) {
      clearErrors();
      const int rc = runClient(executeTag, commandLine(program, statement, bPing), bPing, output);
      const bool toldWhy = iErrorCode != 0 || !strErrorString.empty();
      if (rc != 0 && toldWhy) {
        const Dialect::Rejection rejection{strBinaryPath, program,    bPing ? std::string_view() : statement,
                                           bUseSsl,       iErrorCode, strErrorString};
        if (dialect_->learn(rejection, evEvent, executeTag)) continue;
      }
      if (!toldWhy) before.putBack();
      return rc;
    }
  });
}

int GetMySqlInfo::runClient(const char* tag, const std::string& command, bool bPing, std::string& output) {
  const std::unique_ptr<MySqlChildProcess> client(new (std::nothrow) MySqlChildProcess);
  if (client == nullptr) {
    evEvent.Debug(tag, " new MySqlChildProcess failed");
    return -1;
  }
  if (client->Initialize(command, this) != 0) {
    evEvent.Debug(tag, "Initialize failed");
    iErrorCode = -1;
    strErrorString = client->GetLastErrText();
    return -1;
  }
  if (client->DZ_CreateProcess(true, false, false) != 0) {
    evEvent.Debug(tag, "DZ_CreateProcess failed");
    iErrorCode = -1;
    strErrorString = client->GetLastErrText();
    return -1;
  }
  output.clear();
  const OutputEnd end = orrery::mysql::readToEnd(*client, output, evEvent, tag);
  if (end == OutputEnd::brokenPipe) return -1;  // no wait: the runner ends and reaps what is left of the client
  if (client->Wait(0) != 0) {
    evEvent.Debug(tag, "Wait For Child Process failed");
    return rememberClientError(tag, *client);
  }
  if (end == OutputEnd::readFailed) {
    evEvent.Debug(tag, "ReadBuf failed");
    return -1;
  }
  // A ping that the server refuses ends with success and no output; only the client's error text tells why.
  if (bPing && output.empty()) rememberClientError(tag, *client);
  return 0;
}

int GetMySqlInfo::rememberClientError(const char* tag, MySqlChildProcess& client) {
  std::array<char, errorTextRoom> text{};
  long room = text.size();
  if (client.ReadErrBuf(text.data(), &room) != 0) evEvent.Debug(tag, "Reading from STDERR of commmand failed");
  strErrorString = text.data();
  iErrorCode = orrery::mysql::errorNumberIn(strErrorString);
  evEvent.Debug(tag, "The errCode is [%d]", iErrorCode);
  return -1;
}
