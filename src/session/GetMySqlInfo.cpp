// Life of a session: construction, initialisation, copy, end.

#include <time.h>

#include <cstring>
#include <utility>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/version.h"
#include "orrery/platform/ClientProperties.h"
#include "orrery/platform/instance_properties.h"
#include "orrery/platform/services.h"

#include "access/dialect.h"
#include "session/guarded.h"
#include "session/password.h"

using orrery::mysql::guarded;

namespace {

constexpr const char* fromInstanceTag = "GetMySqlInfo::GetMySqlInfo(MySqlInstance *)";

}  // namespace

GetMySqlInfo::GetMySqlInfo() : dialect_(std::make_unique<orrery::mysql::Dialect>()) {}

GetMySqlInfo::GetMySqlInfo(long instanceId, int& rc) : GetMySqlInfo() {
  constexpr const char* tag = "GetMySqlInfo::GetMySqlInfo(InstanceID,rc)";
  rc = guarded(evEvent, tag, [&] {
    if (adoptInstance(MySqlInstance::create(instanceId)) != 0) {
      evEvent.Debug(tag, "creation of MySqlInstance failed");
      return -1;
    }
    return GetMySqlInfo::Init(pMySqlInstance);
  });
}

GetMySqlInfo::GetMySqlInfo(ApplicationId application, int& rc) : GetMySqlInfo() {
  constexpr const char* tag = "GetMySqlInfo::GetMySqlInfo(ApplicationId appId)";
  appId = application;
  rc = guarded(evEvent, tag, [&] {
    const auto instance = appId.getInstance();
    if (instance == nullptr) {
      evEvent.Debug(tag, "ApplicationId::getInstance failed");
      return -1;
    }
    if (adoptInstance(MySqlInstance::create(static_cast<long>(instance->getInstanceId()))) != 0) {
      evEvent.Debug(tag, "creation of MySqlInstance failed");
      return -1;
    }
    return GetMySqlInfo::Init(pMySqlInstance);
  });
}

GetMySqlInfo::GetMySqlInfo(GetMySqlInfo& other)
    : iErrorCode(other.iErrorCode),
      strErrorString(other.strErrorString),
      pMySqlInstance(other.pMySqlInstance),
      strArchiveLogIndexFile(other.strArchiveLogIndexFile),
      strSocketFile(other.strSocketFile),
      strUnixUser(other.strUnixUser),
      strSaUser(other.strSaUser),
      strSaPassword(other.strSaPassword),
      strPassword(other.strPassword),
      strVersion(other.strVersion),
      strBinaryPath(other.strBinaryPath),
      strDataPath(other.strDataPath),
      strConfigFile(other.strConfigFile),
      strNTUser(other.strNTUser),
      strNTPassword(other.strNTPassword),
      iDbAutoDiscovery(other.iDbAutoDiscovery),
      strHost(other.strHost),
      strPort(other.strPort),
      iSessionMode(other.iSessionMode),
      bUseSsl(other.bUseSsl),
      strSslCa(other.strSslCa),
      strSslKey(other.strSslKey),
      strSslCert(other.strSslCert),
      instances_(other.instances_),
      dialect_(std::make_unique<orrery::mysql::Dialect>(*other.dialect_)) {
  constexpr const char* tag = "GetMySqlInfo::GetMySqlInfo(GetMySqlInfo & MySqlInfo)";
  evEvent.Debug(tag, "Copy Constructor");
  bInitialized = false;
  evEvent.Debug(tag, "CreateConfigPwdFile() being called");
  const std::int64_t now = orrery::platform::services().clock->now() / 1000000;
  if (CreateConfigPwdFile(static_cast<unsigned long>(now)) != 0) evEvent.Debug(tag, "CreateConfigPwdFile failed");
  // Kept: a copy always counts as initialised. Agents copy sessions without a way to learn of a failure, and a
  // statement that the client refuses tells more than one that never ran.
  bInitialized = true;
  for (std::string* text : {&strSessionString2, &strSessionString3, &strSessionString4, &strSessionString5,
                            &strSessionString6, &strSessionString7}) {
    text->clear();
  }
}

