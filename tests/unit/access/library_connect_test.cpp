#include "orrery/platform/DZFile.h"

#include "access/library_fixture.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::platform::Status;
using orrery::test::LibraryModeTest;
using orrery::test::readFile;
using orrery::test::writeFile;
using LibraryConnect = LibraryModeTest;
using Texts = std::vector<std::string>;

constexpr const char* tag = "GetMySqlInfoExt::ConnectToDB";

TEST_F(LibraryConnect, OpensThePasswordAndGoesToTheSocket) {
  ASSERT_EQ(session_.Init(id()), 0);
  EXPECT_EQ(library_->inits, 0U) << "the server is asked by the first request";
  EXPECT_EQ(session_.PingServer(), 0);
  EXPECT_NE(library_.calls().find("connect localhost agent secret - 0 /run/db1.sock 0\n"), std::string::npos);
  EXPECT_EQ(session_.Init(ApplicationId(instance_, 0)), 0);
  EXPECT_EQ(session_.PingServer(), 0);
}

TEST_F(LibraryConnect, GoesToAnAddressOverTcpACloudDatabaseIncluded) {
  for (const long instance : {add("10.1.2.3:3307"), addCloud("10.1.2.4:3307")}) {
    GetMySqlInfoExt session;
    ASSERT_EQ(session.Init(instance), 0);
    EXPECT_EQ(session.strPort, "3307");
    EXPECT_EQ(session.PingServer(), 0);
    EXPECT_NE(library_.calls().find("connect " + session.strHost + " agent secret - 3307 - 0\n"), std::string::npos);
  }
}

TEST_F(LibraryConnect, RefusesBeforeALibraryIsLoaded) {
  ASSERT_EQ(session_.Init(addCloud("/run/cloud.sock")), -1);
  EXPECT_EQ(under(tag), Texts{"The socket is not in the format IP:Port MySqlInterface object cannot created. "});
  backend_.failures().failAlways("PasswordVault::open", Status::failure("locked"));
  EXPECT_EQ(session_.Init(id()), -1);
  EXPECT_EQ(under(tag).back(), "Error in decrypting the password for database server");
  EXPECT_FALSE(logged("Using Library : " + library_.path()));
  EXPECT_EQ(session_.PingServer(), -1);
}

TEST_F(LibraryConnect, NamesTheLibraryThatCannotBeLoaded) {
  for (const char* path : {"/nowhere/lib.so", "relative name that is no library"}) {
    backend_.log().clear();
    backend_.setSetting("MySQL", "sLibPath", path);
    EXPECT_EQ(session_.Init(id()), -1);
    EXPECT_TRUE(logged(std::string("Using Library : ") + path)) << "the setting is taken as it stands";
    EXPECT_EQ(under(tag),
              (Texts{"Log file error", "MySqlInterface::LoadAndInitialize() failed:" + session_.strErrorString + " "}));
    EXPECT_NE(session_.strErrorString.find(path), std::string::npos);
  }
}

TEST_F(LibraryConnect, LooksForTheLibraryByTheKindOfAddress) {
  backend_.setHome("/agent");
  const struct {
    const char *socket, *path;
  } table[] = {
      {"/run/db.sock", "/agent/libmysqlclient.so"},
      {"", "/agent/libmysqlclient.so"},
      {"10.0.0.1:3306", CKyPath::IsFile("/usr/lib64/mysql/libmysqlclient.so") ? "/usr/lib64/mysql/libmysqlclient.so"
                                                                              : "/agent/libmysqlclient.so"}};
  for (const auto& row : table) {
    session_.strSocketFile = row.socket;
    EXPECT_EQ(session_.GetLibraryPath(), row.path);
  }
  backend_.setSetting("MySQL", "sLibPath", "");
  EXPECT_EQ(session_.Init(id()), -1);
  EXPECT_TRUE(logged("Using Library : /agent/libmysqlclient.so")) << "an empty setting is none";
}

TEST_F(LibraryConnect, ASecondTimeClosesTheFirstConnection) {
  ASSERT_EQ(session_.Init(id()), 0);
  ASSERT_EQ(session_.PingServer(), 0);
  ASSERT_EQ(session_.ConnectToDB(), 0);
  EXPECT_EQ(library_->closes, 1U);
  ASSERT_EQ(session_.PingServer(), 0);
  backend_.failures().failAlways("PasswordVault::open", Status::failure("locked"));
  EXPECT_EQ(session_.ConnectToDB(), -1);
  EXPECT_EQ(session_.PingServer(), -1) << "nothing may go to the earlier server";
}

