#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;

class SettingsFileTest : public OpenHomeTest {
 protected:
  std::string file() const { return inHome("settings.ini"); }
  void put(const std::string& text) const { writeFile(file(), text, 0600); }
  Settings& settings() { return *services_->settings; }
  std::optional<std::string> read(const std::string& section, const std::string& key) {
    std::optional<std::string> value;
    EXPECT_TRUE(succeeded(settings().read(section, key, value)));
    return value;
  }
};

TEST_F(SettingsFileTest, EditByHandCountsAtOnce) {
  // Same length, same moment: nothing but the content tells the two apart.
  put("[MySQL]\nkey = 1\n");
  EXPECT_EQ(read("MySQL", "key"), "1");
  put("[MySQL]\nkey = 2\n");
  EXPECT_EQ(read("MySQL", "key"), "2");
  put("[MySQL]\nkey = 33\n");
  EXPECT_EQ(read("MySQL", "key"), "33");
}

TEST_F(SettingsFileTest, FileIsReadTheWayPeopleWriteIt) {
  put("\xef\xbb\xbf; a comment\r\n"
      "[A]\r\n"
      "  indented = yes\r\n"
      "colon: value \r\n"
      "inline = value ; the reason\r\n"
      "empty =\r\n"
      "\r\n"
      "# another comment\r\n"
      "[B] ; section comment\n"
      "x=1\n"
      "[A]\n"
      "again = a second part of the section");
  EXPECT_EQ(read("A", "indented"), "yes");
  EXPECT_EQ(read("A", "colon"), "value");
  EXPECT_EQ(read("A", "inline"), "value");
  EXPECT_EQ(read("A", "empty"), "");
  EXPECT_EQ(read("B", "x"), "1");
  EXPECT_EQ(read("A", "again"), "a second part of the section");
}

struct BadText {
  const char* name;
  std::string text;
  const char* line;
};

TEST_F(SettingsFileTest, TextThatCannotBeReadNamesTheLine) {
  const BadText cases[] = {
      {"no equals sign", "[A]\nx = 1\nnonsense\n", "settings.ini line 3: "},
      {"open section", "[A\nx = 1\n", "settings.ini line 1: "},
      {"text behind section", "[A] x\n", "settings.ini line 1: "},
      {"nameless section", "[]\n", "settings.ini line 1: "},
      {"key before any section", "x = 1\n[A]\n", "settings.ini line 1: "},
      {"same key twice", "[A]\nx = 1\n\nx = 2\n", "settings.ini line 4: "},
      {"same key in a second part", "[A]\nx = 1\n[B]\n[A]\nx = 2\n", "settings.ini line 5: "},
      {"no key", "[A]\n= 1\n", "settings.ini line 2: "},
      {"null byte", std::string("[A]\nx = a\0b\n", 12), "settings.ini line 2: "},
      {"line that is too long", "[A]\nx = " + std::string(300, 'v') + "\n", "settings.ini line 2: "},
      {"section name that is too long", "[" + std::string(80, 's') + "]\nx = 1\n", "settings.ini line 2: "},
      {"section with comment inside", "[A ;B]\nx = 1\n", "settings.ini line "},
  };
  for (const BadText& bad : cases) {
    SCOPED_TRACE(bad.name);
    put(bad.text);
    std::optional<std::string> value = "before";
    std::map<std::string, std::string> values;
    EXPECT_TRUE(failed(settings().read("A", "x", value), statusFailed, bad.line));
    EXPECT_TRUE(failed(settings().list("A", values), statusFailed, bad.line));
    EXPECT_TRUE(failed(settings().write("A", "y", "1"), statusFailed, bad.line));
    EXPECT_EQ(readFile(file()), bad.text) << "a file that cannot be read is not written";
    EXPECT_EQ(value, "before");
  }
  put("[A]\nx = 1\n");
  EXPECT_EQ(read("A", "x"), "1") << "a repaired file is read again";
}

struct Change {
  const char* name;
  const char* before;
  const char* section;
  const char* key;
  const char* value;
  const char* after;
};

