// Data paths of a real server that keeps nearly everything outside its data directory.

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "integration/real_session.h"
#include "support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using orrery::mysql::FurtherPath;
using orrery::test::MariaDbSandbox;
using orrery::test::TemporaryDirectory;
using testing::Pair;
using Map = std::map<std::string, std::string>;

class Paths : public orrery::test::RealSessionTest {
 protected:
  static void SetUpTestSuite() {
    far_ = std::make_unique<TemporaryDirectory>();
    server_ = std::make_unique<MariaDbSandbox>();
    server_->execute("CREATE DATABASE shop; CREATE DATABASE moved; CREATE TABLE moved.t (x INT) ENGINE=InnoDB");
    server_->stop();
    for (const char* name : {"undo", "redo", "aria", "log", "tables"}) directory(name);
    const fs::path data = server_->dataDirectory();
    fs::rename(data / "ib_logfile0", far("redo/ib_logfile0"));
    for (const char* name : {"aria_log.00000001", "aria_log_control"}) fs::rename(data / name, far("aria/") + name);
    fs::rename(data / "moved", far("moved"));
    link(far("moved"), data / "moved");
    link("../nowhere", data / "dangling");
    fs::rename(data, far("data"));
    link(far("data"), data);
    std::ofstream(server_->directory() + "/server.cnf", std::ios::app)
        << "innodb_data_home_dir=\ninnodb_data_file_path=ibdata1:12M;" << far("ibdata2") << ":4M:autoextend\n"
        << "innodb_undo_directory=" << far("undo") << "\ninnodb_log_group_home_dir=" << far("redo")
        << "\nlog_bin=" << far("log/bin") << "\nrelay_log=" << far("log/relay") << "\naria_log_dir_path=" << far("aria")
        << '\n';
    ASSERT_EQ(::chown(far_->path().c_str(), account().pw_uid, account().pw_gid), 0) << "the server makes ibdata2 here";
    server_->start();
    const std::string here = " DATA DIRECTORY='" + far("tables") + "'";
    server_->execute("CREATE TABLE shop.inno (x INT) ENGINE=InnoDB" + here + "; CREATE TABLE shop.inside (x INT);" +
                     "CREATE TABLE shop.isam (x INT) ENGINE=MyISAM" + here + " INDEX DIRECTORY='" + far("log") + "';" +
                     "CREATE TABLE shop.part (x INT) ENGINE=InnoDB PARTITION BY LIST (x) (PARTITION a VALUES IN (1)" +
                     here + ", PARTITION b VALUES IN (2))");
  }
  static void TearDownTestSuite() {
    server_.reset();
    far_.reset();
  }

  static std::string far(const std::string& name) { return fs::canonical(far_->path()).string() + "/" + name; }
  static const passwd& account() { return *::getpwnam(server_->account().c_str()); }
  static void directory(const std::string& name) {
    ASSERT_EQ(::mkdir(far(name).c_str(), 0711), 0);
    ASSERT_EQ(::chown(far(name).c_str(), account().pw_uid, account().pw_gid), 0);
  }
  static void link(const std::string& target, const std::string& path) {
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0);
    ASSERT_EQ(::lchown(path.c_str(), account().pw_uid, account().pw_gid), 0);
  }
  static std::string ownerText() {
    return "usergroup:" + server_->account() + "#" + ::getgrgid(account().pw_gid)->gr_name + ";";
  }
  static std::string reported() { return server_->dataDirectory() + "/"; }
  static std::string stored(const GetMySqlInfo& session) {
    std::string value;
    EXPECT_EQ(session.pMySqlInstance->getMySqlDataDir(value), 0);
    return value;
  }
  static std::vector<std::pair<std::string, std::string>> furtherOf(GetMySqlInfo& session) {
    std::vector<FurtherPath> found;
    EXPECT_EQ(session.findFurtherPaths(found), 0) << session.strErrorString;
    EXPECT_EQ(session.iErrorCode, 0);
    std::vector<std::pair<std::string, std::string>> places;
    for (const FurtherPath& path : found) {
      EXPECT_TRUE(fs::exists(path.path)) << path.path;
      places.emplace_back(path.kind, path.path);
    }
    return places;
  }

  static inline std::unique_ptr<TemporaryDirectory> far_;
  static inline std::unique_ptr<MariaDbSandbox> server_;
};

