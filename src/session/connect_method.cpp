// Texts that the session derives from its socket and from names.

#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/FXString.h"

#include "access/identifiers.h"
#include "session/guarded.h"

std::string GetMySqlInfo::GetConnectMethod() {
  return GetConnectMethod(strSocketFile, strHost, strPort);
}

std::string GetMySqlInfo::GetConnectMethod(const std::string& socket, const std::string& host,
                                           const std::string& port) {
  return host.empty() ? " --socket=" + socket : " --host=" + host + " --port=" + port;
}

std::string GetMySqlInfo::GetConnectMethod(const std::string& socket) {
  std::string host;
  std::string port;
  GetHostPortFromSocket(socket, host, port);
  return GetConnectMethod(socket, host, port);
}

void GetMySqlInfo::GetHostPortFromSocket(const std::string& socket, std::string& host, std::string& port) {
  if (socket.find(':') == std::string::npos) return;
  const std::vector<std::string> pieces = FXString::Split(socket, ':');
  if (pieces.size() != 2) return;
  host = pieces[0];
  port = pieces[1];
}

void GetMySqlInfo::GetShortName(const std::string& name, std::string& shortName) {
  const std::size_t dot = name.find('.');
  if (dot != std::string::npos) shortName = name.substr(0, dot);
}

std::string GetMySqlInfo::SpecialCharactersCheck(std::string text) {
  return orrery::mysql::escapeForLike(text);
}

void GetMySqlInfo::clearErrors() {
  iErrorCode = 0;
  strErrorString.clear();
}

int GetMySqlInfo::CreateDir(std::string path) {
  constexpr const char* tag = "GetMySqlInfo::CreateDir";
  return orrery::mysql::guarded(evEvent, tag, [&] {
    const CKyError error = CKyDirectory::Create(path);
    if (!error.isError()) return 0;
    evEvent.Debug(tag, " unable to create jobfolder =[%s], errno=[%s]", path.c_str(), error.text().c_str());
    return -1;
  });
}
