// orrery-mysql backup and job: the whole road on a real replica, and every way in which it can end early.

#include <signal.h>

#include <filesystem>
#include <list>

#include "command_fixture.h"

namespace orrery::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BackupTest : public ReplicaPairTest {
 protected:
  void TearDown() override {
    EXPECT_TRUE(waitUntil(runs)) << "a backup never leaves a replica stopped";
    EXPECT_EQ(counter(), "0");
    EXPECT_THAT(runJson({"replica", "status", "db"})["holders"], IsEmpty());
    for (const std::string& name : namesIn(home() + "/tmp")) EXPECT_THAT(name, testing::Not(HasSubstr("mycnf")));
    primary().execute("drop database if exists shop");
  }

  static std::vector<std::string> backup(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--access", "library", "backup", "db"});
    return more;
  }
  Json job(int id) const { return runJson({"job", "show", std::to_string(id)}); }
  std::string manifestPath(int id) const { return home() + "/results/manifests/job-" + std::to_string(id) + ".json"; }
  std::vector<std::string> manifests() const {
    const std::string folder = home() + "/results/manifests";
    return std::filesystem::exists(folder) ? namesIn(folder) : std::vector<std::string>();
  }
  static void makeOnBoth(const std::string& database) {
    primary().execute("create database " + database + "; create table " + database + ".t (a int primary key)");
    awaitReplica();
  }
};

TEST_F(BackupTest, FindsWhatToProtectWhileTheReplicaIsHeld) {
  makeOnBoth("shop");
  ASSERT_EQ(run({"instance", "set", "db", "--auto-discovery", "on"}).exitStatus, 0);
  ASSERT_EQ(run({"databases", "add", "db", "gone"}).exitStatus, 0);
  const std::string firstLog = replica().execute("show master status").substr(0, 20);
  const Json printed = runJson(backup());

  EXPECT_EQ(printed["access"], "library");
  EXPECT_EQ(printed["replication"]["state"], "held");
  EXPECT_NE(printed["replication"]["held_until"], nullptr);
  EXPECT_THAT(printed["replication"]["primary_log"].get<std::string>(), HasSubstr("bin.0"));
  EXPECT_GT(printed["replication"]["primary_position"], 0);
  EXPECT_TRUE(has(printed["databases"], {{"added", {"mysql", "shop", "sys"}}, {"missing", {"gone"}}}));
  EXPECT_EQ(printed["databases"]["protect"].size(), 3U);
  EXPECT_EQ(printed["databases"]["protect"][1], Json({{"name", "shop"}, {"directory", "shop"}}));
  EXPECT_TRUE(
      has(printed["paths"][0],
          {{"kind", "data_directory"}, {"path", replica().dataDirectory() + "/"}, {"owner", replica().account()}}));
  EXPECT_EQ(printed["binary_logs"]["logs"].size(), 1U);
  EXPECT_EQ(replica().execute("show master status").find(printed["binary_logs"]["logs"][0]), std::string::npos)
      << "rotated after the list: " << firstLog;

  Json written = Json::parse(readFile(manifestPath(1)));
  EXPECT_EQ(written["format"], "orrery-mysql-manifest");
  written["file"] = manifestPath(1);
  EXPECT_EQ(written, printed);
  EXPECT_TRUE(has(job(1), {{"state", "completed with errors"}, {"failed_files", 1}, {"progress", 100}}));
  EXPECT_EQ(job(1)["events"][0]["code"], "0x5700001c");

  // The next one knows the databases; what discovery added goes with its database, in silence for the user's own.
  primary().execute("drop database shop");
  awaitReplica();
  const Json second = runJson(backup({"--level", "incremental"}));
  EXPECT_THAT(second["databases"]["added"], IsEmpty());
  EXPECT_EQ(second["databases"]["removed"], Json({"shop"}));
  EXPECT_EQ(second["databases"]["missing"], Json({"gone"})) << "told to nobody, so no error of an incremental one";
  EXPECT_EQ(job(2)["state"], "succeeded");
  EXPECT_EQ(job(2)["events"][0]["code"], "0x57000020");
  EXPECT_EQ(runJson({"databases", "content", "db"})["databases"].size(), 3U);
}

struct Moment {
  const char* statement;  ///< about to go to the server
  const char* step;       ///< that the job names when it ends just then
};
const Moment moments[] = {
    {"STOP SLAVE", "hold the replica"},    {"SHOW DATABASES", "reconcile the databases"},
    {"'datadir'", "find the data paths"},  {"FLUSH LOGS", "rotate and list the binary logs"},
    {"START SLAVE", "let the replica go"},
};

class GatedBackupTest : public BackupTest {
 protected:
  ProgramResult runThrough(const Moment& moment, const Act& act) const {
    return runGated("db", replica(), moment.statement, backup(), act);
  }
};