TEST_F(SettingsFileTest, WriteChangesOneLineAndKeepsTheRest) {
  const Change cases[] = {
      {"value", "; top\n[A]\nx = 1\ny = 2\n", "A", "x", "9", "; top\n[A]\nx = 9\ny = 2\n"},
      {"spacing and comment", "[A]\n  x\t:  old   ; why\n", "A", "x", "new", "[A]\n  x\t:  new   ; why\n"},
      {"empty value with comment", "[A]\nx = ; why\n", "A", "x", "1", "[A]\nx = 1 ; why\n"},
      {"same value", "[A]\nx=1\n", "A", "x", "1", "[A]\nx=1\n"},
      {"to empty", "[A]\nx = 1\n", "A", "x", "", "[A]\nx = \n"},
      {"new key behind the last", "[A]\nx = 1\n\n; about B\n[B]\n", "A", "y", "2",
       "[A]\nx = 1\ny = 2\n\n; about B\n[B]\n"},
      {"new key in an empty section", "[A]\n[B]\nz = 1\n", "A", "y", "2", "[A]\ny = 2\n[B]\nz = 1\n"},
      {"section in two parts", "[A]\nx = 1\n[B]\n[A]\ny = 2\n", "A", "z", "3", "[A]\nx = 1\n[B]\n[A]\ny = 2\nz = 3\n"},
      {"new section", "[A]\nx = 1\n", "B", "y", "2", "[A]\nx = 1\n\n[B]\ny = 2\n"},
      {"empty file", "", "B", "y", "2", "[B]\ny = 2\n"},
      {"no line break at the end", "[A]\nx = 1", "A", "y", "2", "[A]\nx = 1\ny = 2\n"},
      {"carriage returns", "[A]\r\nx = 1\r\n", "A", "y", "2", "[A]\r\nx = 1\r\ny = 2\r\n"},
      {"changed line keeps its carriage return", "[A]\r\nx = 1\r\n", "A", "x", "2", "[A]\r\nx = 2\r\n"},
      {"key that is part of another", "[A]\nxx = 1\nx = 2\n", "A", "x", "3", "[A]\nxx = 1\nx = 3\n"},
  };
  for (const Change& change : cases) {
    SCOPED_TRACE(change.name);
    put(change.before);
    ASSERT_TRUE(succeeded(settings().write(change.section, change.key, change.value)));
    EXPECT_EQ(readFile(file()), change.after);
    EXPECT_EQ(read(change.section, change.key), change.value);
  }
}

TEST_F(SettingsFileTest, ValueThatWouldNotReadBackIsRefused) {
  const std::string before = "[A]\nx = 1\n";
  put(before);
  for (const std::string& value : {std::string("a ;b"), std::string("; all"), std::string(300, 'v')})
    EXPECT_TRUE(failed(settings().write("A", "x", value), statusInvalid)) << value;
  EXPECT_TRUE(failed(settings().write(std::string(80, 's'), "x", "1"), statusInvalid));
  EXPECT_TRUE(failed(settings().write("A", "key ;x", "1"), statusInvalid));
  EXPECT_EQ(readFile(file()), before);
}

TEST_F(SettingsFileTest, ReplacedFileKeepsItsMode) {
  ASSERT_EQ(::chmod(file().c_str(), 0640), 0);
  ASSERT_TRUE(succeeded(settings().write("MySQL", "x", "1")));
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(SettingsFileTest, LinkIsNotFollowed) {
  writeFile(folder_ / "elsewhere.ini", "[A]\nx = 1\n");
  fs::remove(file());
  fs::create_symlink(folder_ / "elsewhere.ini", file());
  std::optional<std::string> value;
  EXPECT_TRUE(failed(settings().read("A", "x", value), statusFailed));
  EXPECT_TRUE(failed(settings().write("A", "x", "2"), statusFailed));
  EXPECT_EQ(readFile(folder_ / "elsewhere.ini"), "[A]\nx = 1\n");
}

TEST_F(SettingsFileTest, NoRoomOnTheDiskLosesNothing) {
  put("[A]\nx = 1\n");
  {
    const FullDisk full(12);
    EXPECT_TRUE(failed(settings().write("A", "yyyyyyyy", "2"), statusFailed, "write"));
  }
  EXPECT_EQ(readFile(file()), "[A]\nx = 1\n");
  EXPECT_FALSE(fs::exists(inHome(".settings.ini.new")));
}

TEST_F(SettingsFileTest, WriterKilledAnywhereLeavesOneOfTheTwo) {
  const std::string before = "[A]\nx = 1\n";
  const std::string after = "[A]\nx = 2\n";
  int n = 1;
  bool sawBefore = false;
  bool sawAfter = false;
  for (;; ++n) {
    put(before);
    const bool killed = killedAtSystemCall(n, [&] {
      if (!settings().write("A", "x", "2").ok()) ::_exit(1);
    });
    const std::string now = readFile(file());
    sawBefore = sawBefore || now == before;
    sawAfter = sawAfter || now == after;
    ASSERT_TRUE(now == before || now == after) << "killed at system call " << n << ": " << now;
    if (!killed) break;
  }
  EXPECT_TRUE(sawBefore && sawAfter);
  ASSERT_TRUE(succeeded(settings().write("A", "x", "3"))) << "what a killed writer left is no obstacle";
  EXPECT_EQ(read("A", "x"), "3");
}

TEST_F(SettingsFileTest, ManyWritersLoseNothing) {
  constexpr int processes = 4;
  constexpr std::size_t keys = 10;
  inChildrenTogether(processes, [&](int process) {
    for (std::size_t key = 0; key < keys; ++key)
      if (!settings().write("W" + std::to_string(process), "k" + std::to_string(key), "v").ok()) return 1;
    return 0;
  });
  for (int process = 0; process < processes; ++process) {
    std::map<std::string, std::string> values;
    ASSERT_TRUE(succeeded(settings().list("W" + std::to_string(process), values)));
    EXPECT_EQ(values.size(), keys);
  }
}

}  // namespace
}  // namespace orrery::test
