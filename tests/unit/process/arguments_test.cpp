#include "orrery/platform/arguments.h"

#include <cerrno>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"

#include "support/backend_test.h"

namespace {

using ChildArguments = orrery::test::BackendTest;

struct Case {
  const char* name;
  const char* line;
  std::vector<std::string> arguments;
};

const Case cases[] = {
    {"plain_words", "prog -a b", {"prog", "-a", "b"}},
    {"runs_of_blanks_separate_once", "prog   --first  second ", {"prog", "--first", "second"}},
    {"quotes_join_and_vanish", R"(prog -e "SHOW DATABASES")", {"prog", "-e", "SHOW DATABASES"}},
    {"blanks_inside_quotes_stay", R"(prog "a  b   c" d)", {"prog", "a  b   c", "d"}},
    {"two_quotes_in_a_token_do_not_join", R"(prog "abc" def)", {"prog", "abc", "def"}},
    {"quotes_around_nothing", R"(prog "" x)", {"prog", "", "x"}},
    {"single_quotes_inside_double_quotes_stay", R"(prog "LIKE 'a b'" x)", {"prog", "LIKE 'a b'", "x"}},
    {"single_quotes_join_too", "prog 'a b' c", {"prog", "a b", "c"}},
    {"open_quote_takes_the_rest", R"(prog "a b c)", {"prog", "a b c"}},
    {"stop_time_has_a_blank",
     "log --stop-datetime=2026-01-02 03:04:05 f",
     {"log", "--stop-datetime=2026-01-02 03:04:05", "f"}},
    {"stop_time_without_a_time", "log --stop-datetime=2026-01-02", {"log", "--stop-datetime=2026-01-02"}},
    {"line_breaks_do_not_separate", "prog \"a\nb\" c", {"prog", "a\nb", "c"}},
    {"nothing", "", {}},
    {"blanks_only", "   ", {}},
};

TEST(Arguments, AreSplitLikeThis) {
  for (const Case& row : cases) EXPECT_EQ(orrery::platform::splitArguments(row.line), row.arguments) << row.name;
}

TEST_F(ChildArguments, LimitsAreRefusedBeforeAnythingStarts) {
  const auto words = [](int count) {
    std::string line = "/bin/true";
    for (int i = 1; i < count; ++i) line += " x";
    return line;
  };
  GetMySqlInfo longName;
  longName.strUnixUser.assign(104, 'u');
  GetMySqlInfo longestName;
  longestName.strUnixUser.assign(103, 'u');
  const struct {
    const char* name;
    std::string command;
    GetMySqlInfo* session;
    int result;
    int error;
  } table[] = {
      {"longest command", "/bin/true " + std::string(2989, 'x'), nullptr, 0, 0},
      {"one character more", "/bin/true " + std::string(2990, 'x'), nullptr, -1, E2BIG},
      {"most arguments", words(49), nullptr, 0, 0},
      {"one argument more", words(50), nullptr, -1, E2BIG},
      {"longest account", "/bin/true", &longestName, 0, 0},
      {"one letter more", "/bin/true", &longName, -1, ENAMETOOLONG},
      {"no command", "", nullptr, -1, EINVAL},
      {"null in the command", std::string("/bin/true\0x", 11), nullptr, -1, EINVAL},
  };
  for (const auto& row : table) {
    MySqlChildProcess child;
    EXPECT_EQ(child.Initialize(row.command, row.session), row.result) << row.name;
    EXPECT_EQ(child.GetLastErrNo(), row.error) << row.name;
    EXPECT_EQ(child.GetLastErrText().empty(), row.result == 0) << row.name;
    if (row.result != 0) continue;
    EXPECT_EQ(child.DZ_CreateProcess(true, false, false), 0) << row.name;
    EXPECT_EQ(child.Wait(0), 0) << row.name;
  }
}

}  // namespace
