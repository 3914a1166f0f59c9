#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <numeric>
#include <string>

#include "orrery/platform/DZFile.h"

#include "support/backend_test.h"
#include "support/children.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

/// Waits take no time here: the clock is a testing one.
class FileLockTest : public BackendTest {
 protected:
  int lockOf(DZFile& file, int seconds = 0) { return file.lock(DZFile::lockExclusive, seconds); }
  bool open(DZFile& file) { return file.open(path_, DZFile::modeReadWrite); }
  /// What another process is told.
  int fromAnotherProcess() {
    return inChild([&] {
      DZFile file;
      return open(file) ? lockOf(file) : 9;
    });
  }

  const TemporaryDirectory folder_;
  const std::string path_ = folder_ / "lock";
};

TEST_F(FileLockTest, ExcludesOtherObjectsOfThisProcessAndOtherProcesses) {
  DZFile first;
  DZFile second;
  ASSERT_TRUE(open(first) && open(second));
  EXPECT_GT(lockOf(first), 0);
  EXPECT_GT(lockOf(first), 0) << "its own is no obstacle";
  EXPECT_EQ(lockOf(second), 0);
  EXPECT_EQ(fromAnotherProcess(), 0);
  EXPECT_EQ(first.unlock(), 0);
  EXPECT_EQ(fromAnotherProcess(), 1);
  EXPECT_GT(lockOf(second), 0) << "the other process took its lock with it";
}

TEST_F(FileLockTest, SurvivesAnUnrelatedCloseAndEndsWithItsOwn) {
  DZFile holder;
  ASSERT_TRUE(open(holder));
  ASSERT_GT(lockOf(holder), 0);
  {
    DZFile passing;
    ASSERT_TRUE(open(passing));
  }
  EXPECT_EQ(fromAnotherProcess(), 0);
  EXPECT_EQ(holder.close(), 0);
  EXPECT_EQ(fromAnotherProcess(), 1);
}

TEST_F(FileLockTest, WaitsAsLongAsItIsTold) {
  DZFile holder;
  DZFile other;
  ASSERT_TRUE(open(holder) && open(other));
  ASSERT_GT(lockOf(holder), 0);
  EXPECT_EQ(lockOf(other, 120), 0);
  const auto sleeps = backend_.sleeps();
  EXPECT_EQ(std::accumulate(sleeps.begin(), sleeps.end(), std::int64_t{0}), 120000);
  EXPECT_LT(sleeps.size(), 3000U) << "steps of next to nothing would be busy work";
}

TEST_F(FileLockTest, FailuresAreToldApartFromABusyFile) {
  DZFile file;
  EXPECT_LT(lockOf(file), 0);
  EXPECT_EQ(file.lastError(), EBADF);
  EXPECT_LT(file.unlock(), 0);
  ASSERT_TRUE(open(file));
  EXPECT_EQ(file.unlock(), 0) << "without a lock there is nothing to fail";
  EXPECT_LT(file.lock(7, 0), 0);
  EXPECT_EQ(file.lastError(), EINVAL);
}

TEST_F(FileLockTest, APipeInTheFilesPlaceFailsInsteadOfWaiting) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  DZFile file;
  ASSERT_TRUE(open(file));
  char byte = 0;
  EXPECT_EQ(file.read(&byte, 1), -1);
  EXPECT_EQ(file.lastError(), EAGAIN);
}

}  // namespace
}  // namespace orrery::test
