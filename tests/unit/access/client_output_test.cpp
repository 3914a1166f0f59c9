#include "access/client_output.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <string>

#include <gtest/gtest.h>

#include "orrery/platform/testing/test_backend.h"

namespace {

using orrery::mysql::errorNumberIn;
using orrery::mysql::OutputEnd;
using orrery::mysql::readToEnd;
using orrery::platform::ScopedServices;
using orrery::platform::testing::TestBackend;

/// A client whose reads come out as written: a text, an error number, or the end.
struct Read {
  std::string text;
  int error = 0;
};

class ScriptedClient {
 public:
  explicit ScriptedClient(std::deque<Read> reads) : reads_(std::move(reads)) {}

  int ReadBuf(char* buffer, long* length) {
    Read read = reads_.empty() ? Read{} : reads_.front();
    if (!reads_.empty()) reads_.pop_front();
    error_ = read.error;
    if (read.error != 0) return -1;
    EXPECT_LT(read.text.size(), static_cast<std::size_t>(*length));
    std::memcpy(buffer, read.text.data(), read.text.size());
    *length = static_cast<long>(read.text.size());
    return 0;
  }
  int GetLastErrNo() const { return error_; }

 private:
  std::deque<Read> reads_;
  int error_ = 0;
};

struct Case {
  const char* name;
  std::deque<Read> reads;
  OutputEnd end;
  std::string output;
  std::string lastLog;
};

const Case cases[] = {
    {"pieces_are_joined", {{"ab"}, {"c\n"}}, OutputEnd::complete, "abc\n", "---END OF CHILD OUTPUT REACHED---- "},
    {"no_output", {}, OutputEnd::complete, "", "---END OF CHILD OUTPUT REACHED---- "},
    {"pipe_broken_after_output",
     {{"abc"}, {"", EPIPE}},
     OutputEnd::complete,
     "abc",
     "---CHILD SUCCEEDED---READ 3 BYTES"},
    {"pipe_broken_before",
     {{"", EPIPE}},
     OutputEnd::brokenPipe,
     "",
     "Didn't read any data from child, Received broken pipe"},
    {"try_again_is_no_failure", {{"", EAGAIN}, {"a"}}, OutputEnd::complete, "a", "---END OF CHILD OUTPUT REACHED---- "},
    {"failed_read", {{"a"}, {"", EIO}, {"b"}}, OutputEnd::readFailed, "ab", "---END OF CHILD OUTPUT REACHED---- "},
};

TEST(ClientOutput, IsReadToItsEnd) {
  TestBackend backend;
  const ScopedServices installed(backend.services());
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    ScriptedClient client(row.reads);
    std::string output;
    EXPECT_EQ(readToEnd(client, output, EvEvent(), "tag"), row.end);
    EXPECT_EQ(output, row.output);
    EXPECT_EQ(backend.log().texts().back(), row.lastLog);
  }
}

TEST(ClientValues, AreReadAsTheServerHasThem) {
  const struct {
    std::string printed, value;
  } table[] = {
      {"", ""},
      {"shop", "shop"},
      {R"(a\\b\\)", R"(a\b\)"},
      {R"(a\tb\nc)", "a\tb\nc"},
      {R"(a\0b)", std::string("a\0b", 3)},
      {R"(\\n)", R"(\n)"},
      {R"(\x\)", R"(\x\)"},
      {"a\tb", "a\tb"},
  };
  for (const auto& row : table) EXPECT_EQ(orrery::mysql::unescapeValue(row.printed), row.value) << row.printed;
}

TEST(ClientErrors, GiveTheServersNumber) {
  const struct {
    const char* text;
    int number;
  } table[] = {
      {"ERROR 1007 (HY000) at line 1: Can't create database 'x'; database exists\n", 1007},
      {"ERROR 1049 (42000): Unknown database 'x'", 1049},
      {"--------------\nDROP DATABASE `x`\n--------------\n\nERROR 1008 (HY000) at line 1: Can't drop\n", 1008},
      {"--------------\nCREATE DATABASE\nERROR 7 x\n--------------\n\nERROR 1064 (42000) at line 1: no\n", 1064},
      {"ERROR at line 1: Unknown command '\\G'.", 0},
      {"mysqladmin: connect to server at 'localhost' failed", 0},
      {"warning 42 words", 42},
      {"oneword", -1},
      {"oneword ", -1},
      {"", -1},
  };
  for (const auto& row : table) {
    EXPECT_EQ(errorNumberIn(row.text), row.number) << row.text;
  }
}

}  // namespace
