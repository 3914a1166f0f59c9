#include <memory>

#include <gtest/gtest.h>

#include "session/session_fixture.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::platform::Status;
using Initialise = orrery::test::SessionTest;

TEST_F(Initialise, TakesEveryPropertyIntoItsMember) {
  auto all = properties();
  all[property::ntUser] = "ntu ";
  all[property::ntPassword] = "ntp";
  all[property::sslCa] = "/ca";
  all[property::sslKey] = "/key";
  all[property::sslCert] = "/cert";
  instance_ = backend_.addInstance("all", all);
  int rc = -1;
  GetMySqlInfo session(id(), rc);
  ASSERT_EQ(rc, 0);
  EXPECT_TRUE(session.bInitialized);
  EXPECT_EQ(session.strSaUser, "agent");
  EXPECT_EQ(session.strSaPassword, "sealed:secret");
  EXPECT_EQ(session.strPassword, "secret");
  EXPECT_EQ(session.strVersion, "10.11");
  EXPECT_EQ(session.strSocketFile, "/run/db1.sock");
  EXPECT_EQ(session.strBinaryPath, "/opt/db/bin");
  EXPECT_EQ(session.strDataPath, "/var/db1");
  EXPECT_EQ(session.strConfigFile, "/etc/db1.cnf");
  EXPECT_EQ(session.strArchiveLogIndexFile, "/var/db1/binlog.index");
  EXPECT_EQ(session.iDbAutoDiscovery, 1);
  EXPECT_EQ(session.ulInstanceId, instance_);
  EXPECT_NE(session.ulClientId, 0U);
  EXPECT_EQ(session.strHost, "");
  EXPECT_EQ(session.iSessionMode, 2);
  EXPECT_EQ(session.strNTUser + session.strNTPassword, "ntu ntp");
  EXPECT_EQ(session.strSslCa + session.strSslKey + session.strSslCert, "/ca/key/cert");
  EXPECT_TRUE(session.bUseSsl);
}

TEST_F(Initialise, EveryRoadLeadsToTheSameSession) {
  const ApplicationId application(instance_, 0);
  int rc = -1;
  GetMySqlInfo byApplication(application, rc);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(byApplication.appId.getInstanceId(), instance_);
  GetMySqlInfo later;
  EXPECT_EQ(later.Init(application), 0);
  EXPECT_EQ(later.Init(id()), 0) << "a second time";
  MySqlInstance entity(instance_);
  GetMySqlInfo byEntity;
  EXPECT_EQ(byEntity.Init(&entity), 0);
  EXPECT_EQ(byEntity.pMySqlInstance, nullptr) << "an entity given to Init stays the caller's";
  for (const GetMySqlInfo* session : {&byApplication, &later, &byEntity}) EXPECT_EQ(session->strPassword, "secret");
}

TEST_F(Initialise, AnUnreadablePropertyStopsItWithItsOwnMessage) {
  const struct {
    const char* key;
    const char* message;
  } table[] = {
      {property::unixUser, "MySqlInstance::getMySqlUnixUser failed, retCode=[1]"},
      {property::saUser, "MySqlInstance::getSaUser failed, retCode=[1]"},
      {property::version, "MySqlInstance::getMySqlVersion failed, retCode=[1]"},
      {property::saPassword, "MySqlInstance::getSaPassword failed, retCode=[1]"},
      {property::ntUser, "MySqlInstance::getNTUser failed, retCode=[1]"},
      {property::ntPassword, "MySqlInstance::getNTPassword failed, retCode=[1]"},
      {property::socketFile, "MySqlInstance::getMySqlSocketFile failed, retCode=[1]"},
      {property::binaryPath, "MySqlInstance::getMySqlBinaryFilePath failed, retCode=[1]"},
      {property::dataPath, "MySqlInstance::getMySqlDataFilePath failed, retCode=[1]"},
      {property::configFile, "MySqlInstance::getMySqlConfigFile failed, retCode=[1]"},
      {property::autoDiscovery, "MySqlInstance::getDbAutoDiscovery failed, retCode=[1]"},
      {property::sslCa, "MySqlInstance::getMySqlSslCaPath failed, retCode=[1]"},
      {property::sslKey, "MySqlInstance::getMySqlSslKey failed, retCode=[1]"},
      {property::sslCert, "MySqlInstance::getMySqlSslCert failed, retCode=[1]"},
  };
  for (const auto& row : table) {
    backend_.failures().clear();
    backend_.log().clear();
    backend_.failures().failWhen("Inventory::readProperty", row.key, Status::failure("no"));
    GetMySqlInfo session;
    EXPECT_EQ(session.Init(id()), -1) << row.key;
    EXPECT_FALSE(session.bInitialized);
    EXPECT_EQ(backend_.log().texts().back(), row.message) << "the first failure ends it";
  }
}

