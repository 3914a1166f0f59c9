#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orrery/platform/DZFile.h"

#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

class Links : public testing::Test {
 protected:
  std::string link(const std::string& target, const std::string& name) const {
    EXPECT_EQ(::symlink(target.c_str(), (folder_ / name).c_str()), 0);
    return folder_ / name;
  }
  void directory(const std::string& name) const { EXPECT_EQ(::mkdir((folder_ / name).c_str(), 0700), 0); }
  std::string resolved(const std::string& path) const {
    std::string physical = "before";
    const CKyError error = UnixSymbolicLink::getPhysicalPath(path, physical);
    return error.isError() ? error.text() : physical;
  }

  TemporaryDirectory folder_;
};

TEST_F(Links, AreToldFromWhatTheyLeadTo) {
  directory("d");
  bool isLink = true;
  EXPECT_FALSE(CKyPath::IsLink(folder_ / "d", isLink).isError());
  EXPECT_FALSE(isLink);
  EXPECT_FALSE(CKyPath::IsLink(link("nowhere", "l"), isLink).isError());
  EXPECT_TRUE(isLink);
  EXPECT_EQ(CKyPath::IsLink(folder_ / "missing", isLink).code(), ENOENT);
  EXPECT_TRUE(isLink) << "written on success only";
}

TEST_F(Links, AreFollowedToTheEnd) {
  directory("d");
  directory("d/e");
  link("d", "one");
  EXPECT_EQ(resolved(link("one/e/..", "two")), folder_ / "d");
}

TEST_F(Links, ThatLeadNowhereGiveWhatTheyName) {
  directory("d");
  directory("d/e");
  link("d/e", "e");
  EXPECT_EQ(resolved(link("gone", "l")), folder_ / "gone");
  EXPECT_EQ(resolved(link("/gone/../far", "absolute")), "/far");
  link("../gone", "d/e/up");
  EXPECT_EQ(resolved(folder_ / "e/up"), folder_ / "d/gone") << "counted from the folder that holds the link";
  EXPECT_EQ(resolved(link("circle", "circle")), folder_ / "circle");
  EXPECT_NE(resolved(folder_ / "missing").find("No such file"), std::string::npos);
}

}  // namespace
}  // namespace orrery::test
