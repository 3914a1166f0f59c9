// Whose data directory a restore leaves alone.

#include "sbt/directory_users.h"
#include "sbt/restore_fixture.h"

namespace orrery::test {
namespace {

using platform::JobState;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

using RestoreDirectory = RestoreDriver;

/// A process that works in the data directory.
class Worker {
 public:
  Worker(const std::string& directory, const std::string& begun)
      : program_({"/bin/sh", "-c", "cd \"$1\"; echo >\"$2\"; exec sleep 60", "sh", directory, begun}) {
    EXPECT_TRUE(waitUntil([&] { return fs::exists(begun); }));
    fs::remove(begun);
  }
  std::string name() const { return "process " + std::to_string(program_.pid()) + " ("; }

 private:
  RunningProgram program_;
};

TEST_F(RestoreDirectory, DirectoryThatAProcessWorksInIsWaitedForAndThenLeftAlone) {
  addImages(1);
  const struct {
    const char* name;
    int pingError;
    bool endsInTime, asksToStop;
    std::string cause;
    unsigned sleeps;
  } cases[] = {
      {"ends in time", 0, true, false, "", 0},
      {"asked to stop", 0, false, true,
       "570000f9 0 300 after the server was stopped and before anything was removed, so start the server again|", 1},
      {"stays", 0, false, false, "; the server is stopped; nothing was removed; start it again|", 60},
      {"stays where no server answered", 2002, false, false, "; nothing was stopped or removed|", 60},
  };
  for (const auto& row : cases) {
    writeJob();
    writeFile(data_ + "/old", "");
    std::unique_ptr<Worker> worker;
    Restore driver;
    driver.pingError = row.pingError;
    driver.atStop = [&] { worker = std::make_unique<Worker>(data_, folder_ / "works"); };
    atSleep_ = [&] {
      if (row.endsInTime) worker.reset();
      if (row.asksToStop) {
        EXPECT_TRUE(backend_.services()->jobs->requestQuit(jobId_).ok());
      }
    };
    const auto sleepsBefore = backend_.sleeps().size();
    EXPECT_EQ(restore(driver), row.endsInTime ? 0 : -1) << row.name;
    EXPECT_EQ(isOldThere(), !row.endsInTime) << row.name;
    if (row.endsInTime) continue;
    EXPECT_EQ(backend_.sleeps().size() - sleepsBefore, row.sleeps) << row.name;
    EXPECT_THAT(causes(), ElementsAre(testing::EndsWith(row.cause))) << row.name;
    if (!row.asksToStop) {
      EXPECT_THAT(causes().at(0),
                  AllOf(HasSubstr("57000072 0 300 " + worker->name()), HasSubstr(") works in " + data_ + ";")));
    }
    EXPECT_EQ(job().state, JobState::failed) << row.name;
  }
}

TEST_F(RestoreDirectory, DirectoryThatAnotherProgramWorksInKeepsItsServer) {
  addImages(1);
  const Worker worker(data_, folder_ / "works");
  Restore driver;
  EXPECT_EQ(restore(driver), -1);
  EXPECT_THAT(driver.asked, ElementsAre("ping"));
  EXPECT_EQ(backend_.sleeps().size(), 10U) << "one that passes by has its time";
  EXPECT_TRUE(isOldThere());
  EXPECT_THAT(causes(),
              ElementsAre(AllOf(HasSubstr("570000f7 0 300 " + worker.name()), HasSubstr(") works in " + data_ + "|"))));
}

TEST_F(RestoreDirectory, ProgramThatPassesByIsWaitedForUnlessTheJobIsToEnd) {
  addImages(1);
  for (const bool quits : {false, true}) {
    writeJob();
    writeFile(data_ + "/old", "");
    auto worker = std::make_unique<Worker>(data_, folder_ / "works");
    atSleep_ = [&] {
      if (quits) {
        EXPECT_TRUE(backend_.services()->jobs->requestQuit(jobId_).ok());
      } else {
        worker.reset();
      }
    };
    Restore driver;
    EXPECT_EQ(restore(driver), quits ? -1 : 0);
    EXPECT_EQ(isOldThere(), quits);
    if (quits) {
      EXPECT_THAT(causes(), ElementsAre("570000f9 0 300 before anything was changed|"));
    }
  }
}

TEST_F(RestoreDirectory, WhoeverWouldStayIsFoundBeforeTheStop) {
  addImages(1);
  const LockHolder holder(data_ + "/ibdata1");
  Restore driver;
  EXPECT_EQ(restore(driver), -1);
  EXPECT_THAT(driver.asked, ElementsAre("ping"));
  EXPECT_THAT(causes(), ElementsAre(HasSubstr("570000f7 0 300 process " + std::to_string(holder.pid()) + " (")));
}

TEST_F(RestoreDirectory, DirectoryThatCannotBeEmptiedKeepsItsServer) {
  addImages(1);
  const std::string kept = data_ + "/kept";
  fs::create_directories(kept);
  writeFile(kept + "/file", "");
  const bool isRoot = geteuid() == 0;
  if (isRoot) {
    for (const std::string& path : {folder_.path(), data_}) ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  } else {
    fs::permissions(kept, fs::perms(0555));
  }
  Restore driver;
  ASSERT_EQ(initialize(driver), 0);
  // An ordinary account may not write into what is root's.
  ASSERT_EQ(isRoot ? seteuid(65534) : 0, 0);
  EXPECT_EQ(driver.sbtRestoreToTime(), -1);
  ASSERT_EQ(isRoot ? seteuid(0) : 0, 0);
  fs::permissions(kept, fs::perms(0755));
  driver.cleanUp();
  EXPECT_THAT(driver.asked, testing::IsEmpty());
  EXPECT_THAT(causes(), ElementsAre("570000f7 0 300 " + kept + ": Permission denied|"));
}

TEST_F(RestoreDirectory, ServerThatAnswersAndWorksElsewhereIsNotStopped) {
  addImages(1);
  library_.variable("SHOW VARIABLES LIKE 'datadir'", "datadir", data_.c_str());
  Restore driver;
  EXPECT_EQ(restore(driver), -1);
  EXPECT_THAT(driver.asked, ElementsAre("ping"));
  EXPECT_TRUE(isOldThere());
  EXPECT_THAT(causes(), ElementsAre(HasSubstr("570000f7 0 300 the server that answers keeps its data in " + data_)));
}

TEST_F(RestoreDirectory, ProgramsThatComeAndGoLeaveItAsItIs) {
  addImages(1);
  Restore driver;
  std::unique_ptr<Worker> worker;
  int sleeps = 0;
  atSleep_ = [&] {
    // None is there at the last look, and none stays away for long enough.
    worker.reset();
    if (++sleeps % 4 == 1) worker = std::make_unique<Worker>(data_, folder_ / "works");
  };
  EXPECT_EQ(restore(driver), -1);
  EXPECT_EQ(sleeps, 60);
  EXPECT_TRUE(isOldThere());
  EXPECT_THAT(causes(), ElementsAre("57000072 0 300 programs come and go in " + data_ +
                                    "; the server is stopped; nothing was removed; start it again|"));
}

/// A program of a server's name that is started in the data directory.
class StartedServer {
 public:
  StartedServer(const std::string& directory, const std::string& folder) {
    fs::create_directories(folder);
    fs::copy_file("/bin/sleep", folder + "/mariadbd", fs::copy_options::overwrite_existing);
    program_ = std::make_unique<RunningProgram>(
        std::vector<std::string>{"/bin/sh", "-c", "cd \"$1\"; exec \"$2\" 60", "sh", directory, folder + "/mariadbd"});
    EXPECT_TRUE(waitUntil([&] { return !mysql::sbt::serverIn(directory, getpid()).empty(); }));
  }
  std::string name() const { return "process " + std::to_string(program_->pid()) + " (mariadbd)"; }

