// What the library works out without a home: names of files, the agent's command line, the bytes of an image's frame.

#include <set>

#include <gtest/gtest.h>

#include "failure.h"
#include "image_format.h"
#include "image_name.h"
#include "thread_command_line.h"

namespace orrery::libobk {

using namespace media;
namespace {

TEST(ImageName, BecomesAFileOfTheMediaFolder) {
  const struct {
    std::string name, file;
  } cases[] = {
      {"sbt:3_1200_1767225600", "sbt:3_1200_1767225600"},
      {"Monday.img-1", "Monday.img-1"},
      {".", "%2E"},
      {"..", "%2E."},
      {"../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd"},
      {"/abs", "%2Fabs"},
      {".new-1-1", "%2Enew-1-1"},
      {"100%", "100%25"},
      {"a~b", "a%7Eb"},
      {"caf\xc3\xa9 x\n", "caf%C3%A9%20x%0A"},
  };
  for (const auto& test : cases) EXPECT_EQ(fileNameOf(test.name), test.file);
}

TEST(ImageName, LongNamesHaveFilesOfTheirOwnWithinTheLimit) {
  std::set<std::string> files;
  std::size_t names = 0;
  for (std::size_t size = 150; size < largestName; ++size) {
    for (const std::string& start : {std::string(), std::string("/"), std::string("//")}) {
      const std::string file = fileNameOf(start + std::string(size - start.size(), 'a'));
      EXPECT_LE(file.size(), 255U);
      EXPECT_EQ(file.find_first_of("/."), std::string::npos);
      files.insert(file);
      files.insert(fileNameOf(file));  // a name that looks like another one's file
      names += 2;
    }
  }
  // Where a file's name is the image's own the two inserted are one.
  std::size_t same = 0;
  for (std::size_t size = 150; size <= 240; ++size) ++same;
  EXPECT_EQ(files.size(), names - same);
}

TEST(ImageName, EmptyAndTooLongOnesAreRefused) {
  EXPECT_THROW(fileNameOf(""), MediaFailure);
  EXPECT_NO_THROW(fileNameOf(std::string(511, '/')));
  EXPECT_THROW(fileNameOf(std::string(512, 'a')), MediaFailure);
}

TEST(ThreadCommandLineText, IsReadStrictly) {
  const struct {
    const char* text;
    ThreadCommandLine line;
  } good[] = {
      {"", {}},
      {"   ", {}},
      {"-j 17 -a 3:9 -at 104 -t 2", {17, 3, 9, 2}},
      {"-j 17 -a 3:0 -at 104 -t 1", {17, 3, 0, 1}},
      {"-j 17 -at 104", {17, 0, 0, 1}},
      {"-a 0:0", {}},
      {"  -t  4294967295 -j 9223372036854775807 ", {9223372036854775807, 0, 0, 1}},
  };
  std::vector<std::string> bad{
      "-j 9223372036854775808", "-j -1",  "-j +1", "-j 0x10", "-j 17x",   "-j",        "-j 1 -j 1",
      "-a 3:9 -a 3:9",          "-a 3",   "-a :9", "-a 3:",   "-a 3:9:1", "-a 0:7",    "-a 9223372036854775808:1",
      "-at 104 -at 104",        "-at 22", "-x 1",  "17",      "-j\t17",   "-t 2 -t 2", "-t 4294967296"};
  bad.push_back("-j " + std::string(4000, '7'));
  ThreadCommandLine line;
  std::string problem;
  for (const auto& test : good) {
    EXPECT_TRUE(parseThreadCommandLine(test.text, line, problem)) << problem;
    EXPECT_EQ(line, test.line) << test.text;
    EXPECT_EQ(problem, "");
  }
  for (const std::string& text : bad) {
    line = {};
    problem.clear();
    EXPECT_FALSE(parseThreadCommandLine(text, line, problem)) << text;
    EXPECT_EQ(line, ThreadCommandLine{}) << text;
    EXPECT_FALSE(problem.empty()) << text;
    EXPECT_LE(problem.size(), 60U + 24U);
  }
}

TEST(ImageFormat, HeaderAndTrailerReadBack) {
  const ImageHeader header{std::string(511, '\xff'), 65536, 17, 3, 9, 2, 1767225600};
  const ImageTrailer trailer{1ULL << 40, 1ULL << 20, 1, 2};
  ImageHeader readHeader;
  ImageTrailer readTrailer;
  std::string problem;
  EXPECT_TRUE(decodeHeader(encodeHeader(header), readHeader, problem)) << problem;
  EXPECT_EQ(readHeader, header);
  EXPECT_TRUE(decodeTrailer(encodeTrailer(trailer), readTrailer, problem)) << problem;
  EXPECT_EQ(readTrailer, trailer);
}

/// Changes one bit of `whole` at a time; `decode` must refuse all and say why.
template <class Decode>
void expectEveryBitToCount(const std::string& whole, const Decode& decode) {
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    std::string changed = whole;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
    std::string problem;
    ASSERT_FALSE(decode(changed, problem)) << bit;
    ASSERT_FALSE(problem.empty());
  }
}

TEST(ImageFormat, EveryChangedBitOfTheFrameIsSeen) {
  ImageHeader header;
  ImageTrailer trailer;
  expectEveryBitToCount(encodeHeader({"image", 65536, 17, 3, 9, 2, 1767225600}),
                        [&](const auto& bytes, auto& problem) { return decodeHeader(bytes, header, problem); });
  expectEveryBitToCount(encodeTrailer({65536, 1, 1, 2}),
                        [&](const auto& bytes, auto& problem) { return decodeTrailer(bytes, trailer, problem); });
}

/// A right checksum makes no header right.
std::string withSum(std::string bytes) {
  const std::uint64_t sum = checksum(bytes.data(), bytes.size() - 8);
  std::string table;
  appendSum(table, sum);
  bytes.replace(bytes.size() - 8, 8, table);
  return bytes;
}

TEST(ImageFormat, NumbersThatMakeNoSenseAreRefused) {
  const ImageHeader good{"image", 65536, 17, 3, 9, 2, 1767225600};
  const struct {
    const char* what;
    std::size_t offset;
    char byte;
    const char* problem;
  } cases[] = {
      {"a later version", 8, 2, "newer version"},      {"version 0", 8, 0, "no sense"},
      {"another header size", 13, 1, "no sense"},      {"no block size", 18, 0, "no sense"},
      {"a huge block size", 23, 1, "no sense"},        {"no name", 60, 0, "no sense"},
      {"a name beyond the header", 62, 1, "no sense"}, {"bytes behind the name", 200, 1, "no sense"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    std::string bytes = encodeHeader(good);
    bytes[test.offset] = test.byte;
    ImageHeader header;
    std::string problem;
    EXPECT_FALSE(decodeHeader(withSum(bytes), header, problem));
    EXPECT_NE(problem.find(test.problem), std::string::npos) << problem;
  }
}

TEST(ImageFormat, TrailerMustFitTheFile) {
  const ImageHeader header{"image", 3, 17, 3, 9, 2, 1767225600};
  const std::uint64_t chunk = chunkSizeOf(3);
  EXPECT_EQ(chunk, 262143U);
  const auto fits = [&](std::uint64_t bytes, std::uint64_t chunks, std::uint64_t size, std::uint64_t sum = 5) {
    std::string problem;
    return fitTogether(header, 5, {bytes, chunks, sum, 0}, size, problem);
  };
  EXPECT_TRUE(fits(0, 0, 4160));
  EXPECT_TRUE(fits(3, 1, 4171));
  EXPECT_TRUE(fits(chunk, 1, 4168 + chunk));
  EXPECT_TRUE(fits(chunk + 3, 2, 4179 + chunk));
  EXPECT_FALSE(fits(3, 1, 4171, 6)) << "of another image";
  EXPECT_FALSE(fits(3, 1, 4172)) << "a longer file";
  EXPECT_FALSE(fits(3, 2, 4179)) << "too many chunks";
  EXPECT_FALSE(fits(chunk + 3, 1, 4171 + chunk)) << "too few chunks";
  EXPECT_FALSE(fits(4, 1, 4172)) << "no whole number of blocks";
  EXPECT_FALSE(fits(~0ULL - 4159 + 3, 0, 3)) << "sizes that overflow";
  EXPECT_FALSE(fits(3, 1ULL << 61, 4163)) << "counts that overflow";
}

}  // namespace
}  // namespace orrery::libobk
