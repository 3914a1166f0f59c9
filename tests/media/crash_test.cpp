// A writer that is killed at any system call leaves a whole image or none.

#include <algorithm>

#include "media_test.h"

namespace orrery::test {
namespace {

using CrashTest = MediaTest;

TEST_F(CrashTest, AKilledWriterLeavesAWholeImageOrNone) {
  const std::string text = pattern(3 << 20);
  const auto write = [&](const std::string& name) {
    MediaSession session(library_);
    if (session.begin() != 0 || session.put(name, text, 1 << 20) != 0) ::_exit(1);
  };
  int whole = 0, none = 0, kills = 0;
  for (int n = 1;; ++n) {
    // Before it comes to the image, the home is opened; there every seventh call is enough.
    if (n < 60 && n % 7 != 0) continue;
    const std::string name = "image" + std::to_string(n);
    if (!killedAtSystemCall(n, [&] { write(name); })) break;
    ++kills;
    OpenSession session(library_);
    std::string back;
    const unsigned long code = session.get(name, 1 << 20, back);
    ASSERT_TRUE(code == 7502 || (code == 0 && back == text)) << n << ": " << session.error();
    (code == 0 ? whole : none) += 1;
    EXPECT_EQ(records(name).size(), code == 0 ? 1U : 0U) << "at " << n;
    const auto files = mediaFiles();
    EXPECT_TRUE(std::all_of(files.begin(), files.end(), [](const auto& file) { return file[0] != '.'; })) << n;
    if (code == 0) {
      EXPECT_EQ(session.remove(name), 0U) << session.error();
      EXPECT_TRUE(records(name).empty());
    }
  }
  EXPECT_GT(kills, 30);
  EXPECT_GT(none, 20);
  EXPECT_GT(whole, 2) << "some were killed behind the renaming";
}

TEST_F(CrashTest, AKilledRemovalLeavesNoRecordWithoutAnImage) {
  int n = 0;
  bool more = true;
  for (n = 50; more; ++n) {
    const std::string name = "image" + std::to_string(n);
    OpenSession session(library_);
    ASSERT_EQ(session.put(name, "x", 1), 0U);
    more = killedAtSystemCall(n, [&] {
      MediaSession removing(library_);
      if (removing.begin() != 0 || removing.remove(name) != 0) ::_exit(1);
    });
    std::string back;
    if (session.get(name, 1, back) == 7502) {
      EXPECT_TRUE(records(name).empty()) << n;
    } else {
      EXPECT_EQ(session.remove(name), 0U) << session.error();
    }
  }
  EXPECT_GT(n, 70);
}

}  // namespace
}  // namespace orrery::test
