#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media_test.h"
#include "support/mariadb_sandbox.h"
#include "support/program.h"

namespace orrery::test {

/// The built program on a real server, and a home without a session server.
class MysqlbackupTest : public MediaTest {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite() { server_.reset(); }

  std::vector<std::string> backupCommand(const std::string& name, const std::vector<std::string>& options = {}) const;
  std::vector<std::string> restoreCommand(const std::string& name, const std::vector<std::string>& options = {}) const;
  /// `path`: where programs are looked for; empty: where they are.
  ProgramResult backup(const std::string& name, const std::vector<std::string>& options = {},
                       const std::string& fault = {}, const std::string& path = {}) const;
  ProgramResult backupIncrement(const std::string& name) const;
  /// Into data().
  ProgramResult restore(const std::string& name, const std::vector<std::string>& options = {},
                        const std::string& fault = {}, const std::string& path = {}) const;
  std::string data() const { return folder_ / "data"; }
  std::string backupDirectory(const std::string& name) const { return folder_ / ("b/" + name); }
  std::string restoreDirectory(const std::string& name) const { return folder_ / ("r/" + name); }
  /// Names and contents of all files below data().
  std::string fingerprintOfData() const;

  static inline std::unique_ptr<MariaDbSandbox> server_;
};

::testing::AssertionResult completed(const ProgramResult& result);
/// Exit status 1, and the last line begins with ERROR: and holds `part`; it is the only one that begins so.
::testing::AssertionResult failedWith(const ProgramResult& result, const std::string& part);
/// Whether a process has this text in its command line.
bool someProcessMentions(const std::string& text);

}  // namespace orrery::test
