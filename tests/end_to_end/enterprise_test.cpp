// Enterprise backup and restore through the command, on a real server: images made by a stand-in for the vendor's
// program from real physical backups, moved by the media library, put back to each of their times.

#include <signal.h>

#include <ctime>
#include <filesystem>

#include "enterprise_fixture.h"

namespace orrery::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// What goes wrong, beside the tests of what goes well, which take as long.
class EnterpriseFailureTest : public EnterpriseTest {};

TEST_F(EnterpriseTest, RestoresToTheTimeOfEachImage) {
  std::vector<std::pair<std::string, std::string>> times;  // of the image, and what the data were
  for (int i = 0; i < 4; ++i) {
    const std::string before = checksum();
    const Json made = backup(i == 0 ? "full" : "incremental");
    EXPECT_EQ(made["state"], "succeeded") << job(i + 1);
    EXPECT_EQ(made["image"]["level"], i == 0 ? "full" : "incremental");
    EXPECT_THAT(made["databases"].get<std::vector<std::string>>(), testing::Contains("shop"));
    EXPECT_EQ(job(i + 1)["bytes"], made["image"]["bytes"]);
    times.emplace_back(timeOf(made), before);
    write(1000);
  }
  const Json known = runJson({"browse", "db", "--database", "shop"})["images"];
  ASSERT_EQ(known.size(), 4U);

  std::size_t count = 4;
  for (auto time = times.rbegin(); time != times.rend(); ++time, --count) {
    const Json restored = restoreTo(time->first);
    EXPECT_EQ(restored["state"], "succeeded") << lastJob();
    EXPECT_EQ(restored["images"].size(), count);
    EXPECT_EQ(lastJob()["progress"], 100);
    EXPECT_EQ(checksum(), time->second) << count;
  }
  EXPECT_EQ(std::filesystem::status(server_.dataDirectory() + "/shop").type(), std::filesystem::file_type::directory);

  // What a restore leaves behind is no base for an incremental backup.
  const ProgramResult next = run({"--format", "json", "backup", "db", "--level", "incremental"});
  EXPECT_THAT(next.errors, HasSubstr("a full backup is made: its images were restored"));
  EXPECT_EQ(Json::parse(next.output)["image"]["level"], "full");
  EXPECT_EQ(backup("incremental")["image"]["level"], "incremental") << "once is enough";
}

TEST_F(EnterpriseTest, RestoresIntoAFolderAndLeavesTheServerAlone) {
  const std::string time = timeOf(backup());
  const std::string folder = directory_ / "it's \"my\" folder";
  EXPECT_TRUE(failedWith(run({"restore", "db", "--to-time", time, "--into", folder}), "\"")) << "cannot be handed over";
  const std::string plain = directory_ / "it's my folder";
  EXPECT_EQ(restoreTo(time, {"--into", plain})["state"], "succeeded") << lastJob();
  EXPECT_TRUE(std::filesystem::exists(plain + "/shop/t.ibd"));
  EXPECT_EQ(server_.execute("select 1"), "1\n");
  EXPECT_FALSE(server_.hasEnded());
  EXPECT_TRUE(failedWith(run({"restore", "db", "--to-time", time, "--into", plain}), "not empty"));
}

