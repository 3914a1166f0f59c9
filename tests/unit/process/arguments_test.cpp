#include "orrery/platform/arguments.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

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

}  // namespace
