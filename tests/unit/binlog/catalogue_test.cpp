// Both modes against servers of one script, so that what they do alike and what they do differently stands side by
// side.

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <utility>

#include "access/library_fixture.h"
#include "support/mode.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

namespace property = platform::property;
using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::list<std::string>;

class Catalogue : public LibraryModeTest, public testing::WithParamInterface<Mode> {
 protected:
  Catalogue() {
    // Files named for statements hold the rows that the client prints; the client library is told the same ones.
    const std::string rows = "\"" + folder_.path() + "/$2\"";
    writeFile(bin_ / "mysql",
              "#!/bin/sh\nwhile [ \"$1\" != -e ]; do shift; done\necho \"$2\" >>" + folder_ / "asked" + "\n[ -f " +
                  rows + " ] && exec cat " + rows +
                  "\necho 'ERROR 1064 (42000) at line 1: You have an error' >&2\nexit 1\n",
              0755);
    library_->unknown_error = 1064;
    answer("SHOW VARIABLES LIKE 'log_bin'", "log_bin\tON\n");
  }

  static bool isCommandMode() { return GetParam() == Mode::command; }
  void answer(const std::string& statement, const std::string& rows) {
    writeFile(folder_ / statement, rows);
    answers_[statement] = rows;
    tellTheLibrary();
  }
  void rejectFromNowOn(const std::string& statement) {
    std::filesystem::remove(folder_ / statement);
    answers_.erase(statement);
    tellTheLibrary();
  }
  void tellTheLibrary() {
    library_.forgetAnswers();
    for (const auto& [statement, rows] : answers_) {
      cells_.emplace_back();
      std::istringstream lines(rows);
      for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        for (std::string cell; std::getline(columns, cell, '\t');) cells_.back().push_back(cell);
      }
      const auto count = static_cast<std::size_t>(std::count(rows.begin(), rows.end(), '\n'));
      std::vector<const char*> pointers;
      for (const std::string& cell : cells_.back()) pointers.push_back(cell.c_str());
      library_.give(statement.c_str(), count == 0 ? 2 : static_cast<unsigned>(pointers.size() / count), pointers);
    }
  }
  /// Statements since the last call.
  std::vector<std::string> asked() {
    const std::string query = isCommandMode() ? "" : "query ";
    std::istringstream lines(isCommandMode() ? byClient() : library_.calls());
    std::vector<std::string> statements;
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind(query, 0) == 0) statements.push_back(line.substr(query.size()));
    }
    return statements;
  }
  std::string byClient() const {
    const std::string file = folder_ / "asked";
    std::string text = ::access(file.c_str(), F_OK) == 0 ? readFile(file) : "";
    ::unlink(file.c_str());
    return text;
  }
  std::unique_ptr<GetMySqlInfo> open(long instance) const {
    std::unique_ptr<GetMySqlInfo> session(isCommandMode() ? new GetMySqlInfo : new GetMySqlInfoExt);
    EXPECT_EQ(session->Init(instance), 0) << session->strErrorString;
    return session;
  }
  std::map<std::string, std::string> scripted() const {
    auto values = properties();
    values[property::binaryPath] = bin_.path();
    return values;
  }
  std::unique_ptr<GetMySqlInfo> open() { return open(static_cast<long>(backend_.addInstance("scripted", scripted()))); }
  std::unique_ptr<GetMySqlInfo> openCloud() { return open(addCloud("db.example:3306", bin_.path())); }

  TemporaryDirectory folder_;
  TemporaryDirectory bin_;
  std::map<std::string, std::string> answers_;
  std::list<std::vector<std::string>> cells_;
};

INSTANTIATE_TEST_SUITE_P(Modes, Catalogue, bothModes(), nameOfMode);

TEST_P(Catalogue, AServerWithoutBinaryLogsIsNoErrorAndIsNotAskedForThem) {
  answer("SHOW VARIABLES LIKE 'log_bin'", "log_bin\tOFF\n");
  const auto session = open();
  EXPECT_EQ(session->iSessionMode, 2) << "unknown before the first question";
  EXPECT_EQ(session->FindBinLogStatus(), 0);
  EXPECT_EQ(session->iSessionMode, 0);
  EXPECT_TRUE(logged("GetLogbinStatus Success...log bin value: OFF"));
  Names logs{"before"};
  long first = -7, last = -8;
  EXPECT_EQ(session->FindMasterLogs(logs, true), 0);
  EXPECT_EQ(session->FindMasterLogs(logs, &first, &last), 0);
  EXPECT_THAT(logs, ElementsAre("before"));
  EXPECT_EQ(first, -7);
  EXPECT_EQ(last, -8);
  EXPECT_THAT(asked(), testing::Each("SHOW VARIABLES LIKE 'log_bin'"));
}