TEST_F(EnterpriseTest, PlanChangesNothing) {
  const std::string time = timeOf(backup());
  const std::string before = checksum();
  const auto note = [&] {
    platform::InstanceRecord record;
    EXPECT_TRUE(store()->inventory->findInstance(1, record).ok());
    return record.properties[platform::property::dataDirOwner];
  };
  const std::string stale = "datadir:/moved/since;usergroup:root#root;";
  ASSERT_TRUE(store()->inventory->writeProperties(1, {{platform::property::dataDirOwner, stale}}).ok());
  const Json plan = restoreTo(time, {"--plan"});
  EXPECT_EQ(plan["directory"], server_.dataDirectory());
  EXPECT_EQ(plan["owner"], server_.account() + ":" + server_.account());
  EXPECT_EQ(plan["server_answers"], true);
  EXPECT_EQ(note(), stale);
  EXPECT_EQ(plan["images"].size(), 1U);
  EXPECT_GE(plan["bytes_needed"], 1 << 20);
  EXPECT_GE(plan["bytes_freed"], plan["bytes_needed"]) << "the data are still there";
  EXPECT_GT(plan["bytes_free"], 0);
  EXPECT_EQ(runJson({"job", "list"})["jobs"].size(), 1U);
  EXPECT_FALSE(server_.hasEnded());
  EXPECT_EQ(checksum(), before);
  EXPECT_EQ(run({"restore", "db", "--plan", "--to-time", time}).errors, "");
  EXPECT_TRUE(failedWith(run({"restore", "db", "--plan", "--to-time", "2001-01-01T00:00:00Z"}), "no image was made"));
  EXPECT_TRUE(refusedUsage(run({"restore", "db", "--plan", "--to-time", "2026-01-01 10:00"}), "is no time"));
}

TEST_F(EnterpriseTest, WithoutRoomOrWithWhatStaysNothingIsReplaced) {
  const std::string full = timeOf(backup());
  const Json last = backup("incremental");
  const std::string time = timeOf(last);
  const auto planWithMount = [&](const std::string& folder, const std::vector<std::string>& more) {
    std::vector<std::string> command = commandLine(home(), {"restore", "db", "--plan", "--to-time"});
    command.insert(command.end(), more.begin(), more.end());
    const char* const script = "mount -t tmpfs -o mode=0711,size=4k none \"$0\" && exec \"$@\"";
    command.insert(command.begin(), {"unshare", ::geteuid() == 0 ? "-m" : "-rm", "sh", "-c", script, folder});
    return runProgram(command);
  };
  EXPECT_TRUE(failedWith(planWithMount(server_.dataDirectory() + "/shop", {time}), "could not be emptied: "));
  EXPECT_TRUE(failedWith(planWithMount(home() + "/results", {time}), "there may be no room"));
  EXPECT_EQ(planWithMount(home() + "/results", {time, "--little-room"}).exitStatus, 0);
  const std::string noted = "note: the room may not do: mysqlbackup may unpack";
  const ProgramResult ofFull = planWithMount(home() + "/results", {full});
  EXPECT_EQ(ofFull.exitStatus, 0) << "an agent's home is seldom as large as a database";
  EXPECT_THAT(ofFull.errors, HasSubstr(noted));

  const Json plan = restoreTo(time, {"--plan"});
  const std::int64_t room = plan["bytes_free"].get<std::int64_t>() + plan["bytes_freed"].get<std::int64_t>();
  platform::ArchiveFile record = recordOf(last["image"]["name"]);
  const auto restoreSized = [&](std::int64_t size, const std::vector<std::string>& more = {}) {
    record.size = size;
    enter(record);
    return restore(time, more);
  };
  EXPECT_TRUE(failedWith(restoreSized(std::int64_t{1} << 60), "there is no room in " + server_.dataDirectory()));
  EXPECT_TRUE(failedWith(restoreSized(room / 4 * 3), "beside the data")) << "on one file system";
  EXPECT_THAT(restoreSized(room / 4 * 3, {"--plan", "--little-room"}).errors, HasSubstr(noted));
  EXPECT_THAT(restoreSized(room / 4 * 3, {"--plan", "--into", directory_ / "folder"}).errors, HasSubstr(noted));
  EXPECT_FALSE(server_.hasEnded());
}

