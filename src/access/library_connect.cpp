// Library mode: life of a session and the making of its connection.

#include <memory>
#include <new>
#include <utility>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/DZFile.h"

#include "session/guarded.h"
#include "session/password.h"
#include "session/secret.h"

using orrery::mysql::guarded;
using orrery::mysql::Secret;

namespace {

constexpr const char* libraryName = "libmysqlclient.so";

bool isAddress(const std::string& socketOrAddress) {
  return socketOrAddress.find(':') != std::string::npos;
}

}  // namespace

GetMySqlInfoExt::GetMySqlInfoExt() {
  forgetConnectionFields();
}

GetMySqlInfoExt::GetMySqlInfoExt(ApplicationId application, int& status) : GetMySqlInfo(application, status) {
  forgetConnectionFields();
}

GetMySqlInfoExt::GetMySqlInfoExt(long instanceId, int& status) : GetMySqlInfo(instanceId, status) {
  forgetConnectionFields();
}

void GetMySqlInfoExt::forgetConnectionFields() {
  clearErrors();
  strHost.clear();
  strPort.clear();
}

/// What an earlier server of this object left behind. An instance that cannot be read would otherwise be taken for it.
void GetMySqlInfoExt::forgetEarlierServer() {
  m_Conn.reset();
  for (std::string* text :
       {&strSocketFile, &strSaUser, &strSaPassword, &strHost, &strPort, &strSslCa, &strSslKey, &strSslCert}) {
    text->clear();
  }
  ulClientId = 0;
}

GetMySqlInfoExt::~GetMySqlInfoExt() {
  m_Conn.reset();  // before the base removes the defaults file, which the connection's TLS files were written to
}

int GetMySqlInfoExt::Init(ApplicationId application) {
  constexpr const char* tag = "GetMySqlInfoExt::Init(ApplicationId appId)";
  return guarded(evEvent, tag, [&] {
    forgetEarlierServer();
    // Kept: the result does not count. What the connection needs is tested by ConnectToDB, and an instance whose
    // defaults file cannot be written can still be reached through the library.
    static_cast<void>(GetMySqlInfo::Init(application));
    return ConnectToDB();
  });
}

int GetMySqlInfoExt::Init(long instanceId) {
  constexpr const char* tag = "GetMySqlInfoExt::Init(InstanceID)";
  return guarded(evEvent, tag, [&] {
    forgetEarlierServer();
    static_cast<void>(GetMySqlInfo::Init(instanceId));  // as above
    return ConnectToDB();
  });
}

std::string GetMySqlInfoExt::GetLibraryPath() {
  std::string path;
  // Kept: a socket's server is on this machine and gets the library that was installed with the agent; one that is
  // reached over TCP may be of any version, for which the machine's own library is the better guess.
  if (isAddress(strSocketFile)) path = std::string("/usr/lib64/mysql") + "/" + libraryName;
  if (path.empty() || !CKyPath::IsFile(path)) path = m_platformInfo.getHomeDirectory() + "/" + libraryName;
  return path;
}

void GetMySqlInfoExt::fillLibraryPath() {
  if (!m_platformInfo.getString("MySQL", "sLibPath", m_libraryPath) || m_libraryPath.empty()) {
    m_libraryPath = GetLibraryPath();
  }
}