TEST_P(Catalogue, AServerThatDoesNotAnswerLeavesTheStateUnknown) {
  const auto session = open();
  EXPECT_EQ(session->FindBinLogStatus(), 1);
  rejectFromNowOn("SHOW VARIABLES LIKE 'log_bin'");
  EXPECT_EQ(session->FindBinLogStatus(), -1);
  EXPECT_EQ(session->iSessionMode, 2);
  EXPECT_EQ(session->iErrorCode, 1064);
  Names logs;
  long number = 0;
  EXPECT_EQ(session->FindMasterLogs(logs, false), -1);
  EXPECT_EQ(session->FindMasterLogs(logs, &number, &number), -1);
  EXPECT_TRUE(logged(isCommandMode() ? "GetMySqlInfo::FindBinLogStatus() failed" : "checking bin log status failed"));
  if (!isCommandMode()) {
    EXPECT_EQ(session->LastLogName(), -1);
  }
}

struct Range {
  const char* name;
  const char* rows;
  std::pair<long, long> command;
  std::pair<long, long> library;
};
constexpr long kept = -1;
const Range kRanges[] = {
    {"ordinary", "mysql-bin.000007\t1\nmysql-bin.000010\t1\nmysql-bin.000012\t1\n", {7, 12}, {7, 12}},
    {"a single log", "mysql-bin.000042\t328\n", {42, 42}, {42, 42}},
    {"a third column", "mysql-bin.000003\t120\tNo\nmysql-bin.000004\t1\tNo\n", {3, 4}, {3, 4}},
    {"numbers that outgrow their digits", "b.999999\t1\nb.1000000\t1\n", {999999, 1000000}, {999999, 1000000}},
    {"a base name with a dot", "my.shop.000007\t1\nmy.shop.000012\t1\n", {7, 12}, {7, 12}},
    {"no logs", "", {kept, kept}, {kept, kept}},
    {"names without a number", "nodot\t1\n", {kept, kept}, {kept, kept}},
    {"kept: command mode takes the first name's dot for both", "a.000001\t1\nlonger.000009\t1\n", {1, 0}, {1, 9}},
    {"a last name that ends before it", "longer.000001\t1\nb.2\t1\n", {1, kept}, {1, 2}},
};

TEST_P(Catalogue, NumbersOfTheFirstAndTheLastLog) {
  const auto session = open();
  for (const Range& range : kRanges) {
    SCOPED_TRACE(range.name);
    backend_.log().clear();
    answer("SHOW MASTER LOGS", range.rows);
    Names logs;
    long first = kept, last = kept;
    EXPECT_EQ(session->FindMasterLogs(logs, &first, &last), 0);
    EXPECT_EQ(std::pair(first, last), isCommandMode() ? range.command : range.library);
    EXPECT_EQ(session->FindMasterLogs(logs, nullptr, nullptr), 0);
    EXPECT_EQ(logged("Empty list returned from SHOW MASTER LOGS."), logs.empty());
    EXPECT_TRUE(logged("Called with startlog and stoplog...So filling these values.."));
  }
}

TEST_P(Catalogue, LogsAreListedBeforeTheyAreRotatedAndAppendedToWhatIsThere) {
  answer("SHOW MASTER LOGS", "b.000001\t1\nb.000002\t2\n");
  answer("FLUSH LOGS", "");
  const auto session = open();
  Names logs{"before"};
  EXPECT_EQ(session->FindMasterLogs(logs, true), 0);
  EXPECT_THAT(logs, ElementsAre("before", "b.000001", "b.000002"));
  EXPECT_THAT(asked(), ElementsAre("SHOW VARIABLES LIKE 'log_bin'", "SHOW MASTER LOGS", "FLUSH LOGS"));
  rejectFromNowOn("FLUSH LOGS");
  EXPECT_EQ(session->FindMasterLogs(logs, true), -1) << "the result is the rotation's";
  EXPECT_EQ(logs.size(), 5U) << "although the list is filled";
  rejectFromNowOn("SHOW MASTER LOGS");
  EXPECT_EQ(session->FindMasterLogs(logs, false), -1);
  EXPECT_EQ(logs.size(), 5U);
}

TEST_P(Catalogue, KeptThePrefixEndsAtTheFirstDotInCommandModeAndAtTheLastInLibraryMode) {
  const auto session = open();
  const struct {
    const char* name;
    const char* command;
    const char* library;
  } cases[] = {{"mysql-bin.000042", "mysql-bin", "mysql-bin"}, {"my.shop.000042", "my", "my.shop"}, {"no", "no", "no"}};
  for (const auto& row : cases) {
    answer("SHOW MASTER STATUS", row.name + std::string("\t328\t\t\n"));
    EXPECT_EQ(session->LastLogName(), 0);
    EXPECT_EQ(session->strMasterLogFile, row.name);
    EXPECT_EQ(session->strLogBaseName, isCommandMode() ? row.command : row.library);
  }
  EXPECT_TRUE(logged(isCommandMode() ? "Last Log <my.shop.000042>  Log Prefix <my> "
                                     : "LogName: [ my.shop.000042 ] and LogPrefix: [ my.shop ]"));
}