 private:
  std::unique_ptr<RunningProgram> program_;
};

TEST_F(RestoreDirectory, ServerThatSomethingElseStartsEndsTheRestore) {
  addImages(2);
  const struct {
    const char* name;
    bool isEmptied;  // when it is started
    const char* state;
    const char* applied;
  } cases[] = {{"before anything was removed", false, "nothing was removed", ""},
               {"while the first image is applied", true, "the data directory is not complete", "image1\n"}};
  for (const auto& row : cases) {
    writeJob();
    writeFile(data_ + "/old", "");
    std::unique_ptr<StartedServer> server;
    int sleeps = 0;
    atSleep_ = [&] {
      // A supervisor waits some seconds before it starts a server again.
      if (!server && (row.isEmptied ? !isOldThere() : ++sleeps == 3))
        server = std::make_unique<StartedServer>(data_, folder_ / "server");
    };
    Restore driver;
    EXPECT_EQ(restore(driver), -1) << row.name;
    ASSERT_TRUE(server) << row.name;
    EXPECT_EQ(isOldThere(), !row.isEmptied) << row.name;
    EXPECT_EQ(applied(), row.applied) << row.name;
    EXPECT_THAT(driver.asked, ElementsAre("ping", "stop")) << row.name;
    EXPECT_THAT(causes(), ElementsAre("57000072 0 300 " + server->name() + " works in " + data_ +
                                      ": something else started the server; " + row.state + "|"));
    EXPECT_EQ(job().state, JobState::failed);
  }
}

TEST_F(RestoreDirectory, NextBackupsAreFullOnesBeforeAnythingIsRemoved) {
  addImages(1);
  for (const bool fails : {false, true}) {
    writeJob();
    writeFile(data_ + "/old", "");
    ASSERT_TRUE(backend_.services()->inventory->setForceFull(backend_.defaultSubclient(instance_), false).ok());
    if (fails) backend_.failures().failNth("Inventory::setForceFull", 1, platform::Status::failure("no"));
    Restore driver;
    bool isForced = false;
    atSleep_ = [&] {
      if (isOldThere()) {
        EXPECT_FALSE(forceFull());
      } else if (driver.asked.back() == "stop") {
        isForced = isForced || forceFull();
      }
    };
    EXPECT_EQ(restore(driver), 0) << "a failure is only told";
    EXPECT_EQ(isForced, !fails) << "while the image is applied";
    EXPECT_EQ(isSaid("Failed to force FULL flags."), fails);
    EXPECT_TRUE(forceFull());
  }
}

TEST_F(RestoreDirectory, DirectoryWithALockedFileIsLeftAlone) {
  addImages(1);
  writeFile(data_ + "/ibdata1", "x");
  // Tied to the open file of this process, whose own use of the directory is nobody's but its own.
  const platform::OwnFd file(::open((data_ + "/ibdata1").c_str(), O_RDWR | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(file.get(), F_OFD_SETLK, &lock), 0);
  Restore driver;
  driver.pingError = 2002;
  EXPECT_EQ(restore(driver), -1);
  EXPECT_TRUE(isOldThere());
  EXPECT_THAT(causes(), ElementsAre("57000072 0 300 a process that cannot be seen here holds a lock on " + data_ +
                                    "/ibdata1; nothing was stopped or removed|"));
}

}  // namespace
}  // namespace orrery::test
