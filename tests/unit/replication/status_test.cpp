#include "replication/status.h"

#include <iterator>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using orrery::mysql::readReplicationStatus;
using orrery::mysql::ReplicationStatus;
using Values = std::list<std::string>;

/// The columns of a MariaDB 10.11 replica that runs, as the client library hands them over.
Values runningRow() {
  std::istringstream text(
      "Waiting for master to send event|127.0.0.1|replica|23502|1|mysql-bin.000003|774|mariadbd-relay-bin.000002|1073|"
      "mysql-bin.000002|Yes|Yes|||||||0||0|4711|1385|None||0|No||||||0|No|0||0|||1|||Slave_Pos|0-1-3|||optimistic|0|"
      "NULL|"
      "Slave has read all relay log; waiting for more updates|2|0|1||");
  Values row;
  for (std::string column; std::getline(text, column, '|');) row.push_back(column);
  return row;
}
const std::string header1 = "*************************** 1. row ***************************";
const std::string header2 = "*************************** 2. row ***************************";
const std::string duplicate =
    "Error 'Duplicate entry '1' for key 'PRIMARY'' on query. Default database: 'shop'. Query: 'insert into t\n"
    "values\n(1)'";

struct Change {
  std::size_t position;
  std::string value;
};

Values rowWith(const std::vector<Change>& changes) {
  Values row = runningRow();
  for (const Change& change : changes) *std::next(row.begin(), static_cast<long>(change.position)) = change.value;
  return row;
}

/// As a client prints the row with one column per line: values with line feeds break.
Values listing(const Values& row, const std::string& header = header1) {
  Values lines{header};
  for (const std::string& value : row) {
    for (std::size_t start = 0;;) {
      const std::size_t end = value.find('\n', start);
      lines.push_back(value.substr(start, end - start));
      if (end == std::string::npos) break;
      start = end + 1;
    }
  }
  return lines;
}

TEST(ReplicationStatus, OfTheThreads) {
  const struct {
    const char* what;
    std::vector<Change> changes;
    bool runs;
    bool isOdd;
  } table[] = {
      {"running", {}, true, false},
      {"both stopped", {{0, ""}, {10, "No"}, {11, "No"}}, false, false},
      {"SQL thread stopped", {{11, "No"}}, false, false},
      {"primary gone", {{0, "Connecting to master"}, {10, "Connecting"}, {34, "2003"}}, false, false},
      {"just started", {{10, "Preparing"}}, false, false},
      {"another case", {{10, "YES"}}, false, true},
      {"a longer word", {{11, "Yes "}}, false, true},
      // What stands at the threads' places may then be anybody's text.
      {"a position that is none", {{6, "mysql-bin.000003"}}, false, true},
      {"a port that is a line of the user's name", {{3, "Yes"}}, false, true},
      {"an error number that is none", {{18, "none"}}, true, true},
  };
  for (const auto& row : table) {
    for (const Values& values : {rowWith(row.changes), listing(rowWith(row.changes))}) {
      const ReplicationStatus status = readReplicationStatus(values);
      EXPECT_TRUE(status.isRow) << row.what;
      EXPECT_EQ(status.runs(), row.runs) << row.what;
      EXPECT_EQ(status.oddity.empty(), !row.isOdd) << row.what << ": " << status.oddity;
      EXPECT_EQ(status.relayMasterLogFile, "mysql-bin.000002") << row.what;
      EXPECT_EQ(status.execMasterLogPos, "4711") << row.what;
    }
  }
}

TEST(ReplicationStatus, EveryFilterMakesItPartial) {
  EXPECT_FALSE(readReplicationStatus(rowWith({})).isFiltered());
  for (std::size_t i = 0; i < 6; ++i) {
    const ReplicationStatus status = readReplicationStatus(rowWith({{12 + i, "shop"}}));
    EXPECT_TRUE(status.runs() && status.isFiltered()) << i;
    EXPECT_EQ(status.filters[i], "shop");
  }
  EXPECT_FALSE(readReplicationStatus(rowWith({{23, "Master"}, {38, "7"}})).isFiltered()) << "other columns are none";
}

