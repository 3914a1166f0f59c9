// orrery-mysql replica: the counter and its holders, living and dead.

#include <unistd.h>

#include <filesystem>

#include "orrery/platform/home.h"

#include "command_fixture.h"

namespace orrery::test {
namespace {

namespace fs = std::filesystem;

/// A server that can start replication, from a primary that nobody reaches.
class ReplicaTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    addServer();
    server().execute("stop slave; change master to master_host='127.0.0.1', master_port=1, master_user='none'");
  }

  std::string counterFile() const { return home() + "/tmp/Instance_1_RunningBkpUps"; }
  void setCounter(const std::string& text) const { writeFile(counterFile(), text, 0600); }
  static bool sqlThreadRuns() {
    return server().execute("select count(*) from information_schema.processlist where command='Slave_SQL'") == "1\n";
  }

  /// What tells this test's own process from every other.
  static platform::ProcessMark ownMark() {
    std::string boot = readFile("/proc/sys/kernel/random/boot_id");
    boot.pop_back();
    const std::string stat = readFile("/proc/self/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    std::string ticks;
    for (int i = 0; i < 20; ++i) fields >> ticks;
    return {::getpid(), boot + "/" + ticks};
  }
  void enter(const platform::ProcessMark& process, const std::string& commandLine,
             const platform::ProcessMark& command = {}) const {
    std::shared_ptr<const platform::Services> services;
    ASSERT_TRUE(platform::openHome(home(), services).ok());
    platform::Id id = 0;
    ASSERT_TRUE(services->holders->add({0, 1, process, command, commandLine, 1770000000000000}, id).ok());
  }
  void enterDead(const std::string& commandLine) const { enter({::getpid(), "another boot/1"}, commandLine); }
  Json status() const { return runJson({"replica", "status", "db"}); }
  Json release() const { return runJson({"replica", "release", "--stale", "--yes", "db"}); }
};

TEST_F(ReplicaTest, StatusTellsTheLivingFromTheDeadAndWhatToDo) {
  EXPECT_TRUE(has(status(), {{"counter", 0}, {"holders", Json::array()}}));
  setCounter("4");
  enter(ownMark(), "tar -c /data");
  enterDead("rsync \033[1m/data");
  enter({::getpid(), "another boot/1"}, "cp", ownMark());
  const Json found = status();
  EXPECT_TRUE(has(found, {{"counter", 4}, {"unknown_holders", 1}}));
  ASSERT_EQ(found["holders"].size(), 3U);
  EXPECT_EQ(found["holders"][0], Json({{"pid", ::getpid()},
                                       {"command_pid", nullptr},
                                       {"alive", true},
                                       {"since", "2026-02-02T02:40:00Z"},
                                       {"command", "tar -c /data"}}));
  EXPECT_EQ(found["holders"][1]["alive"], false) << "the same id, another start";
  EXPECT_EQ(found["holders"][2]["alive"], true) << "its command still runs";
  EXPECT_THAT(found["advice"].get<std::string>(),
              testing::AllOf(testing::HasSubstr("1 holder died, 1 is a backup that is not known here"),
                             testing::HasSubstr("orrery-mysql replica release --stale db")));
  const std::string table = run({"replica", "status", "db"}).output;
  EXPECT_THAT(table, testing::HasSubstr("alive, since 2026-02-02T02:40:00Z: tar -c /data\n"));
  EXPECT_THAT(table, testing::HasSubstr("rsync \\x1b[1m/data\n"));
}

TEST_F(ReplicaTest, StatusSpeaksOfTheCounterWhenTheServerDoesNotAnswer) {
  setCounter("2");
  EXPECT_EQ(run({"instance", "set", "db", "--no-password"}).exitStatus, 0);
  const Json found = status();
  EXPECT_TRUE(has(found, {{"replication", "unknown"}, {"counter", 2}}));
  EXPECT_THAT(found["replication_problem"].get<std::string>(), testing::HasSubstr("no replication status from db"));
}

TEST_F(ReplicaTest, CountersAreReadAsBackupsReadThem) {
  const struct {
    const char* text;
    Json counter;
    const char* problem;
  } table[] = {{"", 0, ""},          {"0", 0, ""},   {"12", 12, ""},
               {"123456", 1234, ""}, {"3\n", 3, ""}, {"none", nullptr, "holds no number"}};
  for (const auto& row : table) {
    setCounter(row.text);
    const Json found = status();
    EXPECT_EQ(found["counter"], row.counter) << row.text;
    EXPECT_EQ(found["counter_problem"].is_null(), *row.problem == '\0') << row.text;
    EXPECT_THAT(found["counter_problem"].dump(), testing::HasSubstr(row.problem));
  }
  fs::remove(counterFile());
  fs::create_directory(counterFile());
  EXPECT_THAT(status()["counter_problem"].get<std::string>(), testing::HasSubstr(counterFile()));
  EXPECT_TRUE(failedWith(run({"replica", "release", "--stale", "--yes", "db"}), counterFile()));
}

TEST_F(ReplicaTest, ReleaseClearsTheDeadAndStartsTheReplica) {
  setCounter("2");
  enterDead("tar");
  EXPECT_FALSE(sqlThreadRuns());
  EXPECT_TRUE(refusedUsage(run({"replica", "release", "--stale", "db"}), "--yes"));
  EXPECT_EQ(readFile(counterFile()), "2") << "nothing happens unasked";

  const Json done = release();
  EXPECT_TRUE(has(done, {{"counter_before", 2}, {"counter", 0}, {"replica_started", true}}));
  EXPECT_EQ(done["forgotten_holders"][0]["command"], "tar");
  EXPECT_EQ(readFile(counterFile()), "0");
  EXPECT_TRUE(sqlThreadRuns());
  EXPECT_EQ(status()["holders"], Json::array());
}

TEST_F(ReplicaTest, ReleaseLeavesTheReplicaToTheLiving) {
  setCounter("1");
  enter(ownMark(), "tar");
  const ProgramResult nothing = run({"replica", "release", "--stale", "--yes", "db"});
  EXPECT_EQ(nothing.exitStatus, 0);
  EXPECT_EQ(nothing.errors, "orrery-mysql: note: nothing is stale on db\n");

  enterDead("cp");
  EXPECT_EQ(release()["forgotten_holders"], Json::array()) << "which of the two is counted cannot be told";
  setCounter("3");
  const Json done = release();
  EXPECT_TRUE(has(done, {{"counter", 1}, {"replica_started", false}}));
  EXPECT_EQ(done["forgotten_holders"].size(), 1U);
  EXPECT_EQ(readFile(counterFile()), "1");
  EXPECT_FALSE(sqlThreadRuns());
}

TEST_F(ReplicaTest, AProgramWithASessionOnTheInstanceMayBeABackup) {
  setCounter("1");
  const RunningProgram backup({"sleep", "300"});
  const std::string id = std::to_string(backup.pid());
  writeFile(home() + "/tmp/orrery_bkp_mycnf_1_1700000000_" + id + "_" + id + "_17.cnf", "[client]\n", 0600);
  writeFile(home() + "/tmp/orrery_bkp_mycnf_12_1700000000_" + id + "_" + id + "_18.cnf", "[client]\n", 0600);
  EXPECT_EQ(status()["possible_holders"], Json::array({backup.pid()})) << "the other file is of another instance";
  EXPECT_TRUE(failedWith(run({"replica", "release", "--stale", "--yes", "db"}), "process " + id + " may be a backup"));
  EXPECT_EQ(readFile(counterFile()), "1");
}

TEST_F(ReplicaTest, AReplicaThatDoesNotStartKeepsTheCounterAndTheDead) {
  server().execute("reset slave all");
  setCounter("1");
  enterDead("tar");
  EXPECT_TRUE(failedWith(run({"replica", "release", "--stale", "--yes", "db"}), "[1200]"));
  EXPECT_EQ(readFile(counterFile()), "1");
  EXPECT_EQ(status()["holders"].size(), 1U);
}

TEST_F(ReplicaTest, HoldRefusesWhatItCannotDoBeforeAnythingIsStopped) {
  EXPECT_TRUE(refusedUsage(run({"--access", "command", "replica", "hold", "db", "--", "true"}), "library mode"));
  EXPECT_TRUE(refusedUsage(run({"replica", "hold", "db"}), "COMMAND is required"));
  EXPECT_TRUE(refusedUsage(run({"replica", "release", "db"}), "--stale is required"));
  EXPECT_TRUE(failedWith(run({"--access", "auto", "replica", "hold", "db", "--", "no-such-program"}), "not in PATH"));
  EXPECT_TRUE(failedWith(run({"--access", "auto", "replica", "hold", "other", "--", "true"}), "no instance other"));
  EXPECT_EQ(status()["holders"], Json::array());
}

}  // namespace
}  // namespace orrery::test
