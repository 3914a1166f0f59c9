#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "orrery/platform/CKyDirectory.h"

#include "support/program.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

class Directory : public testing::Test {
 protected:
  mode_t modeOf(const std::string& path) const {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }
  const TemporaryDirectory place_;
};

TEST_F(Directory, HasItsModeWhateverTheUmaskAndAFileInTheWayIsTold) {
  const mode_t earlier = ::umask(0277);
  const CKyError error = CKyDirectory::Create(place_ / "a/b/c", 0730);
  ::umask(earlier);
  ASSERT_FALSE(error.isError()) << error.text();
  EXPECT_EQ(modeOf(place_ / "a"), 0711U);
  EXPECT_EQ(modeOf(place_ / "a/b"), 0711U);
  EXPECT_EQ(modeOf(place_ / "a/b/c"), 0730U);

  writeFile(place_ / "file", "");
  EXPECT_EQ(CKyDirectory::Create(place_ / "file").code(), ENOTDIR);
  EXPECT_EQ(CKyDirectory::Create(place_ / "file/below").code(), ENOTDIR);
}

TEST_F(Directory, ModeThatItsFirstUserGaveItIsNotTakenBackByWhoeverMadeIt) {
  constexpr int rounds = 3000;
  std::atomic<int> round{0};
  std::atomic<bool> isBroken{false};
  const auto pathOf = [&](int number) { return place_ / std::to_string(number); };
  std::thread maker([&] {
    for (int number = 1; number <= rounds; ++number) {
      while (round != number) std::this_thread::yield();
      if (CKyDirectory::Create(pathOf(number)).isError()) isBroken = true;
    }
  });
  for (int number = 1; number <= rounds; ++number) {
    const std::string path = pathOf(number);
    round = number;
    while (::chmod(path.c_str(), 01730) != 0 && !isBroken) {
    }
  }
  maker.join();
  ASSERT_FALSE(isBroken);
  int takenBack = 0;
  for (int number = 1; number <= rounds; ++number) {
    if (modeOf(pathOf(number)) != 01730) ++takenBack;
  }
  EXPECT_EQ(takenBack, 0);
}

}  // namespace
}  // namespace orrery::test