TEST(ReplicationStatus, ColumnsBehindAValueOfSeveralLinesAreFoundAgain) {
  const struct {
    const char* what;
    std::string error, ioError;
  } table[] = {
      {"a statement over three lines", duplicate, ""},
      {"an empty line in it", "one\n\nthree", ""},
      {"a line that is a number", "one\n0\n0\n0", ""},
      {"an error of the other thread", "", "got fatal error\n\nfrom master"},
      {"both", duplicate, "a\nb"},
  };
  for (const auto& row : table) {
    const Values values = rowWith(
        {{11, "No"}, {18, "1062"}, {19, row.error}, {34, "1236"}, {35, row.ioError}, {36, "1062"}, {37, "first line"}});
    for (const Values& form : {values, listing(values)}) {
      const ReplicationStatus status = readReplicationStatus(form);
      EXPECT_FALSE(status.runs()) << row.what;
      EXPECT_EQ(status.oddity, "") << row.what;
      EXPECT_EQ(status.lastErrno, "1062");
      EXPECT_EQ(status.lastError, row.error) << row.what;
      EXPECT_EQ(status.execMasterLogPos, "4711") << row.what;
      EXPECT_EQ(status.lastIoErrno, "1236") << row.what;
      EXPECT_EQ(status.lastIoError, row.ioError) << row.what;
      EXPECT_EQ(status.lastSqlErrno, "1062") << row.what;
      EXPECT_EQ(status.lastSqlError, "first line") << row.what;
    }
  }
}

TEST(ReplicationStatus, OfSeveralSourcesIsThatOfTheWorst) {
  const auto both = [](const Values& first, const Values& second) {
    Values lines = listing(first);
    lines.splice(lines.end(), listing(second, header2));
    return readReplicationStatus(lines);
  };
  const Values runs = rowWith({});
  const Values stopped = rowWith({{10, "No"}, {11, "No"}, {9, "of-the-stopped"}});
  const Values filtered = rowWith({{13, "test"}});
  EXPECT_TRUE(both(runs, runs).runs());
  EXPECT_FALSE(both(runs, stopped).runs()) << "a replica one of whose sources stands does not run";
  EXPECT_EQ(both(runs, stopped).relayMasterLogFile, "of-the-stopped");
  EXPECT_FALSE(both(stopped, runs).runs());
  EXPECT_TRUE(both(runs, filtered).runs());
  EXPECT_TRUE(both(runs, filtered).isFiltered());
  EXPECT_FALSE(both(runs, {"cut", "off"}).isRow);
}

TEST(ReplicationStatus, TooShortARowTellsNothing) {
  for (const std::size_t size : {0, 1, 11, 17}) {
    Values values = rowWith({});
    values.resize(size);
    const ReplicationStatus status = readReplicationStatus(values);
    EXPECT_FALSE(status.isRow || status.runs()) << size;
    EXPECT_NE(status.oddity.find("only " + std::to_string(size)), std::string::npos) << status.oddity;
  }
  Values upToFilters = rowWith({});
  upToFilters.resize(18);
  const ReplicationStatus status = readReplicationStatus(upToFilters);
  EXPECT_TRUE(status.isRow && status.runs()) << "the threads are told";
  EXPECT_NE(status.oddity, "") << "but it is odd";
  EXPECT_EQ(status.execMasterLogPos, "");
}

TEST(ReplicationStatus, WhatIsNoPositionIsNotKeptAsOne) {
  const ReplicationStatus status = readReplicationStatus(rowWith({{21, "text"}, {22, "text"}}));
  EXPECT_EQ(status.execMasterLogPos, "");
  EXPECT_EQ(status.lastIoErrno, "0") << "the others stay at their positions";
  EXPECT_NE(status.oddity.find("end of Last_Error"), std::string::npos);
}

}  // namespace
