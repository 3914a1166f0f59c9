// Whose data directory a restore leaves alone.

#include <fcntl.h>

#include "sbt/restore_fixture.h"

namespace orrery::test {
namespace {

using platform::JobState;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
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
  EXPECT_THAT(driver.asked, IsEmpty());
  EXPECT_TRUE(isOldThere());
  EXPECT_THAT(causes(),
              ElementsAre(AllOf(HasSubstr("570000f7 0 300 " + worker.name()), HasSubstr(") works in " + data_ + "|"))));
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