TEST_F(GatedBackupTest, AnInterruptAtAnyStepLetsTheReplicaGoAndTheJobSaysSo) {
  int id = 0;
  for (const Moment& moment : moments) {
    SCOPED_TRACE(moment.statement);
    const ProgramResult result = runThrough(moment, sending(SIGTERM));
    EXPECT_EQ(result.signal, SIGTERM);
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(waitUntil(runs));
    EXPECT_EQ(counter(), "0");
    const Json ended = job(++id);
    EXPECT_EQ(ended["state"], "failed");
    ASSERT_EQ(ended["causes"].size(), 1U) << ended;
    EXPECT_EQ(ended["causes"][0]["code"], "0x570000f2");
    EXPECT_THAT(ended["causes"].dump(), HasSubstr(std::string("'") + moment.step + "'"));
  }
  EXPECT_THAT(manifests(), IsEmpty());
}

TEST_F(GatedBackupTest, AConnectionThatBreaksAtAnyStepLetsTheReplicaGoAndTheJobSaysSo) {
  int id = 0;
  for (const StatementGate::Then then : {StatementGate::Then::breakConnection, StatementGate::Then::breakBehind}) {
    for (const Moment& moment : moments) {
      SCOPED_TRACE(moment.statement);
      const ProgramResult result = runThrough(moment, [then](pid_t) { return then; });
      EXPECT_TRUE(waitUntil(runs)) << result.errors;
      EXPECT_EQ(counter(), "0");
      const Json ended = job(++id);
      if (moment.statement == std::string("START SLAVE")) {
        EXPECT_EQ(result.exitStatus, 0) << "a connection that is lost there is made again: " << result.errors;
        EXPECT_EQ(ended["state"], "succeeded");
        continue;
      }
      EXPECT_EQ(ended["state"], "failed");
      ASSERT_FALSE(ended["causes"].empty()) << ended;
      EXPECT_THAT(ended["causes"].back()["text"].get<std::string>(), HasSubstr(moment.step));
      EXPECT_TRUE(failedWith(result, moment.step));
    }
  }
}

TEST_F(GatedBackupTest, AJobThatIsAskedToStopDoesSoAtAnyStep) {
  int id = 0;
  for (const Moment& moment : moments) {
    SCOPED_TRACE(moment.statement);
    ++id;
    const ProgramResult result = runThrough(moment, [&](pid_t) {
      EXPECT_EQ(run({"job", "stop", std::to_string(id)}).exitStatus, 0);
      EXPECT_EQ(job(id)["state"], "running");
      return StatementGate::Then::handOn;
    });
    EXPECT_TRUE(failedWith(result, "the job was asked to stop"));
    EXPECT_EQ(job(id)["causes"][0]["code"], "0x570000f3");
    EXPECT_TRUE(waitUntil(runs));
  }
  EXPECT_TRUE(failedWith(run({"job", "stop", "1"}), "it has ended: failed"));
}

TEST_F(GatedBackupTest, AKilledBackupIsSeenToHaveDiedAndItsHoldIsReleased) {
  for (const Moment& moment : moments) {
    SCOPED_TRACE(moment.statement);
    const ProgramResult result = runThrough(moment, [](pid_t pid) {
      ::kill(pid, SIGKILL);
      return StatementGate::Then::breakConnection;
    });
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(runJson({"job", "list"})["jobs"][0]["state"], "died");
    EXPECT_EQ(run({"--access", "library", "replica", "release", "--stale", "--yes", "db"}).exitStatus, 0);
    EXPECT_TRUE(waitUntil(runs));
    EXPECT_EQ(counter(), "0");
  }
  EXPECT_TRUE(failedWith(run({"job", "stop", "1"}), "it has ended: died"));
}

TEST_F(GatedBackupTest, AReplicaThatDoesNotGoOnByItselfIsToldOf) {
  makeOnBoth("shop");
  const ProgramResult result = runThrough(moments[1], [](pid_t) {
    replica().execute("set sql_log_bin = 0; insert into shop.t values (1)");
    primary().execute("insert into shop.t values (1)");
    return StatementGate::Then::handOn;
  });
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_THAT(result.errors, HasSubstr("was let go and is stopped"));
  EXPECT_EQ(job(1)["state"], "completed with errors");
  replica().execute("set sql_log_bin = 0; delete from shop.t; start slave");
}

TEST_F(BackupTest, SeveralAtOnceHoldTheReplicaTogether) {
  std::list<RunningProgram> programs;
  for (int i = 0; i < 5; ++i) programs.emplace_back(commandLine(home(), backup({"--format", "json"})));
  for (RunningProgram& program : programs) {
    const ProgramResult result = program.wait();
    ASSERT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(Json::parse(result.output)["replication"]["state"], "held");
  }
}

