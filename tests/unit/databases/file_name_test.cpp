#include "session/session_fixture.h"

namespace {

using FileNames = orrery::test::SessionTest;

// Kept: one rule for every character, letters outside ASCII too.
TEST_F(FileNames, KeepAsciiLettersDigitsAndUnderscoresAlone) {
  const struct {
    std::string name, encoded;
  } table[] = {
      {"", ""},
      {"Shop_2026", "Shop_2026"},
      {"my-db", "my@002ddb"},
      {"a.b", "a@002eb"},
      {"with blank", "with@0020blank"},
      {"@[`{/:", "@0040@005b@0060@007b@002f@003a"},
      {"caf\xc3\xa9", "caf@00e9"},
      {"\xe6\xbc\xa2", "@6f22"},
      {"\xf0\x9f\x98\x80", "@1f600"},
      {"\xf4\x8f\xbf\xbf", "@10ffff"},
      {std::string("\0\x7f", 2), "@0000@007f"},
      // What is no UTF-8: a replacement for each byte.
      {"a\xe9z", "a@fffdz"},
      {"\x80\xbf", "@fffd@fffd"},
      {"\xc0\xaf", "@fffd@fffd"},
      {"\xe0\x80\xaf", "@fffd@fffd@fffd"},
      {"\xf0\x80\x80\xaf", "@fffd@fffd@fffd@fffd"},
      {"\xed\xa0\x80", "@fffd@fffd@fffd"},
      {"\xf4\x90\x80\x80", "@fffd@fffd@fffd@fffd"},
      {"\xf8\xff", "@fffd@fffd"},
      {"\xe6\xbc", "@fffd@fffd"},
      {"\xf0\x9f\x98", "@fffd@fffd@fffd"},
      {"\xc3", "@fffd"},
      {"\xe6\xbc\xc3\xa9", "@fffd@fffd@00e9"},
  };
  GetMySqlInfo session;
  for (const auto& row : table) EXPECT_EQ(session.getMySqlHexName(row.name), row.encoded);
  std::string encoded;
  session.convertSpecialCharsToHexChars("a-b", encoded);
  EXPECT_EQ(encoded, "a@002db");
  const auto lines = backend_.log().entries();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2].text, "Trying to convert: a-b");
  EXPECT_EQ(lines[lines.size() - 2].level, 5);
  EXPECT_EQ(lines.back().text, "Converted db name: a@002db");
  EXPECT_EQ(lines.back().level, 5);
}

}  // namespace