TEST_F(EnterpriseTest, AnImageThatCannotBeReadLeavesTheServerAlone) {
  const Json full = backup();
  write(10);
  const Json last = backup("incremental");
  const std::string before = checksum();
  const std::string time = timeOf(last);
  const std::string name = full["image"]["name"];
  const std::string file = home() + "/media/" + name;
  std::filesystem::copy_file(file, directory_ / "kept");
  const auto refused = [&](const std::string& reason) {
    const ProgramResult result = run({"restore", "db", "--yes", "--to-time", time});
    EXPECT_TRUE(failedWith(result, reason));
    EXPECT_THAT(result.errors, HasSubstr(name));
    EXPECT_FALSE(server_.hasEnded());
    EXPECT_EQ(checksum(), before);
  };
  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
  refused("refused");
  std::filesystem::remove(file);
  refused("not in the folder");
  std::string bytes = readFile(directory_ / "kept");
  bytes[bytes.size() / 2] = static_cast<char>(~bytes[bytes.size() / 2]);
  writeFile(file, bytes);
  refused("damaged");
  // A folder replaces nothing: its images are read once, while they are applied.
  const ProgramResult into = run({"restore", "db", "--to-time", time, "--into", directory_ / "folder"});
  EXPECT_TRUE(failedWith(into, "An image could not be restored"));
  EXPECT_THAT(into.errors, HasSubstr("its data are damaged"));
  EXPECT_EQ(lastJob()["state"], "failed");
}

TEST_F(EnterpriseTest, ImagesThatDoNotStandOnEachOtherLeaveTheServerAlone) {
  backup();
  const Json second = backup("incremental");
  write(10);
  const std::string last = timeOf(backup("incremental"));
  const platform::ArchiveFile record = recordOf(second["image"]["name"]);
  ASSERT_TRUE(store()->archive->removeFile(record.id).ok());
  EXPECT_TRUE(failedWith(restore(last), "does not stand on"));
  EXPECT_FALSE(server_.hasEnded());
  const ProgramResult anew = run({"--format", "json", "backup", "db", "--level", "incremental"});
  EXPECT_THAT(anew.errors, HasSubstr("the last images cannot be restored"));
  EXPECT_EQ(Json::parse(anew.output)["image"]["level"], "full");

  // A run that broke off leaves open whether the server counts its image as the last backup.
  EXPECT_NE(runWith("stream:1", {"backup", "db"}).exitStatus, 0);
  platform::ArchiveFile left = recordOf(images().back());
  left.jobId = lastJob()["id"];
  enter(left);
  const ProgramResult next = run({"--format", "json", "backup", "db", "--level", "incremental"});
  EXPECT_THAT(next.errors, HasSubstr("did not end well"));
  EXPECT_EQ(Json::parse(next.output)["image"]["level"], "full");
}

TEST_F(EnterpriseTest, DataOutsideTheDataDirectoryAreNotTouched) {
  const std::string outside = directory_ / "outside";
  std::filesystem::create_directory(outside);
  std::filesystem::permissions(outside, std::filesystem::perms::all);
  server_.execute("create table shop.away (id int) engine=innodb data directory='" + outside + "'");
  const std::string time = timeOf(backup());
  EXPECT_TRUE(failedWith(restore(time), outside));
  EXPECT_FALSE(server_.hasEnded());
  server_.execute("drop table shop.away");
  EXPECT_TRUE(failedWith(restore(time, {"--into", directory_ / "folder"}), outside)) << "the image holds it";
  EXPECT_THAT(namesIn(outside + "/shop"), IsEmpty());
}

TEST_F(EnterpriseTest, FolderOfAnotherIsNotEmptied) {
  const std::string time = timeOf(backup());
  server_.crash();
  const std::string folder = directory_ / "photographs";
  std::filesystem::create_directory(folder);
  for (const char* name : {"backups", "system", "mysql notes"}) writeFile(folder + "/" + name, "holiday");
  ASSERT_TRUE(
      store()->inventory->writeProperties(1, {{platform::property::dataDirOwner, "datadir:" + folder + ";"}}).ok());
  EXPECT_TRUE(failedWith(restore(time), "holds nothing that a server writes"));
  EXPECT_THAT(namesIn(folder), testing::SizeIs(3));
}

TEST_F(EnterpriseTest, ServerThatIsDownIsRestoredAndLeftDownWhenAskedTo) {
  const std::string before = checksum();
  const std::string time = timeOf(backup());
  write(10);
  server_.crash();
  set("bManualServerStart", "1");
  EXPECT_EQ(restoreTo(time)["state"], "succeeded") << lastJob();
  EXPECT_TRUE(server_.hasEnded());
  server_.start();
  EXPECT_EQ(checksum(), before);
}

