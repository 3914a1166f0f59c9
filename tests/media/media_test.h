#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orrery/platform/services.h"

#include "support/children.h"
#include "support/media_client.h"
#include "support/temporary_directory.h"

namespace orrery::test {

inline ::testing::AssertionResult succeeded(const platform::Status& status) {
  if (status.ok()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "code " << status.code << ": " << status.text;
}

/// A home with one instance, which the environment names, and the library. There is no job: the library looks for a
/// job's agent for a while.
class MediaTest : public ::testing::Test {
 protected:
  /// The home lies in a folder of its own below `parent`; empty: the usual one.
  explicit MediaTest(const std::string& parent = {});
  void SetUp() override;
  void TearDown() override;

  std::string home() const { return folder_ / "home"; }
  std::string media() const { return home() + "/media"; }
  std::shared_ptr<const platform::Services> open() const;
  static void setThreadCommandLine(const std::string& line);
  /// Names in the media folder.
  std::vector<std::string> mediaFiles() const { return namesIn(media()); }
  std::vector<platform::ArchiveFile> records(const std::string& name) const;
  /// Bytes that differ from block to block.
  static std::string pattern(std::size_t size, unsigned seed = 1);

  const TemporaryDirectory folder_;
  platform::Id instance_ = 0;
  platform::Id backupSet_ = 0;
  platform::Id subclient_ = 0;
  const MediaLibrary library_;
};

/// A session that is open from the start.
class OpenSession : public MediaSession {
 public:
  explicit OpenSession(const MediaLibrary& library) : MediaSession(library) { EXPECT_EQ(begin(), 0U) << error(); }
};

/// A call failed with this code and a text that holds `part`.
::testing::AssertionResult failedWith(unsigned long code, MediaSession& session, unsigned long expected,
                                      const std::string& part);

}  // namespace orrery::test
