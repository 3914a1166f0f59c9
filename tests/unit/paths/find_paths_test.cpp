// Data paths of scripted servers, whose directory is a folder of the test.

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "access/library_fixture.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

namespace property = platform::property;
using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;
using Map = std::map<std::string, std::string>;

constexpr const char* askDataDir = "show variables like 'datadir';";
constexpr const char* askSupport = "select support  from information_schema.engines where engine='InnoDB';";
constexpr const char* askHome = "show variables like 'innodb_data_home_dir';";
constexpr const char* askFiles = "show variables like 'innodb_data_file_path';";
constexpr const char* askLogs = "show variables like 'innodb_log_group_home_dir';";

class CommandModePaths : public SessionTest {
 protected:
  CommandModePaths() {
    writeFile(bin_ / "mysql",
              "#!/bin/sh\nwhile [ \"$1\" != -e ]; do shift; done\n[ -f \"" + answers_.path() +
                  "/$2\" ] && exec cat \"" + answers_.path() + "/$2\"\necho 'ERROR 2002 (HY000): gone' >&2\nexit 1\n",
              0755);
    answer(askDataDir, "datadir\t" + data_.path() + "/\n");
    answer(askSupport, "NO");
    answer(askHome, "innodb_data_home_dir\t\n");
    answer(askFiles, "innodb_data_file_path\tibdata1:12M;/data2/ibdata2:1G:autoextend\n");
    answer(askLogs, "innodb_log_group_home_dir\t/redo\n");
    auto values = properties();
    values[property::binaryPath] = bin_.path();
    EXPECT_EQ(session_.Init(static_cast<long>(backend_.addInstance("scripted", values))), 0);
  }
  void answer(const std::string& statement, const std::string& output) const {
    writeFile(answers_ / statement, output);
  }
  std::string stored() {
    std::string value;
    EXPECT_EQ(session_.pMySqlInstance->getMySqlDataDir(value), 0);
    return value;
  }

  TemporaryDirectory bin_, answers_, data_;
  GetMySqlInfo session_;
  Map found_{{"old", "gone"}};
};

TEST_F(CommandModePaths, KeptInnoDbIsReadWhereTheWholeAnswerIsNoAndNowhereElse) {
  for (const char* support : {"NO\n", "YES\n", "DEFAULT\n", ""}) {
    answer(askSupport, support);
    EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
    EXPECT_THAT(found_, ElementsAre(Pair("datadir", data_.path() + "/"))) << support;
  }
  answer(askSupport, "NO");
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
  EXPECT_THAT(found_, UnorderedElementsAre(Pair("datadir", data_.path() + "/"), Pair("innodb_data_home_dir", ""),
                                           Pair("/data2/ibdata2", "/data2/ibdata2"),
                                           Pair("innodb_log_group_home_dir", "/redo")));
  EXPECT_THAT(stored(), testing::StartsWith("datadir:" + data_.path() + ";usergroup:"));
}

TEST_F(CommandModePaths, OfEmptyAnswersAreEmpty) {
  for (const char* statement : {askHome, askFiles, askLogs}) answer(statement, "");
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
  EXPECT_THAT(found_, UnorderedElementsAre(Pair("datadir", data_.path() + "/"), Pair("innodb_data_home_dir", ""),
                                           Pair("innodb_log_group_home_dir", "")));
  answer(askFiles, "innodb_data_file_path\t\n");
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
  EXPECT_TRUE(logged("innodb_data_file_path empty"));
}

TEST_F(CommandModePaths, BehindTheLastTabWithoutTheLastCharacter) {
  answer(askDataDir, "datadir\tx\t" + data_.path() + "\n");
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
  EXPECT_EQ(found_["datadir"], data_.path());
  answer(askHome, "innodb_data_home_dir\t");
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0);
  EXPECT_EQ(found_["innodb_data_home_dir"], "");
}

TEST_F(CommandModePaths, ThatDoNotLookLikeAVariableFailAndTheMapKeepsWhatCameBefore) {
  const struct {
    const char* statement;
    std::size_t found;
  } table[] = {{askLogs, 3}, {askFiles, 2}, {askHome, 1}, {askDataDir, 0}};
  for (const auto& row : table) {
    answer(row.statement, "nonsense\n");
    EXPECT_EQ(session_.FindAllDatabasePaths(found_), -1);
    EXPECT_TRUE(logged("\"" + std::string(row.statement) + "\" output does not match expected format"));
    EXPECT_EQ(found_.size(), row.found);
    ASSERT_EQ(::unlink((answers_ / row.statement).c_str()), 0);
    EXPECT_EQ(session_.FindAllDatabasePaths(found_), -1);
    EXPECT_TRUE(logged("executeMySqlCommand, command=" + std::string(row.statement) + ", out=, ret=-1"));
    EXPECT_EQ(session_.iErrorCode, 2002);
  }
  EXPECT_EQ(stored(), "");
}

TEST_F(CommandModePaths, WhoseOwnerCannotBeKeptFail) {
  backend_.failures().failAlways("Inventory::writeProperties", platform::Status::failure("full"));
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), -1);
  EXPECT_TRUE(logged("Faild while setting datadir paths to AR"));
  EXPECT_EQ(found_.size(), 4U);
  session_.ulInstanceId = 0;
  EXPECT_EQ(session_.FindAllDatabasePaths(found_), 0) << "without an instance there is nothing to keep";
}

