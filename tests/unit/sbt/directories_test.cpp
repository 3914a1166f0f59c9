// What a restore looks at before it empties a directory, how it empties one, and how values reach commands.

#include <algorithm>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/arguments.h"

#include "sbt/command_values.h"
#include "sbt/directory_users.h"
#include "sbt/emptying.h"
#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using namespace mysql::sbt;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

TEST(DirectoryUser, IsWhoeverHasSomethingInIt) {
  const TemporaryDirectory folder;
  const std::string data = folder / "data";
  fs::create_directories(data + "/shop");
  fs::create_directory_symlink(data, folder / "link");
  const struct {
    const char* name;
    const char* place;
    std::string target;
    bool uses;
  } cases[] = {
      {"current directory", "cwd", data, true},
      {"current directory below", "cwd", data + "/shop", true},
      {"current directory by another path", "cwd", folder / "link", true},
      {"root", "root", data, true},
      {"open file", "fd/3", data + "/ibdata1", true},
      {"removed file", "fd/3", data + "/ibtmp1 (deleted)", true},
      {"the removed directory itself", "cwd", data + " (deleted)", true},
      {"mapped file", "maps", "7f00-7f01 r--p 00000000 08:01 77   " + data + "/aria_log\n", true},
      {"elsewhere", "cwd", folder.path(), false},
      {"a name that begins alike", "fd/3", data + "2/ibdata1", false},
      {"no file", "fd/3", "socket:[17]", false},
      {"another mapping", "maps", "7f00-7f01 r--p 00000000 08:01 77   /usr/lib/libc.so\n", false},
  };
  for (const auto& row : cases) {
    const TemporaryDirectory proc;
    for (const char* const name : {"self", "sys", "12", "13"}) fs::create_directories(proc / name + "/fd");
    writeFile(proc / "13/comm", "mariadbd\n");
    for (const char* const process : {"/12/", "/13/"}) {
      const std::string place = proc.path() + process + row.place;
      if (std::string(row.place) == "maps") {
        writeFile(place, row.target);
      } else {
        fs::create_symlink(row.target, place);
      }
    }
    EXPECT_EQ(directoryUser(folder / "link", 12, proc.path()),
              row.uses ? "process 13 (mariadbd) works in " + (folder / "link") : "")
        << row.name << ": 12 is left out";
  }
  EXPECT_THAT(directoryUser(data, 1, folder / "none"), HasSubstr("cannot be listed"));
}

TEST(DirectoryUser, IsFoundAmongTheProcessesOfThisMachine) {
  const TemporaryDirectory folder;
  EXPECT_EQ(directoryUser(folder.path(), getpid()), "");
  writeFile(folder / "file", "");
  RunningProgram program({"/bin/sh", "-c", "exec 3<\"$1\"; echo >\"$1.begun\"; exec sleep 60", "sh", folder / "file"});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(folder / "file.begun"); }));
  EXPECT_TRUE(waitUntil(
      [&] { return directoryUser(folder.path(), getpid()).find("process " + std::to_string(program.pid())) == 0; }));
}

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
  EXPECT_EQ(emptyDirectory(folder / "link"), "");
  EXPECT_TRUE(fs::is_empty(folder / "data"));
  EXPECT_EQ(fs::status(folder / "data").permissions(), fs::perms(0710));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_TRUE(fs::exists(folder / "other/kept"));
  EXPECT_THAT(emptyDirectory(folder / "other/kept"), HasSubstr("Not a directory"));
}

TEST(Emptying, SaysWhatItCannotRemove) {
  const TemporaryDirectory folder;
  fs::create_directories(folder / "data/held");
  writeFile(folder / "data/held/file", "");
  fs::permissions(folder / "data/held", fs::perms(0555));
  EXPECT_EQ(asOrdinaryUser([&] {
              return emptyDirectory(folder / "data") == (folder / "data/held/file: Permission denied") ? 0 : 1;
            }),
            0);
  fs::permissions(folder / "data/held", fs::perms(0755));
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
}

TEST(CommandValues, ReachAShellAsOneWordWhateverTheyHold) {
  const std::string texts[] = {"",       "plain/path", "a b",       "it's",  "\"quoted\"", "$HOME `id` \\$(id)",
                               "-rf \\", "*",          "new\nline", "a;b&c", "\xc3\xa9"};
  for (const std::string& text : texts) {
    for (const std::string& word : {shellWord(text), "\"" + insideDoubleQuotes(text) + "\""}) {
      std::string output;
      std::string errors;
      ASSERT_EQ(DzProcess::system("printf '%s|' " + word, output, errors), 0) << errors;
      EXPECT_EQ(output, text + "|");
    }
  }
  EXPECT_EQ(shellWord("/var/lib/mysql"), "/var/lib/mysql");
  EXPECT_EQ(shellWord("a b"), "'a b'");
}

TEST(CommandValues, AreRefusedWhereSplittingWouldChangeThem) {
  const std::string texts[] = {"plain", "a b", "a,b", "it's", "a\"b", "a\nb", std::string("a\0b", 3), ""};
  const struct {
    Place place;
    bool throughShell;
    const char* refused;  // one letter for each text
  } cases[] = {
      {Place::word, false, "-x-xxxxx"}, {Place::quoted, false, "----xxx-"}, {Place::environment, false, "--x-xxx-"},
      {Place::word, true, "------xx"},  {Place::quoted, true, "------x-"},  {Place::environment, true, "--x-xxx-"},
  };
  for (const auto& row : cases) {
    for (std::size_t i = 0; i < std::size(texts); ++i) {
      const bool isRefused = !whyNotHandedOver({{"it", texts[i], row.place}}, row.throughShell).empty();
      EXPECT_EQ(isRefused, row.refused[i] == 'x') << texts[i] << " " << row.refused;
      if (isRefused || row.throughShell) continue;
      const std::string command =
          "a " + (row.place == Place::word ? texts[i] : "--value=\"" + texts[i] + "\"") + " --last";
      const auto words = platform::splitArguments(command);
      ASSERT_EQ(words.size(), 3U) << command;
      EXPECT_EQ(words[1], (row.place == Place::word ? "" : "--value=") + texts[i]);
    }
  }
}

}  // namespace
}  // namespace orrery::test
