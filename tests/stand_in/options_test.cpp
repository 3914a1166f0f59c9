#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"

namespace orrery::standin {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

using Arguments = std::vector<std::string>;

const std::string list =
    "--sbt-environment=DzSrcClientName=c 1,DzKycmdTokenFile=,DzMySQLSBTInstance=db1,"
    "ThreadCommandLine=-j 17 -a 3:4 -at 104 -t 2";

Arguments backupLine(const Arguments& middle, const std::string& environment = list) {
  Arguments line{"--defaults-file=/f",       "-u", "agent", "--socket=/s", "--sbt-lib-path=/l", "--backup-dir=/d",
                 "--backup-image=sbt:3_17_5"};
  line.insert(line.end(), middle.begin(), middle.end());
  line.insert(line.end(), {environment, "--verbose", "--debug=all", "backup-to-image"});
  return line;
}

Arguments restoreLine(const Arguments& first, const Arguments& middle) {
  Arguments line = first;
  line.insert(line.end(), {"--backup-dir=/d", "--backup-image=sbt:3_17_5", "--sbt-lib-path=/l"});
  line.insert(line.end(), middle.begin(), middle.end());
  line.insert(line.end(), {list, "--verbose", "--debug=all", "copy-back-and-apply-log"});
  return line;
}

TEST(MysqlbackupOptions, EverythingOfABackup) {
  const Options options = parseOptions(
      backupLine({"--incremental", "--incremental-base=history:last_backup", "--no-locking", "--skip-binlog"}));
  EXPECT_EQ(options.defaultsFile + " " + options.user + " " + options.socket + " " + options.mediaLibrary + " " +
                options.backupDirectory + " " + options.imageName,
            "/f agent /s /l /d 3_17_5");
  EXPECT_TRUE(options.incremental && options.locksNothing && !options.restores);
  EXPECT_THAT(options.environment,
              ElementsAre(Pair("DzSrcClientName", "c 1"), Pair("DzKycmdTokenFile", ""),
                          Pair("DzMySQLSBTInstance", "db1"), Pair("ThreadCommandLine", "-j 17 -a 3:4 -at 104 -t 2")));
}

TEST(MysqlbackupOptions, EverythingElseIsRefused) {
  const std::string names = "--sbt-environment=DzSrcClientName=,DzKycmdTokenFile=,";
  const struct {
    const char* name;
    Arguments line;
    const char* reason;
  } cases[] = {
      {"nothing", {}, "last argument"},
      {"no command", {"--verbose"}, "last argument"},
      {"two commands", {"copy-back-and-apply-log", "backup-to-image"}, "argument 1 must be --defaults-file="},
      {"unknown option", backupLine({"--compress"}), "argument 8 must be --sbt-environment="},
      {"incremental without base", backupLine({"--incremental"}), "must be --incremental-base=history:last_backup"},
      {"base without incremental", backupLine({"--incremental-base=history:last_backup"}), "argument 8"},
      {"another base", backupLine({"--incremental", "--incremental-base=dir:/x"}), "argument 9"},
      {"no-locking alone", backupLine({"--no-locking"}), "must be --skip-binlog"},
      {"no-locking first", backupLine({"--no-locking", "--skip-binlog", "--incremental"}), "argument 10"},
      {"twice", backupLine({list}), "argument 9 must be --verbose"},
      {"quotes kept", backupLine({}, "\"" + list + "\""), "argument 8"},
      {"empty socket", {"--defaults-file=/f", "-u", "agent", "--socket=", "backup-to-image"}, "--socket= has no value"},
      {"image on disk",
       {"--backup-dir=/d", "--backup-image=/x", "copy-back-and-apply-log"},
       "argument 2 must be --backup-image=sbt:"},
      {"no target", restoreLine({}, {}), "give --datadir=DIR"},
      {"base in a restore", restoreLine({}, {"--incremental", "--incremental-base=history:last_backup"}), "argument 5"},
      {"environment cut", backupLine({}, names), "DzMySQLSBTInstance="},
      {"environment in another order", backupLine({}, "--sbt-environment=DzKycmdTokenFile=,DzSrcClientName=,"),
       "DzSrcClientName="},
      {"environment with more", backupLine({}, list + ",More=1"), "ThreadCommandLine="},
      {"environment without its last comma", backupLine({}, names + "DzMySQLSBTInstance=db1"), "comma"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    try {
      parseOptions(row.line);
      ADD_FAILURE() << "was taken";
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr(row.reason));
    }
  }
}

}  // namespace
}  // namespace orrery::standin