TEST_F(LibraryConnect, AnUnknownInstanceIsNeitherTheEarlierOneNorTheMachinesDefault) {
  EXPECT_EQ(session_.Init(99999L), -1);
  ASSERT_EQ(session_.Init(id()), 0);
  EXPECT_EQ(session_.Init(99999L), -1);
  EXPECT_EQ(failure(), "-1 the instance has no socket or address");
  EXPECT_EQ(session_.PingServer(), -1);
  EXPECT_EQ(library_->inits, 0U);
}

TEST_F(LibraryConnect, SettingsThatCannotBeReadAreNoReasonForPlainText) {
  backend_.setSetting("MySQL", "bSSLEnabled", "1");
  backend_.setSetting("MySQL", "sSslCa", "/etc/hostname");
  for (const char* key : {"bSSLEnabled", "sSslCa", "sSslKey", "sSslCert"}) {
    backend_.failures().failWhen("Settings::read", key, Status::failure("torn"));
    GetMySqlInfoExt session;
    EXPECT_EQ(session.Init(id()), -1) << key;
    EXPECT_EQ(session.strErrorString, "the settings for TLS cannot be read: torn");
    backend_.failures().clear();
  }
}

TEST_F(LibraryConnect, ARecordAfterAnInstanceLeavesNothingOfTheInstance) {
  ASSERT_EQ(session_.Init(id()), 0);
  MySqlServer record;
  record.SetSocketFile("/run/r.sock");
  ASSERT_EQ(session_.Init(record), 0);
  EXPECT_TRUE(backend_.leftovers().empty()) << "the instance's password is not this server's";
  EXPECT_FALSE(session_.bInitialized);
}

TEST_F(LibraryConnect, ARecordsPasswordIsPlainAndItsAddressIsTakenApart) {
  MySqlServer record;
  record.SetSaUser("root");
  record.SetPasswd("sealed:plain");
  record.SetSocketFile("db.example.org:3310");
  record.SetBinaryPath("/bin");
  ASSERT_EQ(session_.Init(record), 0);
  EXPECT_EQ(session_.strHost + " " + session_.strPort + " " + session_.strBinaryPath, "db.example.org 3310 /bin");
  EXPECT_EQ(session_.PingServer(), 0);
  EXPECT_NE(library_.calls().find("connect db.example.org root sealed:plain - 3310 - 0\n"), std::string::npos);

  record.SetSocketFile("/run/r.sock");
  ASSERT_EQ(session_.Init(record), 0);
  EXPECT_EQ(session_.strHost + session_.strPort, "");
  EXPECT_EQ(session_.PingServer(), 0);
  EXPECT_NE(library_.calls().find("connect localhost root sealed:plain - 0 /run/r.sock 0\n"), std::string::npos);

  backend_.setSetting("MySQL", "sLibPath", "/nowhere.so");
  EXPECT_EQ(session_.Init(record), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::Init(MySqlServer)"),
            Texts{"MySqlInterface::LoadAndInitialize() failed:" + session_.strErrorString});
  record.SetSslCa("/nowhere/ca.pem");
  EXPECT_EQ(session_.Init(record), -1);
  EXPECT_EQ(under("GetMySqlInfoExt::Init(MySqlServer)").back(), "sslConnect failed : ");
  EXPECT_EQ(session_.iErrorCode, 0x57000066);
}

class LibraryConnectTls : public LibraryConnect {
 protected:
  LibraryConnectTls() {
    for (const char* name : {"ca", "key", "cert"}) writeFile(files_ / name, "");
    library_->cipher = "X";
  }
  /// Connects with these files, named in the folder; "-" stands for none.
  int connect(const std::string& ca, const std::string& key, const std::string& cert) {
    const auto path = [&](const std::string& name) { return name == "-" ? std::string() : files_ / name; };
    auto all = properties();
    all[property::sslCa] = path(ca);
    all[property::sslKey] = path(key);
    all[property::sslCert] = path(cert);
    return session_.Init(static_cast<long>(backend_.addInstance("tls" + std::to_string(++count_), all)));
  }
  std::string appended() { return readFile(session_.strConfigPwdFile).substr(untouched.size()); }

  const std::string untouched = "[client]\npassword='secret'\n";
  orrery::test::TemporaryDirectory files_;
  int count_ = 0;
};