TEST_F(BackupTest, ThatCannotPrintItsManifestIsDoneAllTheSame) {
  const ProgramResult result = runProgram(
      {"sh", "-c", "exec \"$0\" --home \"$1\" --access library backup db >/dev/full", ORRERY_MYSQL_COMMAND, home()});
  EXPECT_TRUE(failedWith(result, "standard output"));
  EXPECT_EQ(job(1)["state"], "succeeded");
  EXPECT_THAT(job(1)["causes"], IsEmpty());
  EXPECT_THAT(manifests(), ElementsAre("job-1.json"));
}

TEST_F(BackupTest, OfAReplicaWithoutItsPrimaryHoldsWhatItStillCarriesOut) {
  const auto connecting = [] {
    return replica().execute("show slave status").find("\tConnecting\tYes\t") != std::string::npos;
  };
  replica().execute("stop slave; change master to master_port=1; start slave");
  ASSERT_TRUE(waitUntil(connecting)) << replica().execute("show slave status");
  EXPECT_EQ(runJson({"--access", "library", "replica", "status", "db"})["replication"], "running without its primary");
  EXPECT_EQ(runJson(backup())["replication"]["state"], "held");
  EXPECT_TRUE(waitUntil(connecting));
  replica().execute("stop slave io_thread");
  EXPECT_TRUE(failedWith(run(backup()), "replication is stopped in part there and would be started in the end"));
  replica().execute("stop slave; change master to master_port=" + std::to_string(primary().port()) + "; start slave");
}

TEST_F(BackupTest, OfAReplicaThatStandsStillLeavesItSo) {
  replica().execute("stop slave");
  const ProgramResult result = run(backup());
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_THAT(result.errors, HasSubstr("replication does not run on db; it is left as it is"));
  EXPECT_FALSE(runs());
  EXPECT_EQ(Json::parse(readFile(manifestPath(1)))["replication"]["state"], "stopped");
  replica().execute("start slave");
}

TEST_F(BackupTest, WithoutAReplicaOrInCommandModeHoldsNothing) {
  for (const char* access : {"command", "library"}) {
    const Json printed = runJson({"--access", access, "backup", "primary"});
    EXPECT_EQ(printed["access"], access);
    EXPECT_TRUE(has(printed["replication"], {{"state", "no replica"}, {"held_from", nullptr}}));
  }
  const ProgramResult refused = run({"--access", "command", "backup", "db"});
  EXPECT_TRUE(failedWith(refused,
                         "in the step 'hold the replica': the replica of db is not held: replicas are held in "
                         "library mode only"));
  EXPECT_EQ(job(3)["causes"][0]["code"], "0x570000f1");
}

TEST_F(BackupTest, ThatCannotWriteItsManifestFailsWithoutHalfOfIt) {
  std::filesystem::create_directories(manifestPath(1) + ".new/x");
  EXPECT_TRUE(failedWith(run(backup()), "in the step 'write the manifest'"));
  EXPECT_THAT(manifests(), ElementsAre("job-1.json.new"));
  EXPECT_EQ(job(1)["state"], "failed");
}

TEST_F(BackupTest, ByAnAccountThatDoesNotSeeAllDatabasesTakesNoneOutOfTheContent) {
  replica().execute(
      "set sql_log_bin = 0; create or replace user blind@localhost identified by 'b'; grant replica monitor, "
      "replication "
      "slave admin, reload, binlog admin, binlog monitor on *.* to blind@localhost");
  ASSERT_EQ(run({"databases", "add", "db", "mysql", "sys"}).exitStatus, 0);
  writeFile(directory_ / "password", "b");
  ASSERT_EQ(run({"instance", "set", "db", "--user", "blind", "--password-file", directory_ / "password"}).exitStatus,
            0);
  EXPECT_TRUE(failedWith(run(backup()), "the account may not see them"));
  EXPECT_EQ(runJson({"databases", "content", "db"})["databases"].size(), 2U);
  EXPECT_EQ(job(1)["state"], "failed");
  replica().execute("set sql_log_bin = 0; drop user blind@localhost");
}

TEST_F(BackupTest, RefusesWhatItCannotDoWithoutAJob) {
  EXPECT_TRUE(failedWith(run(backup({"--subclient", "none"})), "the instance db has no subclient none"));
  EXPECT_THAT(runJson({"job", "list"})["jobs"], IsEmpty());
  EXPECT_TRUE(failedWith(run({"job", "show", "7"}), "there is no job 7"));
  // Turned on without the program's folder.
  ASSERT_EQ(run({"instance", "set", "db", "--meb", "on"}).exitStatus, 0);
  EXPECT_TRUE(failedWith(run(backup()), "properties of the instance could not be obtained"));
  EXPECT_EQ(job(1)["state"], "failed");
}

}  // namespace
}  // namespace orrery::test
