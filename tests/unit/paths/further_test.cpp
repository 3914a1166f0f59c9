// What lies outside a data directory: its geometry, and servers that are not at hand for the integration tests.

#include <sys/stat.h>
#include <unistd.h>

#include "access/library_fixture.h"
#include "paths/further_places.h"
#include "paths/rows.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

using mysql::FurtherPath;
using mysql::paths::FurtherPlaces;
using testing::ElementsAre;

auto place(const std::string& kind, const std::string& path) {
  return testing::AllOf(testing::Field(&FurtherPath::kind, kind), testing::Field(&FurtherPath::path, path));
}

TEST(BatchOutput, IsReadBackAsTheServerHasIt) {
  using mysql::paths::Row;
  EXPECT_THAT(mysql::paths::rowsOf("a\tb\n\tc\\td\\n\\\\e\t\nlast"),
              ElementsAre(Row{"a", "b"}, Row{"", "c\td\n\\e", ""}, Row{"last"}));
  EXPECT_TRUE(mysql::paths::rowsOf("").empty());
}

class Places : public SessionTest {
 protected:
  Places() {
    for (const char* name : {"data", "data2", "data/sub"}) EXPECT_EQ(::mkdir((folder_ / name).c_str(), 0700), 0);
    EXPECT_EQ(::symlink("data", (folder_ / "link").c_str()), 0);
    EXPECT_EQ(places_.setDataDirectory(folder_ / "link/"), 0);
  }

  TemporaryDirectory folder_;
  EvEvent log_;
  FurtherPlaces places_{log_, "test"};
};

TEST_F(Places, AreOutsideByWholeNamesBehindTheirLinks) {
  places_.addDirectory("undo", folder_ / "data2/", "beside");
  places_.addDirectory("redo_log", folder_ / "link/sub", "inside");
  places_.addDirectory("aria_log", "./", "inside");
  places_.addFile("tablespace", "../data/x", "inside");
  places_.addFile("tablespace", "../y", "above");
  places_.addFile("tablespace", "sub/../../data2/z", "beside");
  ASSERT_EQ(::symlink("../data2", (folder_ / "data/out").c_str()), 0);
  places_.addDirectory("binary_log", "out", "behind a link");
  EXPECT_THAT(places_.take(), ElementsAre(place("undo", folder_ / "data2"), place("tablespace", folder_ / "data2/z"),
                                          place("tablespace", folder_ / "y"), place("binary_log", folder_ / "data2")));
}

TEST_F(Places, AreNamedOncePerKindAndNotBelowAnother) {
  places_.addFile("table", "/early/x", "found before what covers it");
  places_.addDirectory("undo", "/u", "first");
  places_.addFile("undo", "/u/a", "in it");
  places_.addFile("tablespace", "/u/a", "of another kind");
  places_.addFile("tablespace", "/u/a", "again");
  places_.addPhysical("database", "/early", "db", true);
  places_.cover("/early");
  places_.addFile("tablespace", "/early/db/t.ibd", "covered");
  const auto found = places_.take();
  EXPECT_THAT(found, ElementsAre(place("undo", "/u"), place("tablespace", "/u/a"), place("database", "/early")));
  EXPECT_EQ(found[1].note, "of another kind");
}

TEST_F(Places, NeedADataDirectoryOnThisMachine) {
  FurtherPlaces places(log_, "test");
  EXPECT_EQ(places.setDataDirectory(folder_ / "missing"), -1);
  EXPECT_EQ(places.setDataDirectory("./"), -1);
  EXPECT_EQ(places.setDataDirectory(""), -1);
}

class FurtherPathsOf : public LibraryModeTest {
 protected:
  static constexpr const char* askVariables =
      "show variables where Variable_name in ('datadir', 'innodb_data_home_dir', 'innodb_data_file_path', "
      "'innodb_undo_directory', 'innodb_doublewrite_dir', 'innodb_log_group_home_dir', 'log_bin_basename', "
      "'log_bin_index', 'relay_log_basename', 'relay_log_index', 'relay_log_info_file', 'aria_log_dir_path')";
  static constexpr const char* askMariaDb =
      "select NAME, FILENAME, '' from information_schema.INNODB_SYS_TABLESPACES where (FILENAME not like './%' or "
      "FILENAME like '%/../%')";
  static constexpr const char* askEarlier =
      "select '', PATH, '' from information_schema.INNODB_SYS_DATAFILES where (PATH not like './%' or PATH like "
      "'%/../%')";
  static constexpr const char* askMySql =
      "select TABLESPACE_NAME, FILE_NAME, FILE_TYPE from information_schema.FILES where ENGINE='InnoDB' and (FILE_NAME "
      "not like './%' or FILE_NAME like '%/../%')";

  void SetUp() override {
    library_.give(askVariables, 2,
                  {"datadir", data_.path().c_str(), "innodb_doublewrite_dir", "/dblwr", "innodb_undo_directory", "./",
                   "log_bin_basename", "", "innodb_log_group_home_dir", "/redo"});
    ASSERT_EQ(session_.Init(add("/run/db.sock")), 0) << failure();
  }

  TemporaryDirectory data_;
  std::vector<FurtherPath> found_{{"before", "/before", ""}};
};

TEST_F(FurtherPathsOf, AServerThatListsItsFilesElsewhere) {
  library_.refuse(askMariaDb, 1109, "Unknown table");
  library_.refuse(askEarlier, 1054, "Unknown column");
  library_.give(
      askMySql, 3,
      {"innodb_system", "ibdata1", "TABLESPACE", "innodb_temporary", "/t/ibtmp1", "TEMPORARY", "undo3",
       "/far/undo3.ibu", "UNDO LOG", "general", "/far/ts.ibd", "TABLESPACE", "d/t", "/far/d/t.ibd", "TABLESPACE"});
  ASSERT_EQ(session_.findFurtherPaths(found_), 0) << failure();
  EXPECT_THAT(found_,
              ElementsAre(place("before", "/before"), place("undo", "/far/undo3.ibu"), place("doublewrite", "/dblwr"),
                          place("tablespace", "/far/d/t.ibd"), place("tablespace", "/far/ts.ibd")))
      << "the map of library mode names the redo log";
  EXPECT_EQ(session_.iErrorCode, 0) << "what is passed over is no failure";
  EXPECT_TRUE(logged("the server has no variable aria_log_dir_path: passed over"));
}

TEST_F(FurtherPathsOf, AServerThatRefusesAnswersAreAFailure) {
  library_.refuse(askMariaDb, 1227, "Access denied; you need the PROCESS privilege");
  EXPECT_EQ(session_.findFurtherPaths(found_), -1);
  EXPECT_EQ(session_.iErrorCode, 1227);
  library_.forgetAnswers();
  EXPECT_EQ(session_.findFurtherPaths(found_), -1);
  EXPECT_EQ(found_.size(), 1U) << "stays on failure";
  GetMySqlInfo unusable;
  EXPECT_EQ(unusable.findFurtherPaths(found_), -1);
}

}  // namespace
}  // namespace orrery::test