GetMySqlInfo::~GetMySqlInfo() {
  if (bInitialized) DeleteConfFile();
  pMySqlInstance = nullptr;  // the entity itself goes with the last session that shares it
  explicit_bzero(strPassword.data(), strPassword.size());
}

int GetMySqlInfo::adoptInstance(std::unique_ptr<MySqlInstance> instance) {
  if (instance == nullptr) return -1;
  instances_.push_back(std::move(instance));
  pMySqlInstance = instances_.back().get();
  return 0;
}

int GetMySqlInfo::Init(ApplicationId application) {
  constexpr const char* tag = "GetMySqlInfo::Init(ApplicationId appId)";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "start, instance %lu", application.getInstanceId());
    appId = application;
    const auto instance = appId.getInstance();
    if (instance == nullptr) {
      evEvent.Debug(tag, "ApplicationId::getInstance failed");
      return -1;
    }
    if (adoptInstance(MySqlInstance::create(static_cast<long>(instance->getInstanceId()))) != 0) {
      evEvent.Debug(tag, "creation of MySqlInstance failed");
      return -1;
    }
    return Init(pMySqlInstance);
  });
}

int GetMySqlInfo::Init(long instanceId) {
  constexpr const char* tag = "GetMySqlInfo::Init(InstanceID)";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "start, instance %ld", instanceId);
    // Kept: an earlier entity is not deleted here: a caller may hold its address. It goes with the session.
    pMySqlInstance = nullptr;
    if (adoptInstance(MySqlInstance::create(instanceId)) != 0) {
      evEvent.Debug(tag, "new MySqlInstance (%ld) returned NULL", instanceId);
      return -1;
    }
    return Init(pMySqlInstance);
  });
}

int GetMySqlInfo::Init(MySqlInstance* instance) {
  return guarded(evEvent, fromInstanceTag, [&] {
    evEvent.Debug(fromInstanceTag, "start");
    if (instance == nullptr) {
      evEvent.Debug(fromInstanceTag, "no MySqlInstance given");
      return -1;
    }
    return initFromInstance(fromInstanceTag, *instance);
  });
}

/// What an earlier server of this object left behind: its address would go before the new one's socket, and its texts
/// before those that the new one knows.
void GetMySqlInfo::forgetEarlierServer() {
  strHost.clear();
  strPort.clear();
  dialect_ = std::make_unique<orrery::mysql::Dialect>();
}

int GetMySqlInfo::initFromInstance(const char* tag, MySqlInstance& instance) {
  if (bInitialized) DeleteConfFile();
  forgetEarlierServer();
  if (readProperties(tag, instance) != 0) return -1;
  updateUseSsl();
  evEvent.Debug(tag, "Received all MySqlInstance properties.");

  const unsigned long instanceId = instance.getInstanceId();
  if (instanceId == 0) {
    evEvent.Debug(tag, "MySqlInstance::getInstanceId failed..");
    return -1;
  }
  unsigned long clientId = 0;
  const int rc = ClientFromInstanceId::getClientId(instanceId, clientId);
  if (rc != 0) {
    evEvent.Error(tag, "Unable to fetch client ID for instance ID [%lu] retCode [%d].", instanceId, rc);
    return -1;
  }
  ulClientId = clientId;
  GetHostPortFromSocket(strSocketFile, strHost, strPort);
  if (IsCloudDBInstance(clientId) && useProxyClients(tag) != 0) return -1;
  if (openPassword(tag) != 0) return -1;

  ulInstanceId = instanceId;
  if (CreateConfigPwdFile(instanceId) < 0) {
    evEvent.Debug(tag, "CreateConfigPwdFile failed");
    return -1;
  }
  return 0;
}