TEST_F(LibraryConnectTls, IsAskedForByTheFilesAloneAndAppendedForClients) {
  const auto line = [&](const char* option, const char* name) {
    return std::string(option) + "=\"" + (files_ / name) + "\"\n";
  };
  const struct {
    const char *ca, *key, *cert;
    bool configured;
    std::string appended;
  } table[] = {
      {"ca", "key", "cert", true, line("ssl-ca", "ca") + line("ssl-key", "key") + line("ssl-cert", "cert")},
      {"ca", "-", "-", true, line("ssl-ca", "ca")},
      {"-", "key", "cert", true, line("ssl-key", "key") + line("ssl-cert", "cert")},
      {"ca", "key", "-", true, line("ssl-ca", "ca") + line("ssl-key", "key")},
      {"-", "key", "-", false, ""},
      {"-", "-", "cert", false, ""},
      {"-", "-", "-", false, ""},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.ca + std::string(" ") + row.key + " " + row.cert);
    backend_.log().clear();
    ASSERT_EQ(connect(row.ca, row.key, row.cert), 0);
    EXPECT_EQ(session_.bUseSsl, row.configured);
    EXPECT_EQ(appended(), row.appended);
    EXPECT_EQ(logged("SSL not configured for the server."), !row.configured);
    EXPECT_EQ(session_.PingServer(), 0);
    EXPECT_EQ(library_.calls().find("ssl_set ") == 0, row.configured);
  }
}

TEST_F(LibraryConnectTls, TheFirstMissingFileStopsItAndNothingIsAppended) {
  const struct {
    const char *ca, *key, *cert;
    int code;
    const char* kind;
    const char* missing;
  } table[] = {
      {"noca", "nokey", "nocert", 0x57000066, "SSL-CA", "noca"},
      {"ca", "nokey", "nocert", 0x57000068, "SSL-Key", "nokey"},
      {"ca", "key", "nocert", 0x57000067, "SSL-Cert", "nocert"},
      {"-", "nokey", "cert", 0x57000068, "SSL-Key", "nokey"},
  };
  for (const auto& row : table) {
    session_.SetErrorStatus(1, "earlier");
    EXPECT_EQ(connect(row.ca, row.key, row.cert), -1);
    EXPECT_EQ(session_.iErrorCode, row.code);
    EXPECT_EQ(session_.strErrorString, "");
    EXPECT_EQ(under("GetMySqlInfoExt::sslConnect").back(),
              row.kind + std::string(" [") + (files_ / row.missing) + "] not found on [testclient].");
    EXPECT_EQ(under(tag).back(), "sslConnect failed : ");
    EXPECT_EQ(readFile(session_.strConfigPwdFile), untouched);
    EXPECT_EQ(session_.PingServer(), -1);
  }
}

TEST_F(LibraryConnectTls, TheSettingsFilesReplaceTheInstances) {
  backend_.setSetting("MySQL", "bSSLEnabled", "1");
  backend_.setSetting("MySQL", "sSslCa", files_ / "ca");
  ASSERT_EQ(connect("-", "key", "cert"), 0);
  EXPECT_TRUE(logged(" SSL regkey Enabled, looking for ssl params."));
  EXPECT_EQ(session_.strSslCa, files_ / "ca");
  EXPECT_EQ(session_.strSslKey + session_.strSslCert, "") << "also with nothing";
  EXPECT_EQ(under("GetMySqlInfoExt::sslConnect"),
            (Texts{" SSL regkey Enabled, looking for ssl params.",
                   " Config password file [" + session_.strConfigPwdFile + "] ",
                   " SSL CA [" + (files_ / "ca") + "] [ssl-ca=\"" + (files_ / "ca") + "\"]"}));
  backend_.setSetting("MySQL", "bSSLEnabled", "0");
  ASSERT_EQ(connect("-", "key", "cert"), 0);
  EXPECT_EQ(session_.strSslKey, files_ / "key");
}

TEST_F(LibraryConnectTls, KeptADefaultsFileThatIsNotThereDoesNotStopTheConnection) {
  MySqlServer record;
  record.SetSslCa(files_ / "ca");
  ASSERT_EQ(session_.Init(record), 0);
  EXPECT_EQ(session_.strConfigPwdFile, "");
  EXPECT_EQ(session_.PingServer(), 0);
}

}  // namespace