TEST_F(EnterpriseFailureTest, ServerThatDoesNotComeBackFailsTheJob) {
  const std::string time = timeOf(backup());
  for (const char* command : {"/bin/true", "/no/such/program"}) {
    set("sServerStartCmd", command);
    set("nStartServerWaitTime", "1");
    EXPECT_TRUE(failedWith(run({"restore", "db", "--yes", "--to-time", time}), "did not answer after the restore"));
    EXPECT_EQ(lastJob()["state"], "failed") << command;
    EXPECT_EQ(lastJob()["causes"][0]["code"], "0x57000071");
  }
  server_.start();
}

TEST_F(EnterpriseFailureTest, BackupProgramThatFailsIsToldInWords) {
  const struct {
    const char* fault;
    const char* words;
  } cases[] = {{"stream:1", "mysqlbackup failed: ERROR:"},
               {"close", "mysqlbackup failed: ERROR:"},
               {"no_error_line", "mysqlbackup failed: mysqlbackup failed."},
               {"crash:1", "mysqlbackup failed"}};
  for (const auto& [fault, words] : cases) {
    EXPECT_TRUE(failedWith(runWith(fault, {"backup", "db"}), words)) << fault;
    EXPECT_EQ(lastJob()["state"], "failed") << fault;
    EXPECT_EQ(lastJob()["causes"][0]["code"], "0x5700006b");
    EXPECT_THAT(runJson({"browse", "db"})["images"], IsEmpty()) << fault;
  }
  const std::string time = timeOf(backup());
  for (const char* fault : {"unpack", "prepare", "copy_back"}) {
    EXPECT_TRUE(failedWith(runWith(fault, {"restore", "db", "--yes", "--to-time", time}), "mysqlbackup failed: ERROR:"))
        << fault;
    EXPECT_EQ(lastJob()["state"], "failed");
  }
  EXPECT_EQ(restoreTo(time)["state"], "succeeded") << "a second try mends it";
}

TEST_F(EnterpriseFailureTest, StopsOnRequestInBackupAndRestore) {
  writeMuch();
  {
    RunningProgram program = start({"backup", "db"}, "slow:200");
    ASSERT_TRUE(moves(1));
    EXPECT_EQ(run({"job", "stop", "1"}).exitStatus, 0);
    EXPECT_TRUE(failedWith(program.wait(), "asked to stop"));
    EXPECT_EQ(job(1)["state"], "failed");
    EXPECT_THAT(images(), IsEmpty());
  }
  {
    RunningProgram program = start({"backup", "db"}, "slow:200");
    ASSERT_TRUE(moves(2));
    ::kill(program.pid(), SIGINT);
    EXPECT_EQ(program.wait().signal, SIGINT);
    EXPECT_THAT(job(2)["causes"].dump(), HasSubstr("SIGINT"));
    EXPECT_THAT(images(), IsEmpty());
  }
  const std::string before = checksum();
  const std::string time = timeOf(backup());
  RunningProgram program = start({"restore", "db", "--yes", "--to-time", time}, "slow:200");
  ASSERT_TRUE(moves(4));
  // Who presses Ctrl-C again does not break off what is put in order.
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::kill(program.pid(), signal);
  const ProgramResult ended = program.wait();
  EXPECT_NE(ended.signal, 0);
  EXPECT_THAT(ended.errors, HasSubstr(": the restore is asked to end"));
  EXPECT_THAT(ended.errors, HasSubstr("data directory is not complete"));
  EXPECT_THAT(job(4)["causes"].dump(), HasSubstr("SIG"));
  EXPECT_EQ(job(4)["state"], "failed");
  EXPECT_EQ(restoreTo(time)["state"], "succeeded") << "a second try mends it";
  EXPECT_EQ(checksum(), before);
}

