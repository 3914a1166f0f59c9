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
  std::string who(const std::string& path) const { return whoCanReplace(path, geteuid()); }

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
  EXPECT_THAT(whoCanReplace(program, geteuid() + 1), HasSubstr(geteuid() == 0 ? "" : "belongs to the account"));
}

TEST_F(Replaceable, OwnersCount) {
  if (geteuid() != 0) return;
  ASSERT_EQ(chown((place_ / "bin").c_str(), 12345, 12345), 0);
  EXPECT_THAT(who(place_ / "bin/mysqld"), HasSubstr("bin belongs to the account 12345"));
  EXPECT_EQ(whoCanReplace(place_ / "bin/mysqld", 12345), "");
  ASSERT_EQ(symlink("/usr/bin", (place_ / "l").c_str()), 0);
  ASSERT_EQ(lchown((place_ / "l").c_str(), 12345, 12345), 0);
  EXPECT_THAT(who(place_ / "l/env"), HasSubstr("l belongs to the account 12345"));
}

TEST_F(Replaceable, WhatIsNoWayIsRefused) {
  ASSERT_EQ(symlink("circle", (place_ / "circle").c_str()), 0);
  EXPECT_THAT(who(place_ / "circle/mysqld"), HasSubstr("leads nowhere"));
  for (const char* path : {"", "bin/mysqld", "./mysqld"}) EXPECT_THAT(who(path), HasSubstr("no absolute path"));
  EXPECT_NE(who(std::string("/a\0b", 4)), "");
  EXPECT_EQ(who("/gone/mysqld"), "") << "and nobody else can make it";
}

}  // namespace
}  // namespace orrery::mysql::discovery