int GetMySqlInfoExt::ConnectToDB() {
  constexpr const char* tag = "GetMySqlInfoExt::ConnectToDB";
  return guarded(evEvent, tag, [&] {
    m_Conn.reset();  // whatever fails below, nothing may go to an earlier server
    if (strSocketFile.empty()) {
      // A client library would take its own default, and the session would speak to a server that nobody meant.
      SetErrorStatus(-1, "the instance has no socket or address");
      evEvent.Error(tag, "%s", strErrorString.c_str());
      return -1;
    }
    fillLibraryPath();
    Secret password;
    if (!orrery::mysql::openPassword(strSaPassword, password.text())) {
      evEvent.Debug(tag, "Error in decrypting the password for database server");
      return -1;
    }
    if (isAddress(strSocketFile)) {
      // Clients that this session starts need the address in its parts; the constructors leave them empty.
      GetHostPortFromSocket(strSocketFile, strHost, strPort);
      m_Conn.reset(new (std::nothrow) MySqlInterface(strSaUser, password.text(), strSocketFile));
    } else if (IsCloudDBInstance(ulClientId)) {
      evEvent.Debug(tag, "The socket is not in the format IP:Port MySqlInterface object cannot created. ");
      return -1;
    } else {
      m_Conn.reset(new (std::nothrow) MySqlInterface(strSaUser, password.text(), strSocketFile, 0));
    }
    if (prepareConnection(tag) != 0) return -1;

    const int loaded = m_Conn->LoadAndInitialize(m_libraryPath);
    if (loaded == 0) return 0;
    SetErrorStatus(m_Conn->getLastError(), m_Conn->getLastErrorStr());
    if (loaded == -1) evEvent.Debug(tag, "Log file error");
    if (loaded == -2) evEvent.Debug(tag, "Couldn't load Shared Library..");
    if (loaded == -3) {
      evEvent.Debug(tag, "Cannot connect.GetConnection failed() failed:%s", strErrorString.c_str());
      return -2;
    }
    evEvent.Debug(tag, "MySqlInterface::LoadAndInitialize() failed:%s ", strErrorString.c_str());
    return -1;
  });
}

/// What both ways of connecting do with a new connection object before the library is loaded.
int GetMySqlInfoExt::prepareConnection(const char* tag) {
  if (m_Conn == nullptr) {
    evEvent.Debug(tag, "MySqlInterface object cannot created. new MySqlInterface() returned NULL");
    return -1;
  }
  if (sslConnect()) return 0;
  evEvent.Debug(tag, "sslConnect failed : %s", strErrorString.c_str());
  return -1;
}

int GetMySqlInfoExt::Init(MySqlServer server) {
  constexpr const char* tag = "GetMySqlInfoExt::Init(MySqlServer)";
  return guarded(evEvent, tag, [&] {
    forgetEarlierServer();
    if (bInitialized) DeleteConfFile();  // of an instance: its password is not this server's
    strConfigPwdFile.clear();
    takeRecord(server);
    fillLibraryPath();
    // The record's password is plain, unlike an instance's.
    if (isAddress(strSocketFile)) {
      m_Conn.reset(new (std::nothrow) MySqlInterface(strSaUser, strSaPassword, strSocketFile));
      if (m_Conn != nullptr) {
        strHost = m_Conn->getHost();
        strPort = std::to_string(static_cast<int>(m_Conn->getPort()));
      }
    } else {
      m_Conn.reset(new (std::nothrow) MySqlInterface(strSaUser, strSaPassword, strSocketFile, 0));
    }
    if (prepareConnection(tag) != 0) return -1;
    if (m_Conn->LoadAndInitialize(m_libraryPath) == 0) return 0;
    SetErrorStatus(m_Conn->getLastError(), m_Conn->getLastErrorStr());
    evEvent.Debug(tag, "MySqlInterface::LoadAndInitialize() failed:%s", strErrorString.c_str());
    return -1;
  });
}

int GetMySqlInfoExt::Disconnect() {
  m_Conn->Disconnect();
  return 0;
}

void GetMySqlInfoExt::SetErrorStatus(int code, std::string text) {
  iErrorCode = code;
  strErrorString = std::move(text);
}

int GetMySqlInfoExt::keepConnectionError() {
  SetErrorStatus(m_Conn->getLastError(), m_Conn->getLastErrorStr());
  return -1;
}

int GetMySqlInfoExt::withoutConnection(const char* tag, const char* text) {
  evEvent.Debug(tag, "%s", text);
  return -1;
}