TEST_P(Catalogue, WithoutBinaryLogsTheLastNameIsEmptyInCommandModeAndStaysInLibraryMode) {
  answer("SHOW MASTER STATUS", "b.000001\t1\n");
  const auto session = open();
  ASSERT_EQ(session->LastLogName(), 0);
  answer("SHOW VARIABLES LIKE 'log_bin'", "log_bin\tOFF\n");
  answer("SHOW MASTER STATUS", "");
  EXPECT_EQ(session->LastLogName(), 0);
  EXPECT_EQ(session->strMasterLogFile, isCommandMode() ? "" : "b.000001");
  EXPECT_EQ(session->strLogBaseName, isCommandMode() ? "" : "b");
}

TEST_P(Catalogue, OfACloudDatabaseIsNotAskedForInLibraryModeAndNeverRotated) {
  const auto session = openCloud();
  EXPECT_EQ(session->FindBinLogStatus(), isCommandMode() ? 1 : 0);
  EXPECT_EQ(asked().size(), isCommandMode() ? 1U : 0U);
  EXPECT_EQ(session->iSessionMode, isCommandMode() ? 1 : 0);
  EXPECT_EQ(session->FlushLogs(), 0);
  EXPECT_THAT(asked(), IsEmpty());
  answer("PURGE BINARY LOGS TO 'b.000002'", "");
  EXPECT_EQ(session->PurgeLogsTo("b.000002"), 0);
  EXPECT_THAT(asked(), ElementsAre("PURGE BINARY LOGS TO 'b.000002'")) << "kept: trimming has no test for the cloud";
}

TEST_P(Catalogue, OfAServerThatKnowsTheLaterStatementsOnly) {
  answer("SHOW BINARY LOGS", "b.000001\t158\tNo\nb.000002\t158\tNo\n");
  answer("SHOW BINARY LOG STATUS", "b.000002\t158\t\t\tx\n");
  const auto session = open();
  Names logs;
  EXPECT_EQ(session->FindMasterLogs(logs, false), 0);
  EXPECT_THAT(asked(), ElementsAre("SHOW VARIABLES LIKE 'log_bin'", "SHOW MASTER LOGS", "SHOW BINARY LOGS"));
  long first = 0, last = 0;
  EXPECT_EQ(session->FindMasterLogs(logs, &first, &last), 0);
  EXPECT_EQ(std::pair(first, last), std::pair(1L, 2L));
  EXPECT_THAT(asked(), testing::Not(testing::Contains("SHOW MASTER LOGS"))) << "learned for the session";
  EXPECT_EQ(session->LastLogName(), 0);
  EXPECT_EQ(session->strMasterLogFile, "b.000002");
  EXPECT_EQ(session->iErrorCode, 0) << "a text that taught its successor is no failure";
}

using LibraryCatalogue = SessionTest;

TEST_F(LibraryCatalogue, WithoutAConnectionFailsAndSaysSo) {
  GetMySqlInfoExt session;
  Names logs;
  std::string text = "before";
  long number = 0;
  const struct {
    const char* line;
    int result;
  } table[] = {
      {"GetMySqlInfoExt::GetBinLogStatus: m_Conn not initialized.", session.FindBinLogStatus()},
      {"GetMySqlInfoExt::FindMasterLogs: m_Conn not initialized", session.FindMasterLogs(logs, false)},
      {"GetMySqlInfoExt::FindMasterLogs: m_Conn not initialized", session.FindMasterLogs(logs, &number, &number)},
      {"GetMySqlInfoExt::LastLogName: m_Conn not initialized.", session.LastLogName()},
      {"GetMySqlInfoExt::FetchMasterInfo: m_Conn not initialized.", session.FetchMasterInfo(text)},
      {"GetMySqlInfoExt::GetLogBinPath: m_Conn not initialized", session.GetLogBinPath(text)},
      {"GetMySqlInfoExt::FlushLogs: m_Conn not initialized", session.FlushLogs()},
      {"GetMySqlInfoExt::PurgeLogsTo: m_Conn not initialized", session.PurgeLogsTo("b")},
  };
  const auto lines = backend_.log().lines();
  for (const auto& row : table) {
    EXPECT_EQ(row.result, -1) << row.line;
    EXPECT_THAT(lines, testing::Contains(row.line));
  }
  EXPECT_EQ(text, "before");
}

TEST(Lines, OfOutput) {
  const struct {
    const char* text;
    Names lines;
  } table[] = {{"", {}},
               {"\n", {""}},
               {"a", {"a"}},
               {"a\n", {"a"}},
               {"a\tb\n\n c\r\n", {"a\tb", "", " c\r"}},
               {"a\nb", {"a", "b"}}};
  GetMySqlInfo session;
  for (const auto& row : table) {
    Names lines{"before"};
    EXPECT_EQ(session.MakeListFromBuffer(row.text, lines), 0);
    Names expected = row.lines;
    expected.push_front("before");
    EXPECT_EQ(lines, expected) << row.text;
  }
}

}  // namespace
}  // namespace orrery::test
