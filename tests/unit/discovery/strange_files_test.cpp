// Files and programs that a stranger's process names.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "discovery/bounded_file.h"
#include "discovery/replaceable.h"
#include "support/temporary_directory.h"

namespace orrery::mysql::discovery {
namespace {

using testing::HasSubstr;

TEST(StrangeFiles, NothingButPlainFilesOfABoundedSizeIsRead) {
  const test::TemporaryDirectory place;
  ASSERT_EQ(mkfifo((place / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", (place / "link").c_str()), 0);
  test::writeFile(place / "large", std::string(101, 'x'));
  const struct {
    std::string path;
    const char* reason;
  } table[] = {{place / "fifo", "no plain file"},   {place / "link", "no plain file"},
               {place.path(), "no plain file"},     {place / "large", "larger than 100 bytes"},
               {"/proc/kmsg", "no plain file"},     {"/proc/self/environ", "no plain file"},
               {place / "gone", "No such file"},    {"", "No such file"},
               {std::string("/etc\0x", 6), "null"}, {place / "large/x", "Not a directory"}};
  for (const auto& row : table) {
    std::string text;
    std::string reason;
    EXPECT_FALSE(readPlainFile(row.path, 100, text, reason)) << row.path;
    EXPECT_THAT(reason, HasSubstr(row.reason)) << row.path;
  }
  std::string text;
  std::string reason;
  EXPECT_TRUE(readPlainFile(place / "large", 101, text, reason));
  EXPECT_EQ(text.size(), 101U);
}

class Replaceable : public testing::Test {
 protected:
  Replaceable() {
    mkdir((place_ / "bin").c_str(), 0755);
    test::writeFile(place_ / "bin/mysqld", "", 0755);
  }
  static std::string who(const std::string& path) { return whoCanReplace(path, geteuid()).replaceableBy; }
  static std::string refusal(const std::string& path) { return whoCanReplace(path, geteuid()).refusal; }

  test::TemporaryDirectory place_;
};

TEST_F(Replaceable, EveryFolderAndLinkOnTheWayCounts) {
  const std::string program = place_ / "bin/mysqld";
  EXPECT_EQ(who(program), "") << "below a sticky folder, but of an own name";
  EXPECT_EQ(who("/usr/bin/env"), "");
  ASSERT_EQ(symlink((place_ / "bin").c_str(), (place_ / "l").c_str()), 0);
  EXPECT_EQ(who(place_ / "l/../bin/./mysqld"), "");
  chmod(program.c_str(), 0775);
  EXPECT_EQ(who(program), getgid() == 0 ? "" : program + " can be written by others");
  chmod(program.c_str(), 0757);
  EXPECT_THAT(who(place_ / "l/mysqld"), HasSubstr(program + " can be written by others"));
  chmod(program.c_str(), 0755);
  chmod((place_ / "bin").c_str(), 0777);
  EXPECT_THAT(who(program), HasSubstr("bin can be written by others"));
  chmod((place_ / "bin").c_str(), 01777);
  EXPECT_EQ(who(program), "");
  EXPECT_THAT(who(place_ / "bin/gone/mysqld"), HasSubstr("anybody can make it"));
  const PathVerdict found = whoCanReplace(place_ / "l/mysqld", geteuid());
  struct stat status {};
  ASSERT_EQ(stat(program.c_str(), &status), 0);
  EXPECT_EQ(found.inode, status.st_ino) << "that of the program, not of a folder or link on the way";
}

TEST_F(Replaceable, OwnersCount) {
  // Files of the test's own account are a stranger's to another one; a superuser's are to nobody and are given away.
  const bool isRoot = geteuid() == 0;
  const uid_t owner = isRoot ? 12345 : geteuid();
  const uid_t self = isRoot ? 0 : geteuid() + 1;
  ASSERT_EQ(symlink("/usr/bin", (place_ / "l").c_str()), 0);
  if (isRoot) {
    ASSERT_EQ(chown((place_ / "bin").c_str(), owner, owner), 0);
    ASSERT_EQ(lchown((place_ / "l").c_str(), owner, owner), 0);
  }
  for (const char* path : {"bin/mysqld", "l/env"}) {
    EXPECT_THAT(whoCanReplace(place_ / path, self).replaceableBy,
                HasSubstr("belongs to the account " + std::to_string(owner)));
    EXPECT_EQ(whoCanReplace(place_ / path, owner).replaceableBy, "");
  }
}

TEST_F(Replaceable, WhatIsMissingOnTheWayCanComeFromAnybody) {
  chmod((place_ / "bin").c_str(), 01777);
  for (const char* path : {"bin/gone/../mysqld", "bin/gone/../gone/x/mysqld", "gone/../bin/mysqld", "gone/mysqld"}) {
    EXPECT_THAT(who(place_ / path), HasSubstr("is not there")) << path;
  }
  EXPECT_THAT(who(place_ / "bin/../bin/gone"), HasSubstr("anybody can make it")) << "the folder above is not sticky";
  EXPECT_EQ(who(place_ / "bin/../gone"), "") << "the folder below is";
  EXPECT_EQ(whoCanReplace(place_ / "gone", geteuid()).inode, 0U);
}

TEST_F(Replaceable, NoWayLeadsThroughAProcess) {
  ASSERT_EQ(symlink("/proc/self/root/usr/bin", (place_ / "l").c_str()), 0);
  for (const std::string& path :
       {std::string("/proc/self/root/usr/bin/env"), std::string("/dev/fd/0"), place_ / "l/env"}) {
    EXPECT_THAT(refusal(path), HasSubstr("lies in /proc")) << path;
  }
}

TEST_F(Replaceable, WhatIsNoWayIsRefused) {
  ASSERT_EQ(symlink("circle", (place_ / "circle").c_str()), 0);
  EXPECT_THAT(who(place_ / "circle/mysqld"), HasSubstr("leads nowhere"));
  for (const char* path : {"", "bin/mysqld", "./mysqld"}) EXPECT_THAT(who(path), HasSubstr("no absolute path"));
  EXPECT_NE(who(std::string("/a\0b", 4)), "");
}

}  // namespace
}  // namespace orrery::mysql::discovery