TEST_F(Initialise, GoesOnWithoutABinaryLogIndex) {
  backend_.failures().failWhen("Inventory::readProperty", property::archiveLogIndex, Status::failure("no"));
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(id()), 0);
  EXPECT_EQ(session.strArchiveLogIndexFile, "Dummy");
  EXPECT_TRUE(logged("MySqlInstance::getMySqlArchiveLogIndexFile  failed, retCode=[1]"));
}

TEST_F(Initialise, OtherFailuresAreToldApart) {
  const struct {
    const char* call;
    std::size_t nth;
    std::string message;
  } table[] = {
      {"Inventory::findInstance", 1, "new MySqlInstance (" + std::to_string(id()) + ") returned NULL"},
      {"Inventory::findInstance", 2,
       "Unable to fetch client ID for instance ID [" + std::to_string(id()) + "] retCode [1]."},
      {"PasswordVault::open", 1, "PW.decrypt error"},
      {"Directories::temporary", 1, "CreateConfigPwdFile failed"},
  };
  for (const auto& row : table) {
    backend_.failures().clear();
    backend_.log().clear();
    backend_.failures().failNth(row.call, row.nth, Status::failure("no"));
    GetMySqlInfo session;
    EXPECT_EQ(session.Init(id()), -1) << row.call;
    EXPECT_FALSE(session.bInitialized);
    EXPECT_EQ(backend_.log().texts().back(), row.message);
  }
  MySqlInstance none(0);
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(&none), -1);
  EXPECT_TRUE(backend_.log().contains("retCode=[2]")) << "an instance that does not exist has no properties";
  EXPECT_EQ(session.Init(ApplicationId()), -1);
  EXPECT_EQ(backend_.log().texts().back(), "ApplicationId::getInstance failed");
  EXPECT_EQ(session.Init(static_cast<MySqlInstance*>(nullptr)), -1);
}

TEST_F(Initialise, UsesTlsForACaOrForAKeyWithItsCertificate) {
  const struct {
    const char *ca, *key, *cert;
    bool tls;
  } table[] = {{"", "", "", false},     {"ca", "", "", true},      {"", "key", "", false},
               {"", "", "cert", false}, {"", "key", "cert", true}, {"ca", "key", "", true}};
  for (const auto& row : table) {
    MySqlServer server;
    server.SetSslCa(row.ca);
    server.SetSslKey(row.key);
    server.SetSslCert(row.cert);
    server.SetUnixUser("mysql");
    GetMySqlInfo session;
    EXPECT_EQ(session.Init(server), 0);
    EXPECT_EQ(session.bUseSsl, row.tls) << row.ca << row.key << row.cert;

    auto properties = this->properties();
    properties[property::sslCa] = row.ca;
    properties[property::sslKey] = row.key;
    properties[property::sslCert] = row.cert;
    const auto instance = backend_.addInstance("tls" + std::string(row.ca) + row.key + row.cert, properties);
    GetMySqlInfo fromInstance;
    EXPECT_EQ(fromInstance.Init(static_cast<long>(instance)), 0);
    EXPECT_EQ(fromInstance.bUseSsl, row.tls);
  }
}

TEST_F(Initialise, ASecondServerTakesNothingOverFromTheFirst) {
  auto properties = this->properties();
  properties[property::socketFile] = "10.0.0.5:3306";
  const long overTcp = static_cast<long>(backend_.addInstance("tcp", properties));
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(overTcp), 0);
  ASSERT_EQ(session.Init(id()), 0);
  EXPECT_EQ(session.GetConnectMethod(), " --socket=/run/db1.sock");
  ASSERT_EQ(session.Init(overTcp), 0);
  MySqlServer server;
  server.SetSocketFile("/run/other.sock");
  ASSERT_EQ(session.Init(server), 0);
  EXPECT_EQ(session.GetConnectMethod(), " --socket=/run/other.sock");
  EXPECT_EQ(session.strConfigPwdFile, "") << "nor its password";
}

