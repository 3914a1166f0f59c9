// How a restore empties a directory, and what it looks at before.

#include "sbt/emptying.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "orrery/mysql/MySqlSBTRestoreUtils.h"

#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using namespace mysql::sbt;
using testing::HasSubstr;
namespace fs = std::filesystem;

TEST(Emptying, RemovesWhatADirectoryHoldsAndFollowsNoLink) {
  const TemporaryDirectory folder;
  fs::create_directories(folder / "data/a/b");
  fs::create_directory(folder / "other");
  writeFile(folder / "other/kept", "");
  writeFile(folder / "data/a/b/it's a \"file\"", "");
  fs::create_directory_symlink(folder / "other", folder / "data/link");
  fs::create_symlink(folder / "nowhere", folder / "data/a/dangling");
  fs::create_directory_symlink(folder / "data", folder / "link");
  fs::permissions(folder / "data", fs::perms(0710));
  const Emptied emptied = emptyDirectory(folder / "link");
  EXPECT_EQ(emptied.problem, "");
  EXPECT_TRUE(emptied.any);
  EXPECT_TRUE(fs::is_empty(folder / "data"));
  EXPECT_EQ(fs::status(folder / "data").permissions(), fs::perms(0710));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_TRUE(fs::exists(folder / "other/kept"));
  EXPECT_THAT(emptyDirectory(folder / "other/kept").problem, HasSubstr("Not a directory"));
  EXPECT_FALSE(emptyDirectory(folder / "other/kept").any);
}

TEST(Emptying, WhatCannotBeRemovedIsToldBeforeAnythingIs) {
  const bool isRoot = geteuid() == 0;  // only root can make what is another's
  const uid_t own = isRoot ? 65534 : geteuid();
  const uid_t other = isRoot ? 0 : own;
  const struct {
    const char* name;
    uid_t owner;
    unsigned mode;
    uid_t ownerOfContent;
    bool isFilled, needsRoot;
    const char* problem;
  } cases[] = {
      {"not to be written", own, 0555, own, true, false, "/z: Permission denied"},
      {"not to be written, and empty", own, 0555, own, false, false, ""},
      {"not to be searched", own, 0666, own, true, false, "/z: Permission denied"},
      {"another's", other, 0755, own, true, true, "/z: Permission denied"},
      {"another's, open to all", other, 0777, other, true, true, ""},
      {"sticky and another's", other, 01777, other, true, true, "/z/in: Operation not permitted"},
      {"sticky and another's, our own in it", other, 01777, own, true, true, ""},
      {"sticky and our own", own, 01755, other, true, true, ""},
  };
  for (const auto& row : cases) {
    if (row.needsRoot && !isRoot) continue;
    const TemporaryDirectory folder;
    const std::string data = folder / "data";
    fs::create_directories(data + "/a/z");
    writeFile(data + "/first", "");
    if (row.isFilled) writeFile(data + "/a/z/in", "");
    if (isRoot) {
      for (const std::string& path : {folder.path(), data, data + "/a"}) ASSERT_EQ(chown(path.c_str(), own, own), 0);
      ASSERT_EQ(chown((data + "/a/z").c_str(), row.owner, row.owner), 0);
      if (row.isFilled) {
        ASSERT_EQ(chown((data + "/a/z/in").c_str(), row.ownerOfContent, row.ownerOfContent), 0);
      }
    }
    fs::permissions(data + "/a/z", fs::perms(row.mode));
    const std::string problem = *row.problem == '\0' ? "" : data + "/a" + row.problem;
    EXPECT_EQ(asOrdinaryUser([&] {
                if (whyNotEmptied(data) != problem || !fs::exists(data + "/first")) return 1;
                const Emptied emptied = emptyDirectory(data);
                if (emptied.problem != problem || emptied.any != problem.empty()) return 2;
                return fs::exists(data + "/first") == problem.empty() ? 3 : 0;
              }),
              0)
        << row.name;
    if (fs::exists(data + "/a/z")) fs::permissions(data + "/a/z", fs::perms(0755));
  }
  EXPECT_EQ(whyNotEmptied("/nowhere"), "");
}

/// Not every file system has such flags, nor every account the right to set them.
bool setFlag(const std::string& path, int flag) {
  const platform::OwnFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return ioctl(file.get(), FS_IOC_SETFLAGS, &flag) == 0;
}

TEST(Emptying, WhatIsHeldByAFlagIsToldToRootAsWell) {
  for (const char* const name : {"", "/a", "/a/file"}) {
    for (const int flag : {FS_IMMUTABLE_FL, FS_APPEND_FL}) {
      const TemporaryDirectory folder;
      const std::string data = folder / "data";
      fs::create_directories(data + "/a");
      writeFile(data + "/a/file", "");
      writeFile(data + "/file", "");
      const bool isSet = setFlag(data + name, flag);
      const Emptied emptied = emptyDirectory(data);
      if (isSet) {
        ASSERT_TRUE(setFlag(data + name, 0));
      }
      EXPECT_EQ(emptied.problem, isSet ? data + name + ": it is marked as immutable or append-only" : "");
      EXPECT_EQ(emptied.any, !isSet);
    }
  }
}

TEST(Emptying, FolderThatCannotBeEnteredIsFoundFirst) {
  const int result = asOrdinaryUser([] {
    const TemporaryDirectory folder;
    const auto close = [&](const char* name) { fs::permissions(folder / name, fs::perms::none); };
    for (const char* const name : {"data/lost+found", "data/empty", "data/held"}) fs::create_directories(folder / name);
    for (const char* const name : {"data/a", "data/lost+found/file", "data/held/file"}) writeFile(folder / name, "");
    for (const char* const name : {"data/lost+found", "data/empty", "data/held"}) close(name);
    const Emptied first = emptyDirectory(folder / "data");
    if (first.problem != (folder / "data/held: Permission denied") || first.any || !fs::exists(folder / "data/a"))
      return 1;
    fs::permissions(folder / "data/held", fs::perms(0700));
    const Emptied second = emptyDirectory(folder / "data");
    fs::permissions(folder / "data/lost+found", fs::perms(0700));
    const auto left = std::distance(fs::directory_iterator(folder / "data"), fs::directory_iterator());
    return second.problem.empty() && left == 1 && fs::exists(folder / "data/lost+found/file") ? 0 : 2;
  });
  EXPECT_EQ(result, 0);
}

TEST(Emptying, MountsBelowAreFoundBeforehand) {
  const TemporaryDirectory folder;
  fs::create_directory(folder / "my data");
  std::string escaped = folder / "my\\040data";
  const struct {
    std::string place;
    bool below;
  } cases[] = {{"/", false}, {escaped, false}, {escaped + "2/x", false}, {escaped + "/innodb\\134logs", true}};
  for (const auto& row : cases) {
    writeFile(folder / "mountinfo", "22 1 8:1 / " + row.place + " rw,relatime - ext4 /dev/sda1 rw\n");
    EXPECT_EQ(mountBelow(folder / "my data", folder / "mountinfo"),
              row.below ? folder / "my data/innodb\\logs: something is mounted there" : "");
  }
  EXPECT_THAT(mountBelow(folder.path(), folder / "none"), HasSubstr("cannot be read"));
  EXPECT_EQ(mountBelow(folder / "none"), "");
  EXPECT_NE(mountBelow("/"), "") << "the system's own table";
  EXPECT_THAT(MySqlSBTRestoreUtils::whyNotEmptied("/"), HasSubstr("something is mounted there"));
}

}  // namespace
}  // namespace orrery::test
