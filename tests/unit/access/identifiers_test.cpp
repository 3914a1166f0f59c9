#include "access/identifiers.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using orrery::mysql::Quoting;
using orrery::mysql::reasonToRefuse;

struct Case {
  const char* name;
  std::string text;
  bool inBackTicks;
  bool inSingleQuotes;
  bool asStatement;
};

const Case cases[] = {
    {"plain", "shop", true, true, true},
    {"blank_hyphen_dot_percent", "a b-c.d%e_f", true, true, true},
    {"not_ascii", "caf\xc3\xa9", true, true, true},
    {"back_tick", "a`b", false, true, true},
    {"double_quote", "a\"b", false, false, false},
    {"single_quote", "it's", true, false, true},
    {"line_feed", "a\nb", false, false, true},
    {"line_feed_at_the_end", "a\n", false, false, true},
    {"carriage_return", "a\rb", false, false, true},
    {"null", std::string("a\0b", 3), false, false, false},
    {"backslash_inside", "a\\b", true, true, true},
    {"backslash_at_the_end", "ab\\", true, false, true},
    {"two_backslashes_at_the_end", "ab\\\\", true, true, true},
    {"nothing_but_a_backslash", "\\", true, false, true},
    {"empty_is_for_the_server_to_judge", "", true, true, true},
};

TEST(Names, BetweenSingleQuotesEndThemNowhere) {
  const struct {
    const char *name, *text, *pattern;
  } table[] = {
      {"shop 1-a.b", "shop 1-a.b", "shop 1-a.b"},
      {"a_b%", "a_b%", "a_b%"},
      {"a\\_b\\%", R"(a\\_b\\%)", R"(a\_b\%)"},  // as escapeForLike writes them
      {"it's", "it''s", "it''s"},
      {"''", "''''", "''''"},
      {"a\\b", R"(a\\b)", R"(a\\\\b)"},
      {"a\\", R"(a\\)", R"(a\\\\)"},
      {"a\\'", R"(a\\'')", R"(a\\\\'')"},
      {"a\\\\_", R"(a\\\\_)", R"(a\\\\\_)"},  // a backslash, then an escaped underscore
  };
  for (const auto& row : table) {
    EXPECT_EQ(orrery::mysql::escapeText(row.name), row.text);
    EXPECT_EQ(orrery::mysql::escapePattern(row.name), row.pattern);
    EXPECT_FALSE(reasonToRefuse("name", row.name, Quoting::escaped)) << row.name;
  }
  EXPECT_EQ(reasonToRefuse("name", "a\nb", Quoting::escaped), "the name holds a line break");
}

TEST(Names, ThatCouldEndTheirQuotingAreRefusedWithTheReason) {
  for (const Case& row : cases) {
    EXPECT_EQ(!reasonToRefuse("name", row.text, Quoting::backTicks), row.inBackTicks) << row.name;
    EXPECT_EQ(!reasonToRefuse("name", row.text, Quoting::singleQuotes), row.inSingleQuotes) << row.name;
    EXPECT_EQ(!reasonToRefuse("name", row.text, Quoting::none), row.asStatement) << row.name;
  }
  EXPECT_EQ(reasonToRefuse("table name", "a`b", Quoting::backTicks), "the table name holds a back-tick");
}

}  // namespace
