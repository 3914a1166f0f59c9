// Index records and their encoding, read by others.

#include "support/index_record.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orrery/platform/CAscii85.h"
#include "orrery/platform/CNMessageBase.h"

#include "support/program.h"

namespace {

using orrery::test::fieldsOf;
using orrery::test::fromAscii85;

std::string bytesOf(const CNMessageBase& record) {
  std::string bytes;
  record.serialize(bytes);
  return bytes;
}

/// What the compiler of the format makes of a record that docs/index.proto describes.
std::string decoded(const std::string& message, const std::string& bytes) {
  const auto result = orrery::test::runProgram(
      {"protoc", "--proto_path=" ORRERY_DOCS, "--decode=IdxMetadata." + message, "index.proto"}, {.input = bytes});
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  return result.output;
}

TEST(IndexRecord, IsReadByTheFormatsOwnCompiler) {
  IdxMetadata::MySqlMetaData table;
  table.setstring(5, "InnoDB");
  table.setstring(1, "87cURD]i");
  table.setstring(4, "t \"1\"");
  EXPECT_EQ(decoded("MySqlMetaData", bytesOf(table)),
            "creation_statement: \"87cURD]i\"\nname: \"t \\\"1\\\"\"\nengine: \"InnoDB\"\n");

  IdxMetadata::MySqlDbInfo database;
  database.setstring(1, "d");
  database.setstring(2, std::string("CREATE \xff\0!", 10));
  EXPECT_EQ(decoded("MySqlDbInfo", bytesOf(database)), "name: \"d\"\ncreation_statement: \"CREATE \\377\\000!\"\n");

  IdxMetadata::MySqlChildTableList list;
  for (const char* name : {"one", "two"}) {
    IdxMetadata::MySqlChildTable child;
    child.setstring(1, name);
    child.setstring(2, "shop");
    list.addlistobject(1, child);
  }
  EXPECT_EQ(
      decoded("MySqlChildTableList", bytesOf(list)),
      "children {\n  name: \"one\"\n  database: \"shop\"\n}\nchildren {\n  name: \"two\"\n  database: \"shop\"\n}\n");
}

TEST(IndexRecord, KeepsTextsAsTheyAreAndFieldsInOrder) {
  CNMessageBase record;
  EXPECT_EQ(bytesOf(record), "");
  EXPECT_FALSE(record.isset(7));
  EXPECT_EQ(record.getstring(7), "");
  const std::string large(60000, 'x');
  record.setstring(536870911, "last");
  record.setstring(7, large);
  record.setstring(1, "");
  EXPECT_EQ(fieldsOf(bytesOf(record)), (std::map<unsigned, std::string>{{1, ""}, {7, large}, {536870911, "last"}}));
  EXPECT_EQ(bytesOf(record).substr(0, 2), std::string("\x0a\x00", 2)) << "an empty text is there";
}

TEST(IndexRecord, ListsAreReadChangedAndWrittenBackWithoutSharing) {
  IdxMetadata::MySqlChildTableList list;
  std::vector<IdxMetadata::MySqlChildTable> children(1);
  list.getlistobject(1, children);
  EXPECT_TRUE(children.empty()) << "what was there is replaced";
  children.resize(1);
  children[0].setstring(1, "one");
  list.setlistobject(1, children);
  IdxMetadata::MySqlChildTableList copy = list;
  children[0].setstring(1, "two");
  copy.addlistobject(1, children[0]);
  ASSERT_EQ(list.list(1).size(), 1U);
  ASSERT_EQ(copy.list(1).size(), 2U);
  EXPECT_EQ(copy.list(1)[0].getstring(1) + copy.list(1)[1].getstring(1), "onetwo");
  list.setstring(1, "a text");
  EXPECT_TRUE(list.list(1).empty()) << "one kind replaces the other";
  list.setlistobject(1, children);
  EXPECT_EQ(list.getstring(1), "");
}

TEST(Ascii85, IsReadBack) {
  const struct {
    const char* text;
    std::size_t length;
    const char* encoded;
  } table[] = {
      {"Man ", 4, "9jqo^"},     {"Man sure.", 9, "9jqo^F*2M7/c"},
      {"M", 1, "9`"},           {"Ma", 2, "9jn"},
      {"Man", 3, "9jqo"},       {"\0\0\0\0", 4, "z"},
      {"\0\0\0", 3, "!!!!"},    {"\0", 1, "!!"},
      {"\0\0\0\0\0", 5, "z!!"}, {"\xff\xff\xff\xff", 4, "s8W-!"},
      {"\xff", 1, "rr"},
  };
  for (const auto& row : table) {
    std::string encoded = "before";
    EXPECT_FALSE(CAscii85::Encode(row.text, row.length, encoded).isError());
    EXPECT_EQ(encoded, row.encoded);
    EXPECT_EQ(fromAscii85(encoded), std::string(row.text, row.length));
  }
  std::string every;
  for (int length = 1; length < 700; ++length) {
    every += static_cast<char>(length * length + (length >> 3));
    std::string encoded;
    ASSERT_FALSE(CAscii85::Encode(every.data(), every.size(), encoded).isError());
    ASSERT_EQ(fromAscii85(encoded), every) << length;
  }
}

TEST(Ascii85, OfNothingIsAnErrorAndChangesNothing) {
  std::string out = "before";
  EXPECT_TRUE(CAscii85::Encode("", 0, out).isError());
  EXPECT_TRUE(CAscii85::Encode(nullptr, 3, out).isError());
  EXPECT_EQ(out, "before");
}

}  // namespace