TEST_F(EnterpriseFailureTest, ASignalReachesNoChild) {
  const std::string heard = directory_ / "heard";
  const std::string started = directory_ / "started";
  const std::string folder = directory_ / "bin";
  std::filesystem::create_directory(folder);
  writeFile(
      folder + "/mysqlbackup",
      "#!/bin/sh\ntrap ': >" + heard + "' INT\ntrap 'exit 1' TERM\n: >" + started + "\nwhile :; do sleep 0.02; done\n",
      0755);
  ASSERT_EQ(run({"instance", "set", "db", "--meb-bin", folder}).exitStatus, 0);
  RunningProgram program(commandLine(home(), {"backup", "db"}));
  ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(started); }));
  ::kill(program.pid(), SIGINT);
  EXPECT_EQ(program.wait().signal, SIGINT) << "the request to stop, another signal, ends the program";
  EXPECT_THAT(job(1)["causes"].dump(), HasSubstr("SIGINT"));
  EXPECT_FALSE(std::filesystem::exists(heard));
}

TEST_F(EnterpriseFailureTest, IsRefusedBeforeAnythingIsDone) {
  writeMuch();
  RunningProgram program = start({"backup", "db"}, "slow:100");
  ASSERT_TRUE(moves(1));
  const std::string during = std::to_string(std::time(nullptr));
  EXPECT_TRUE(failedWith(run({"restore", "db", "--yes", "--to-time", "now"}), "job 1 is at it"));
  EXPECT_TRUE(failedWith(run({"backup", "db"}), "job 1 is at it"));
  EXPECT_EQ(program.wait().exitStatus, 0);
  EXPECT_TRUE(failedWith(run({"restore", "db", "--plan", "--to-time", during}), "no image was made"))
      << "an image holds what was there when it was complete";

  const std::string before = checksum();
  const auto refused = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"restore", "db", "--yes", "--to-time", "now"});
    return run(more);
  };
  EXPECT_TRUE(refusedUsage(refused({"--into", ""}), "--into"));
  EXPECT_TRUE(refusedUsage(refused({"--into", "--plan"}), "--into"));
  EXPECT_TRUE(failedWith(refused({"--into", server_.dataDirectory() + "/sub"}), "data directory of db"));
  EXPECT_TRUE(failedWith(refused({"--into", server_.directory()}), "data directory of db"));
  ::kill(server_.pid(), SIGSTOP);
  EXPECT_TRUE(failedWith(refused({}), "does not answer"));
  ::kill(server_.pid(), SIGCONT);
  writeFile(directory_ / "wrong", "wrong\n", 0600);
  ASSERT_EQ(run({"instance", "set", "db", "--password-file", directory_ / "wrong"}).exitStatus, 0);
  EXPECT_TRUE(failedWith(refused({}), "1045"));
  EXPECT_EQ(checksum(), before);
  EXPECT_EQ(runJson({"job", "list"})["jobs"].size(), 1U);
}

TEST_F(EnterpriseFailureTest, KilledAgentIsFollowedByASecondTry) {
  writeMuch();
  RunningProgram program = start({"backup", "db"}, "slow:200");
  ASSERT_TRUE(moves(1));
  ::kill(program.pid(), SIGKILL);
  EXPECT_EQ(program.wait().signal, SIGKILL);
  EXPECT_EQ(runJson({"job", "list"})["jobs"][0]["state"], "died");
  // The folder of a run is named for the second in which it begins.
  const std::time_t killed = std::time(nullptr);
  ASSERT_TRUE(waitUntil([&] { return std::time(nullptr) > killed; }));
  const Json made = backup();
  EXPECT_EQ(made["state"], "succeeded");
  EXPECT_THAT(images(), testing::Contains(made["image"]["name"].get<std::string>()));

  RunningProgram restore = start({"restore", "db", "--yes", "--to-time", timeOf(made)}, "slow:200");
  ASSERT_TRUE(moves(3));
  ::kill(restore.pid(), SIGKILL);
  EXPECT_EQ(restore.wait().signal, SIGKILL);
  const std::string copies = home() + "/results/DZ_JobResults/2/0/RST";
  EXPECT_THAT(namesIn(copies), Not(IsEmpty()));
  startJobsOfOthers();
  EXPECT_EQ(restoreTo(timeOf(made))["state"], "succeeded") << lastJob();
  EXPECT_THAT(namesIn(copies), IsEmpty());
}

}  // namespace
}  // namespace orrery::test
