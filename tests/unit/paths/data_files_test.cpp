#include "paths/data_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orrery::mysql::paths {
namespace {

using Texts = std::vector<std::string>;

struct Case {
  const char* value;
  Texts command;  // names with a directory
  Texts library;
};
const Case kCases[] = {
    {"ibdata1:12M:autoextend", {}, {}},
    {"ibdata1:12M;/data2/ibdata2:1G:autoextend", {"/data2/ibdata2"}, {"/data2/ibdata2"}},
    {"/a/x:1M;/b/y:2M", {"/a/x", "/b/y"}, {"/a/x", "/b/y"}},
    {"sub/x:1M;", {"sub/x"}, {"sub/x"}},
    {"", {}, {}},
    {";", {}, {}},
    {"/a/x", {"/a/x"}, {"/a/x"}},
    {"/a/x;/b/y:1M", {"/a/x;", "/b/y"}, {"/a/x;", "/b/y"}},  // kept: a name without a size keeps its ";"
    {";;/b/y:1M", {"/b/y"}, {"/b/y"}},
    {"/", {}, {"/"}},                       // kept: command mode stops before the last position,
    {"/a/x:1;/", {"/a/x"}, {"/a/x", "/"}},  // library mode behind it
};

Texts withDirectory(const std::vector<DataFile>& files) {
  Texts names;
  for (const DataFile& file : files) {
    if (file.hasDirectory()) names.push_back(file.name);
  }
  return names;
}

TEST(DataFiles, KeptTheModesEndTheirReadingOnePositionApart) {
  for (const Case& row : kCases) {
    EXPECT_EQ(withDirectory(dataFilesOfCommandMode(row.value)), row.command) << row.value;
    EXPECT_EQ(withDirectory(dataFilesOfLibraryMode(row.value)), row.library) << row.value;
  }
}

TEST(DataFiles, TellWhatIsMissing) {
  const auto files = dataFilesOfCommandMode("ibdata1;ib2:5M;ib3:1M");
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files[0].piece, "ibdata1;");
  EXPECT_FALSE(files[0].sized);
  EXPECT_TRUE(files[1].sized);
  EXPECT_TRUE(files[1].closed);
  EXPECT_EQ(files[2].piece, "ib3:1M");
  EXPECT_FALSE(files[2].closed);
}

}  // namespace
}  // namespace orrery::mysql::paths