TEST_F(Paths, OfCommandModeAreTheDataDirectoryAloneAndItsOwnerGoesToTheInventory) {
  const auto session = sessionFor(propertiesOf(*server_));
  Map found;
  ASSERT_EQ(session->FindAllDatabasePaths(found), 0) << session->strErrorString;
  EXPECT_THAT(found, testing::ElementsAre(Pair("datadir", reported())))
      << "kept: a server that has InnoDB gives no paths of InnoDB";
  EXPECT_EQ(stored(*session), "datadir:" + server_->dataDirectory() + ";" + ownerText());
}

TEST_F(Paths, OfLibraryModeAreThoseOfInnoDbAndTheLinksAndTheInventoryIsLeftAlone) {
  const auto session = librarySessionFor(propertiesOf(*server_));
  ASSERT_EQ(session->FindAllDatabasePaths(), 0) << session->strErrorString;
  const std::string dangling = far("nowhere");
  const std::string moved = far("moved");
  EXPECT_THAT(session->dataPaths(),
              testing::UnorderedElementsAre(
                  Pair("datadir", reported()), Pair("datadirlink", far("data")),
                  Pair("databaselinks", testing::AnyOf(moved + "," + dangling + ",", dangling + "," + moved + ",")),
                  Pair("innodb_data_home_dir", ""), Pair(far("ibdata2"), far("ibdata2")),
                  Pair("innodb_log_group_home_dir", far("redo")),
                  Pair("datadirUserPath", "datadir:" + reported() + ";" + ownerText())));
  EXPECT_EQ(stored(*session), "");
}

TEST_F(Paths, FurtherOnesAreWhatTheModesMapDoesNotNameAndLinkedDatabases) {
  const auto command = sessionFor(propertiesOf(*server_));
  EXPECT_THAT(furtherOf(*command),
              testing::ElementsAre(Pair("undo", far("undo")), Pair("redo_log", far("redo")),
                                   Pair("tablespace", far("ibdata2")), Pair("tablespace", far("tables/shop/inno.ibd")),
                                   Pair("tablespace", far("tables/shop/part#P#a.ibd")), Pair("database", far("moved")),
                                   Pair("table", far("log/isam.MYI")), Pair("table", far("tables/isam.MYD")),
                                   Pair("binary_log", far("log")), Pair("relay_log", far("log")),
                                   Pair("aria_log", far("aria"))));
  const auto library = librarySessionFor(propertiesOf(*server_));
  EXPECT_THAT(furtherOf(*library),
              testing::ElementsAre(Pair("undo", far("undo")), Pair("tablespace", far("tables/shop/inno.ibd")),
                                   Pair("tablespace", far("tables/shop/part#P#a.ibd")), Pair("database", far("moved")),
                                   Pair("table", far("log/isam.MYI")), Pair("table", far("tables/isam.MYD")),
                                   Pair("binary_log", far("log")), Pair("relay_log", far("log")),
                                   Pair("aria_log", far("aria"))));
}

TEST_F(Paths, OfAnOwnerWithoutANameAreOwnedByNumbers) {
  if (::geteuid() != 0) GTEST_SKIP() << "ONLY ROOT can give files away: run ./check as root";
  constexpr uid_t nobody = 48123;
  ASSERT_EQ(::chown(far("data").c_str(), nobody, account().pw_gid), 0);
  const std::string owner = "usergroup:48123#" + std::to_string(account().pw_gid) + ";";
  const auto command = sessionFor(propertiesOf(*server_));
  Map found;
  EXPECT_EQ(command->FindAllDatabasePaths(found), 0);
  EXPECT_EQ(stored(*command), "datadir:" + server_->dataDirectory() + ";" + owner);
  const auto library = librarySessionFor(propertiesOf(*server_));
  EXPECT_EQ(library->FindAllDatabasePaths(), 0);
  EXPECT_EQ(library->dataPaths().at("datadirUserPath"), "datadir:" + reported() + ";" + owner);
  ASSERT_EQ(::chown(far("data").c_str(), account().pw_uid, account().pw_gid), 0);
}

}  // namespace