TEST_F(Initialise, KeepsAnEarlierInstanceUntilTheSessionEnds) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  const MySqlInstance* earlier = session.pMySqlInstance;
  ASSERT_EQ(session.Init(static_cast<long>(backend_.addInstance("second", properties()))), 0);
  EXPECT_EQ(earlier->getInstanceId(), instance_) << "a caller may still hold its address";
}

TEST_F(Initialise, FromARecordWritesNoFileAndOpensNoPassword) {
  MySqlServer server;
  server.SetSaUser("root");
  server.SetPasswd("plain");
  server.SetSocketFile("10.0.0.5:3306");
  {
    GetMySqlInfo session;
    EXPECT_EQ(session.Init(server), 0);
    EXPECT_TRUE(session.bInitialized);
    EXPECT_EQ(session.strSaPassword, "plain");
    EXPECT_EQ(session.strPassword + session.strConfigPwdFile + session.strHost, "");
    EXPECT_EQ(backend_.failures().calls("PasswordVault::open"), 0U);
  }
  EXPECT_TRUE(logged("unlink of [] file failed with errno=[2]")) << "the end of such a session only logs that";
}

class CloudInstance : public Initialise {
 protected:
  long add(const std::string& socket) {
    orrery::platform::Id client = 0;
    EXPECT_TRUE(backend_.services()->inventory->putClient("cloud" + socket, 1, client).ok());
    client_ = client;
    auto properties = this->properties();
    properties[property::socketFile] = socket;
    return static_cast<long>(backend_.addInstance(client, "c" + socket, properties));
  }
  orrery::platform::Id client_ = 0;
};

TEST_F(CloudInstance, UsesTheProxyMachinesClients) {
  const long id = add("10.1.1.1:3306");
  backend_.setProxyDirectory(client_, 104, "10.11", "/proxy/bin");
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(id), 0);
  EXPECT_EQ(session.strBinaryPath, "/proxy/bin");
}

TEST_F(CloudInstance, NeedsAnAddressAndADirectory) {
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(add("/run/x.sock")), -1);
  EXPECT_EQ(backend_.log().texts().back(), "The socket is not in the format IP:Port");

  const long id = add("10.1.1.2:3306");
  const std::string failed = "Error: Unable to fetch DB Install Directory on proxy machine";
  EXPECT_EQ(session.Init(id), -1) << "no directory is known";
  EXPECT_EQ(backend_.log().texts().back(), failed);

  backend_.failures().failNth("ProxyDirectory::installDirectory", 1, Status::failure("broken"));
  EXPECT_EQ(session.Init(id), -1);
  EXPECT_TRUE(logged("Response error code [1] , error string [broken]"));
  backend_.failures().failNth("ProxyDirectory::installDirectory", 1, Status::unavailable("away"));
  EXPECT_EQ(session.Init(id), -1);
  EXPECT_TRUE(logged("UlmBackup::getProxyDBInstallDir failed"));
  backend_.failures().failAlways("Inventory::ownClient", Status::failure("gone"));
  backend_.failures().failAlways("Inventory::findClient", Status::failure("gone"));
  EXPECT_EQ(session.Init(id), -1);
  EXPECT_TRUE(logged("Unable to get proxy Client ID, error code [1]"));
}

TEST_F(CloudInstance, LookUpIsRememberedForOneClientFailuresIncluded) {
  const unsigned long cloud = (add("10.1.1.3:3306"), client_);
  const unsigned long other = (add("10.1.1.4:3306"), client_);
  GetMySqlInfo session;
  EXPECT_TRUE(session.IsCloudDBInstance(cloud));
  const auto asked = backend_.failures().calls("Inventory::findClient");
  EXPECT_TRUE(session.IsCloudDBInstance(cloud));
  EXPECT_EQ(backend_.failures().calls("Inventory::findClient"), asked);

  backend_.failures().failNth("Inventory::findClient", 1, Status::failure("away"));
  EXPECT_FALSE(session.IsCloudDBInstance(other));
  EXPECT_TRUE(
      logged("Error : Failed to get Client App type for client [" + std::to_string(other) + "] , ErrorCode [1] "));
  EXPECT_FALSE(session.IsCloudDBInstance(other)) << "kept: the failure is the answer until another client is asked for";
  EXPECT_TRUE(session.IsCloudDBInstance(cloud));
  EXPECT_TRUE(session.IsCloudDBInstance(other));
}

}  // namespace
