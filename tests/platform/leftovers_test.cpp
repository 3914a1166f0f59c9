#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "fixtures.h"
#include "support/program.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;

/// An id that no process has: of a child that was just reaped.
pid_t goneProcess() {
  RunningProgram program({"true"});
  const pid_t id = program.pid();
  program.wait();
  return id;
}

class LeftoversTest : public ::testing::Test {
 protected:
  static std::string nameOf(pid_t process, const std::string& job = "17") {
    const std::string id = std::to_string(process);
    return "orrery_bkp_mycnf_3_1700000000_" + id + "_" + id + "_" + job + ".cnf";
  }
  void make(const std::string& name) const { writeFile(folder_ / name, "[client]\n", 0600); }
  bool isThere(const std::string& name) const { return fs::exists(fs::symlink_status(folder_ / name)); }

  const TemporaryDirectory folder_;
};

TEST_F(LeftoversTest, FilesOfGoneProcessesGoOthersStay) {
  const pid_t gone = goneProcess();
  const std::string id = std::to_string(gone);
  const std::string removable[] = {
      nameOf(gone), nameOf(gone, "0"), nameOf(gone, "-5"),
      "orrery_bkp_mycnf_-1_18446744073709551615_" + id + "_" + id + "_9223372036854775807.cnf"};
  const std::string staying[] = {
      nameOf(::getpid()),
      nameOf(::getppid()),
      nameOf(1),
      "orrery_bkp_mycnf_3_1700000000_" + id + "_" + std::to_string(::getpid()) + "_17.cnf",
      "orrery_bkp_mycnf_3_1700000000_0_0_17.cnf",
      "orrery_bkp_mycnf_3_1700000000_-1_-1_17.cnf",
      "orrery_bkp_mycnf_3_1700000000_0" + id + "_0" + id + "_17.cnf",
      "orrery_bkp_mycnf_+3_1700000000_" + id + "_" + id + "_17.cnf",
      "orrery_bkp_mycnf_3_-17_" + id + "_" + id + "_17.cnf",
      "orrery_bkp_mycnf_3_18446744073709551616_" + id + "_" + id + "_17.cnf",
      "orrery_bkp_mycnf_3_1700000000_99999999999_99999999999_17.cnf",
      "orrery_bkp_mycnf_3_1700000000_" + id + "_" + id + "_.cnf",
      "orrery_bkp_mycnf_3_1700000000_" + id + "_" + id + "_17.cnf.bak",
      "orrery_bkp_mycnf_3_1700000000_" + id + "_" + id + "_17",
      "orrery_bkp_mycnf__1700000000_" + id + "_" + id + "_17.cnf",
      "xorrery_bkp_mycnf_3_1700000000_" + id + "_" + id + "_17.cnf",
      "orrery_bkp_mycnf_.cnf",
      "replica.lock",
  };
  for (const std::string& name : removable) make(name);
  for (const std::string& name : staying) make(name);
  std::vector<std::string> removed;
  ASSERT_TRUE(succeeded(removeLeftovers(folder_.path(), &removed)));
  for (const std::string& name : removable) EXPECT_FALSE(isThere(name)) << name;
  for (const std::string& name : staying) EXPECT_TRUE(isThere(name)) << name;
  std::vector<std::string> expected;
  for (const std::string& name : removable) expected.push_back(folder_ / name);
  std::sort(expected.begin(), expected.end());
  std::sort(removed.begin(), removed.end());
  EXPECT_EQ(removed, expected);
}

TEST_F(LeftoversTest, OnlyRegularFilesGoAndLinksAreNotFollowed) {
  const pid_t gone = goneProcess();
  make("target");
  fs::create_symlink(folder_ / "target", folder_ / nameOf(gone, "1"));
  fs::create_directory(folder_ / nameOf(gone, "2"));
  ASSERT_EQ(::mkfifo((folder_ / nameOf(gone, "3")).c_str(), 0600), 0);
  ASSERT_TRUE(succeeded(removeLeftovers(folder_.path(), nullptr)));
  for (const char* job : {"1", "2", "3"}) EXPECT_TRUE(isThere(nameOf(gone, job))) << job;
  EXPECT_TRUE(isThere("target"));
  fs::create_directory_symlink(folder_.path(), folder_ / "link");
  EXPECT_TRUE(failed(removeLeftovers(folder_ / "link", nullptr), statusFailed));
}

/// Files are made for all ids that may come next, so that the next process has the id of an older file.
TEST_F(LeftoversTest, IdThatAYoungerProcessHasNowDoesNotProtect) {
  constexpr pid_t candidates = 2000;
  for (int attempt = 0; attempt < 5; ++attempt) {
    const pid_t latest = goneProcess();
    for (pid_t id = latest + 1; id <= latest + candidates; ++id) make(nameOf(id));
    const auto made = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - made > std::chrono::milliseconds(1200); }));
    const RunningProgram younger({"sleep", "300"});
    if (!isThere(nameOf(younger.pid()))) continue;  // ids began anew at 2; the next attempt is far from that
    ASSERT_TRUE(succeeded(removeLeftovers(folder_.path(), nullptr)));
    EXPECT_FALSE(isThere(nameOf(younger.pid())));
    make(nameOf(younger.pid()));
    ASSERT_TRUE(succeeded(removeLeftovers(folder_.path(), nullptr)));
    EXPECT_TRUE(isThere(nameOf(younger.pid()))) << "this one is younger than the process";
    return;
  }
  FAIL() << "no process got one of the ids";
}

TEST_F(LeftoversTest, MissingFolderIsAFailure) {
  EXPECT_TRUE(failed(removeLeftovers(folder_ / "none", nullptr), statusFailed, "none"));
}

}  // namespace
}  // namespace orrery::test
