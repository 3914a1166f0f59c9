#include <memory>

#include <gtest/gtest.h>

#include "session/session_fixture.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::platform::Status;
using Initialise = orrery::test::SessionTest;

TEST_F(Initialise, TakesEveryPropertyIntoItsMemberAndStopsAtOneThatCannotBeRead) {
  using Member = std::string GetMySqlInfo::*;
  const struct {
    const char* key;
    Member member;
    const char* value;
    const char* reader;
  } table[] = {
      {property::unixUser, &GetMySqlInfo::strUnixUser, "", "getMySqlUnixUser"},
      {property::saUser, &GetMySqlInfo::strSaUser, "agent", "getSaUser"},
      {property::version, &GetMySqlInfo::strVersion, "10.11", "getMySqlVersion"},
      {property::saPassword, &GetMySqlInfo::strSaPassword, "sealed:secret", "getSaPassword"},
      {property::ntUser, &GetMySqlInfo::strNTUser, "ntu ", "getNTUser"},
      {property::ntPassword, &GetMySqlInfo::strNTPassword, "ntp", "getNTPassword"},
      {property::socketFile, &GetMySqlInfo::strSocketFile, "/run/db1.sock", "getMySqlSocketFile"},
      {property::binaryPath, &GetMySqlInfo::strBinaryPath, "/opt/db/bin", "getMySqlBinaryFilePath"},
      {property::dataPath, &GetMySqlInfo::strDataPath, "/var/db1", "getMySqlDataFilePath"},
      {property::configFile, &GetMySqlInfo::strConfigFile, "/etc/db1.cnf", "getMySqlConfigFile"},
      {property::autoDiscovery, nullptr, "1", "getDbAutoDiscovery"},
      {property::sslCa, &GetMySqlInfo::strSslCa, "/ca", "getMySqlSslCaPath"},
      {property::sslKey, &GetMySqlInfo::strSslKey, "/key", "getMySqlSslKey"},
      {property::sslCert, &GetMySqlInfo::strSslCert, "/cert", "getMySqlSslCert"},
  };
  auto all = properties();
  for (const auto& row : table) all[row.key] = row.value;
  instance_ = backend_.addInstance("all", all);
  int rc = -1;
  GetMySqlInfo session(id(), rc);
  ASSERT_EQ(rc, 0);
  EXPECT_TRUE(session.bInitialized && session.bUseSsl);
  EXPECT_EQ(session.strPassword, "secret");
  EXPECT_EQ(session.strArchiveLogIndexFile, "/var/db1/binlog.index");
  EXPECT_EQ(session.iDbAutoDiscovery, 1);
  EXPECT_EQ(session.ulInstanceId, instance_);
  EXPECT_NE(session.ulClientId, 0U);
  EXPECT_EQ(session.strHost, "");
  EXPECT_EQ(session.iSessionMode, 2);
  for (const auto& row : table) {
    SCOPED_TRACE(row.key);
    EXPECT_TRUE(row.member == nullptr || session.*row.member == row.value);
    backend_.failures().clear();
    backend_.failures().failWhen("Inventory::readProperty", row.key, Status::failure("no"));
    GetMySqlInfo stopped;
    EXPECT_EQ(stopped.Init(id()), -1);
    EXPECT_FALSE(stopped.bInitialized);
    EXPECT_EQ(backend_.log().texts().back(), std::string("MySqlInstance::") + row.reader + " failed, retCode=[1]")
        << "the first failure ends it";
  }
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
  const long overTcp = add("10.0.0.5:3306");
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

using CloudInstance = Initialise;

TEST_F(CloudInstance, UsesTheProxyMachinesClients) {
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(addCloud("10.1.1.1:3306")), 0);
  EXPECT_EQ(session.strBinaryPath, "/proxy/bin");
}

TEST_F(CloudInstance, NeedsAnAddressAndADirectory) {
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(addCloud("/run/x.sock")), -1);
  EXPECT_EQ(backend_.log().texts().back(), "The socket is not in the format IP:Port");

  const long id = addCloud("10.1.1.2:3306", "");
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
  const unsigned long cloud = (addCloud("10.1.1.3:3306"), cloudClient_);
  const unsigned long other = (addCloud("10.1.1.4:3306"), cloudClient_);
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
