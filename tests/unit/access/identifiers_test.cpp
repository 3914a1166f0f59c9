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
      {"shop 1-a.b", "'shop 1-a.b'", "'shop 1-a.b'"},
      {"", "''", "''"},
      {"a_b%|", "'a_b%|'", "'a_b%|'"},
      {"a\\_\\%", "_utf8 X'615C5F5C25'", R"('a\_\%')"},  // as escapeForLike writes them
      {"it's", "'it''s'", "'it''s'"},
      {"''", "''''''", "''''''"},
      {"a\\b", "_utf8 X'615C62'", "_utf8 X'615C62' ESCAPE '|'"},
      {"\xc3\xa9\\", "_utf8 X'C3A95C'", "_utf8 X'C3A95C' ESCAPE '|'"},
      {"a\\'_", "_utf8 X'615C275F'", "_utf8 X'615C275F' ESCAPE '|'"},
      {"\\\\_|", "_utf8 X'5C5C5F7C'", "_utf8 X'5C7C5F7C7C' ESCAPE '|'"},  // a backslash, then an escaped underscore
  };
  for (const auto& row : table) {
    EXPECT_EQ(orrery::mysql::quoteText(row.name), row.text);
    EXPECT_EQ(orrery::mysql::quotePattern(row.name), row.pattern);
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

TEST(Identifiers, BetweenBackTicksDoubleTheirOwn) {
  EXPECT_EQ(orrery::mysql::quoteIdentifier("shop"), "`shop`");
  EXPECT_EQ(orrery::mysql::quoteIdentifier("`a`b'\"\\"), "```a``b'\"\\`");
  EXPECT_EQ(orrery::mysql::quoteIdentifier(""), "``");
}

}  // namespace
