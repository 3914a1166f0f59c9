// What an incremental backup stands on, and which images a restore brings back.

#include <signal.h>

#include <sqlite3.h>

#include "enterprise_fixture.h"

namespace orrery::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class EnterpriseChainTest : public EnterpriseTest {
 protected:
  /// Level of an incremental backup and why it became another one.
  std::string levelOfNext(const std::string& instance = "db") const {
    const ProgramResult made = run({"--format", "json", "backup", instance, "--level", "incremental"});
    EXPECT_EQ(made.exitStatus, 0) << made.errors;
    return std::string(Json::parse(made.output)["image"]["level"]) + " " + made.errors;
  }
  /// As somebody else's backup does, a second before the one that runs, so that this stays the last one.
  void enterForeignBackup() const {
    server_.execute(
        "create temporary table shop.h as select * from mysql.backup_history limit 1;"
        "update shop.h set backup_id=backup_id - 1, end_time='2001-01-01';"
        "insert into mysql.backup_history select * from shop.h");
  }
  std::vector<bool> restorable() const {
    std::vector<bool> each;
    const Json known = runJson({"browse", "db"});
    for (const Json& image : known["images"]) {
      each.push_back(image.at("restorable"));
      EXPECT_EQ(image.at("reason").is_null(), each.back());
    }
    return each;
  }
  /// "level instance subclient image" of the rows of a job in the index.
  std::string indexed(int job) const {
    sqlite3* store = nullptr;
    std::string text;
    EXPECT_EQ(sqlite3_open((home() + "/store.db").c_str(), &store), SQLITE_OK);
    const std::string rows =
        "SELECT DISTINCT level || ' ' || instance_id || ' ' || subclient_id || ' ' || image FROM index_paths WHERE "
        "job_id = " +
        std::to_string(job);
    const auto take = [](void* out, int, char** columns, char**) {
      *static_cast<std::string*>(out) += columns[0];
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(store, rows.c_str(), take, &text, nullptr), SQLITE_OK);
    sqlite3_close(store);
    return text;
  }
};

TEST_F(EnterpriseChainTest, AnIncrementalBackupStandsOnTheNewestImageOrIsAFullOne) {
  const std::string another =
      "full orrery-mysql: note: a full backup is made: the newest image is not what the server has";
  addServer("db2", server_, {"--meb", "on", "--meb-bin", ORRERY_MYSQLBACKUP_FOLDER});
  std::filesystem::create_directory_symlink(server_.directory(), directory_ / "link");
  const std::string socket = server_.socket();
  ASSERT_EQ(
      run({"instance", "set", "db2", "--socket", (directory_ / "link") + socket.substr(socket.rfind('/'))}).exitStatus,
      0);
  const Json first = backup();
  EXPECT_EQ(indexed(1), "1 1 1 " + std::string(first["image"]["name"]));
  EXPECT_EQ(levelOfNext("db"), "incremental ");
  EXPECT_EQ(runJson({"backup", "db2"})["image"]["level"], "full");
  EXPECT_THAT(levelOfNext("db"), HasSubstr(another)) << "of the same server by another path";

  const std::string otherHome = directory_ / "other";
  const auto inOther = [&](const std::vector<std::string>& arguments) {
    return runProgram(commandLine(otherHome, arguments)).exitStatus;
  };
  ASSERT_EQ(inOther({"init", "--client", "tested"}), 0);
  ASSERT_EQ(inOther({"instance", "add", "db", "--socket", socket, "--user", "agent", "--password-file",
                     server_.directory() + "/agent.password", "--unix-user", server_.account(), "--meb", "on",
                     "--meb-bin", ORRERY_MYSQLBACKUP_FOLDER}),
            0);
  ASSERT_EQ(inOther({"backup", "db"}), 0);
  EXPECT_THAT(levelOfNext(), HasSubstr(another)) << "of another agent";
  write(10);
  EXPECT_EQ(levelOfNext(), "incremental ");
  const std::string before = checksum();
  EXPECT_EQ(restoreTo("now")["images"].size(), 2U);
  EXPECT_EQ(checksum(), before);
  EXPECT_EQ(runJson({"backup", "db2"})["image"]["level"], "full");
  EXPECT_EQ(restoreTo(timeOf(first))["state"], "succeeded") << lastJob();
  EXPECT_THAT(levelOfNext("db2"), HasSubstr(another)) << "the server is restored through another record";

  server_.execute("drop table mysql.backup_history");
  EXPECT_THAT(levelOfNext("db2"), HasSubstr(another)) << "a server without a history";
}

TEST_F(EnterpriseChainTest, AnIncrementalBackupDuringAnotherOneIsNotKept) {
  backup();
  writeMuch();
  RunningProgram program = start({"backup", "db", "--level", "incremental"}, "slow:200");
  ASSERT_TRUE(moves(2));
  enterForeignBackup();
  EXPECT_TRUE(failedWith(program.wait(), "Another backup of the server"));
  EXPECT_THAT(job(2)["causes"].dump(), HasSubstr("0x57000105"));
  EXPECT_EQ(restorable().size(), 1U);
  EXPECT_THAT(levelOfNext(), HasSubstr("full"));
}

TEST_F(EnterpriseChainTest, AKilledBackupIsRememberedUntilOneEndsWell) {
  backup();
  RunningProgram program = start({"backup", "db"}, "slow:200");
  ASSERT_TRUE(moves(2));
  ::kill(program.pid(), SIGKILL);
  program.wait();
  EXPECT_NE(runWith("server", {"backup", "db"}).exitStatus, 0);
  startJobsOfOthers();
  EXPECT_THAT(levelOfNext(), HasSubstr("full orrery-mysql: note: a full backup is made: a backup was killed"));
  EXPECT_EQ(levelOfNext(), "incremental ");
}

TEST_F(EnterpriseChainTest, BrowseSaysWhatARestoreRefuses) {
  std::vector<std::string> names;
  for (const char* level : {"full", "incremental", "incremental", "incremental", "full"})
    names.emplace_back(backup(level)["image"]["name"]);
  EXPECT_THAT(restorable(), ElementsAre(true, true, true, true, true));
  std::filesystem::rename(home() + "/media/" + names[2], directory_ / "kept");
  EXPECT_THAT(restorable(), ElementsAre(true, true, false, false, true));
  EXPECT_THAT(run({"browse", "db"}).errors,
              HasSubstr("no restore brings back " + names[2] + ": the image " + names[2]));
  std::filesystem::rename(directory_ / "kept", home() + "/media/" + names[2]);
  ASSERT_TRUE(store()->archive->removeFile(recordOf(names[1]).id).ok());
  EXPECT_THAT(restorable(), ElementsAre(true, false, false, true));
  EXPECT_THAT(run({"browse", "db"}).errors, HasSubstr("does not stand on"));
  // The clock was set back: what is newest comes last, and its time leads to itself.
  platform::ArchiveFile newest = recordOf(names[4]);
  newest.created -= 1000;
  enter(newest);
  EXPECT_EQ(runJson({"browse", "db"})["images"].back()["name"], names[4]);
  EXPECT_THAT(restorable(), ElementsAre(false, false, false, true));
  EXPECT_THAT(run({"browse", "db"}).errors, HasSubstr("takes the later image " + names[4]));
}

}  // namespace
}  // namespace orrery::test