int GetMySqlInfo::readProperties(const char* tag, const MySqlInstance& instance) {
  int rc = 0;
  const auto failed = [&](int result) { return (rc = result) != 0; };
  if (failed(instance.getMySqlUnixUser(strUnixUser))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlUnixUser failed, retCode=[%d]", rc);
  } else if (failed(instance.getSaUser(strSaUser))) {
    evEvent.Debug(tag, "MySqlInstance::getSaUser failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlVersion(strVersion))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlVersion failed, retCode=[%d]", rc);
  } else if (failed(instance.getSaPassword(strSaPassword))) {
    evEvent.Debug(tag, "MySqlInstance::getSaPassword failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlNTUser(strNTUser))) {
    evEvent.Debug(tag, "MySqlInstance::getNTUser failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlNTPassword(strNTPassword))) {
    evEvent.Debug(tag, "MySqlInstance::getNTPassword failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlSocketFile(strSocketFile))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlSocketFile failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlBinaryFilePath(strBinaryPath))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlBinaryFilePath failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlDataFilePath(strDataPath))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlDataFilePath failed, retCode=[%d]", rc);
  } else if (failed(instance.getMySqlConfigFile(strConfigFile))) {
    evEvent.Debug(tag, "MySqlInstance::getMySqlConfigFile failed, retCode=[%d]", rc);
  } else {
    // An instance without a binary-log index is an ordinary one; only the name is then a made-up one.
    if (failed(instance.getMySqlArchiveLogIndexFile(strArchiveLogIndexFile))) {
      evEvent.Debug(tag, "MySqlInstance::getMySqlArchiveLogIndexFile  failed, retCode=[%d]", rc);
      strArchiveLogIndexFile = "Dummy";
      rc = 0;
    }
    int autoDiscovery = 0;
    if (failed(instance.getDbAutoDiscovery(autoDiscovery))) {
      evEvent.Debug(tag, "MySqlInstance::getDbAutoDiscovery failed, retCode=[%d]", rc);
      return -1;
    }
    iDbAutoDiscovery = autoDiscovery;
    if (failed(instance.getMySqlSslCaPath(strSslCa))) {
      evEvent.Debug(tag, "MySqlInstance::getMySqlSslCaPath failed, retCode=[%d]", rc);
    } else if (failed(instance.getMySqlSslKey(strSslKey))) {
      evEvent.Debug(tag, "MySqlInstance::getMySqlSslKey failed, retCode=[%d]", rc);
    } else if (failed(instance.getMySqlSslCert(strSslCert))) {
      evEvent.Debug(tag, "MySqlInstance::getMySqlSslCert failed, retCode=[%d]", rc);
    }
  }
  return rc == 0 ? 0 : -1;
}

void GetMySqlInfo::updateUseSsl() {
  bUseSsl = !strSslCa.empty() || (!strSslKey.empty() && !strSslCert.empty());
}

/// What both modes take of a connection record.
void GetMySqlInfo::takeRecord(const MySqlServer& server) {
  strSaUser = server.GetSaUser();
  strSaPassword = server.GetPasswd();
  strSocketFile = server.GetSocketFile();
  strBinaryPath = server.GetBinaryPath();
  strSslCa = server.GetSslCa();
  strSslKey = server.GetSslKey();
  strSslCert = server.GetSslCert();
}

int GetMySqlInfo::openPassword(const char* tag) {
  if (orrery::mysql::openPassword(strSaPassword, strPassword)) return 0;
  evEvent.Debug(tag, "PW.decrypt error");
  return -1;
}

int GetMySqlInfo::Init(MySqlServer server) {
  constexpr const char* tag = "GetMySqlInfo::Init(MySqlServer)";
  return guarded(evEvent, tag, [&] {
    evEvent.Debug(tag, "socket [%s] user [%s]", server.GetSocketFile().c_str(), server.GetSaUser().c_str());
    if (bInitialized) DeleteConfFile();
    strConfigPwdFile.clear();
    forgetEarlierServer();
    takeRecord(server);
    updateUseSsl();
    strUnixUser = server.GetUnixUser();
    // Kept: no defaults file is written and no password is opened. A record's password is plain and its server is one
    // that the caller reaches without it; the removal of the file at the end then fails and is only logged.
    bInitialized = true;
    return 0;
  });
}

const char* orrery::mysql::version() noexcept {
  return ORRERY_VERSION;
}