class LibraryModePaths : public LibraryModeTest {
 protected:
  void serve(const std::string& dataDirectory, const char* support) {
    dataDir_ = dataDirectory;
    library_.forgetAnswers();
    library_.variable("SHOW VARIABLES LIKE 'datadir'", "datadir", dataDir_.c_str());
    if (support != nullptr) library_.give(askSupport, 1, {support});
    library_.variable("SHOW VARIABLES LIKE 'innodb_data_home_dir'", "innodb_data_home_dir", "/home");
    library_.variable("SHOW VARIABLES LIKE 'innodb_data_file_path'", "innodb_data_file_path",
                      "a:1M;/x/b:1M:autoextend");
    library_.variable("SHOW VARIABLES LIKE 'innodb_log_group_home_dir'", "innodb_log_group_home_dir", "./");
    if (session_.bInitialized) return;
    ASSERT_EQ(session_.Init(add("/run/db.sock")), 0) << failure();
  }
  std::string ownerText() {
    std::string owner;
    EXPECT_EQ(session_.getUserGroupOfPath(data_.path(), owner), 0);
    return owner;
  }

  TemporaryDirectory data_, elsewhere_;
  std::string dataDir_;
};

TEST_F(LibraryModePaths, KeptInnoDbIsReadUnlessTheAnswerIsNo) {
  const std::string directory = data_.path() + "/";
  const auto always = {Pair("datadir", directory), Pair("datadirUserPath", "datadir:" + directory + ";" + ownerText())};
  serve(directory, "NO");
  EXPECT_EQ(session_.FindAllDatabasePaths(), 0) << failure();
  EXPECT_THAT(session_.dataPaths(), testing::UnorderedElementsAreArray(always));
  for (const char* support : {"DEFAULT", "YES"}) {
    serve(directory, support);
    EXPECT_EQ(session_.FindAllDatabasePaths(), 0) << failure();
    EXPECT_EQ(session_.dataPaths().size(), 5U) << support;
    EXPECT_EQ(session_.dataPaths().at("innodb_data_home_dir"), "/home");
    EXPECT_EQ(session_.dataPaths().at("/x/b"), "/x/b");
    EXPECT_EQ(session_.dataPaths().at("innodb_log_group_home_dir"), "./");
  }
  std::string stored = "unread";
  EXPECT_EQ(session_.pMySqlInstance->getMySqlDataDir(stored), 0);
  EXPECT_EQ(stored, "") << "kept: library mode leaves the property to its caller";
}

TEST_F(LibraryModePaths, LinksInTheDataDirectoryOfEveryKind) {
  writeFile(elsewhere_ / "file", "");
  ASSERT_EQ(::symlink((elsewhere_ / "file").c_str(), (data_ / "file").c_str()), 0);
  ASSERT_EQ(::symlink("../nowhere", (data_ / "shop").c_str()), 0);
  ASSERT_EQ(::mkdir((data_ / "plain").c_str(), 0700), 0);
  ASSERT_EQ(::symlink(data_.path().c_str(), (elsewhere_ / "data").c_str()), 0);
  serve(elsewhere_ / "data/", "NO");
  ASSERT_EQ(session_.FindAllDatabasePaths(), 0) << failure();
  EXPECT_EQ(session_.dataPaths().at("datadirlink"), data_.path());
  const std::string dangling = data_.path().substr(0, data_.path().rfind('/')) + "/nowhere,";
  const std::string file = elsewhere_ / "file" + ",";
  EXPECT_THAT(session_.dataPaths().at("databaselinks"), testing::AnyOf(file + dangling, dangling + file));
}

TEST_F(LibraryModePaths, KeptNoSeparatorIsPutBetweenTheDirectoryAndItsEntries) {
  ASSERT_EQ(::mkdir((data_ / "shop").c_str(), 0700), 0);
  serve(data_.path(), "NO");
  EXPECT_EQ(session_.FindAllDatabasePaths(), -1);
  EXPECT_TRUE(
      logged("Failed to read if directory was link err [" + data_.path() + "shop: No such file or directory] "));
  EXPECT_EQ(session_.dataPaths().size(), 1U) << "the map keeps what came before";
}

TEST_F(LibraryModePaths, FailWhereTheServerDoes) {
  serve(data_.path() + "/", nullptr);
  library_.refuse(askSupport, 1045, "no");
  EXPECT_EQ(session_.FindAllDatabasePaths(), -1);
  EXPECT_EQ(failure(), "1045 no");
  EXPECT_TRUE(logged("[" + std::string(askSupport) + "] query execution failed:no"));
  EXPECT_EQ(session_.dataPaths().size(), 1U);
  serve(data_ / "missing/", "NO");
  EXPECT_EQ(session_.FindAllDatabasePaths(), -1) << "a data directory that is not there";
  library_.forgetAnswers();
  EXPECT_EQ(session_.FindAllDatabasePaths(), -1);
  EXPECT_TRUE(logged("cannot get 'datadir' value from server."));
  EXPECT_TRUE(session_.dataPaths().empty());
}

using FileList = SessionTest;

TEST_F(FileList, HoldsWhatContainsTheFragment) {
  const TemporaryDirectory folder;
  for (const char* name : {"db.MYD", "xdb", "DB", "other"}) writeFile(folder / name, "");
  GetMySqlInfo session;
  std::vector<std::string> files{"before"};
  EXPECT_EQ(session.readFileListByPattern(folder.path(), "db", files), 0);
  EXPECT_EQ(files.front(), "before");
  EXPECT_THAT(files, UnorderedElementsAre("before", folder / "db.MYD", folder / "xdb"));
  files.clear();
  EXPECT_EQ(session.readFileListByPattern(folder.path(), "", files), 0);
  EXPECT_EQ(files.size(), 4U);
  EXPECT_EQ(session.readFileListByPattern(folder / "missing", "db", files), -1);
  EXPECT_TRUE(logged("Cannot opendir " + folder / "missing" + ", errno 2\n"));
}

}  // namespace
}  // namespace orrery::test
