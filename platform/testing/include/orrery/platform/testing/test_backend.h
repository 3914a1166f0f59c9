#pragma once

/// A backend in memory for tests.
///
///     TestBackend backend;
///     const ScopedServices installed(backend.services());
///     const Id instance = backend.addInstance("db1", {{property::saUser, "root"}});
///     backend.failures().failWhen("Inventory::readProperty", property::socketFile, Status::failure("no"));
///     ...
///     EXPECT_EQ(backend.log().lines(), expected);

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orrery/platform/services.h"
#include "orrery/platform/testing/failures.h"
#include "orrery/platform/testing/log_capture.h"

namespace orrery::platform::testing {

struct Memory;

/// How a job or phase was completed.
struct Completion {
  long long jobId = 0;
  JobState state = JobState::running;
  bool wholeJob = false;
  int code = 0;
};

class TestBackend {
 public:
  /// The time that the clock shows at first, in microseconds since the epoch: 2026-01-01T00:00:00Z.
  static constexpr std::int64_t firstTime = 1767225600LL * 1000000;

  /// `clientName` is the name of this machine's own client. Makes a real directory under TMPDIR (else /tmp) with tmp
  /// and results in it. Throws std::system_error when that is refused.
  explicit TestBackend(const std::string& clientName = "testclient");
  /// Removes the directory with all it holds.
  ~TestBackend();
  TestBackend(const TestBackend&) = delete;
  TestBackend& operator=(const TestBackend&) = delete;

  /// The ports. May outlive the backend; the directory does not.
  std::shared_ptr<const Services> services() const { return services_; }

  Failures& failures();
  LogCapture& log();

  // Directories. An override of nothing makes the call answer an empty path.
  const std::string& directory() const noexcept { return directory_; }
  std::string temporary() const { return directory_ + "/tmp"; }
  void setTemporary(std::optional<std::string> path);
  void setHome(std::optional<std::string> path);
  void setJobResults(std::optional<std::string> path);
  /// Names of what lies in tmp, sorted; a test that expects its files to be gone compares this with nothing.
  std::vector<std::string> leftovers() const;

  // Settings and proxies.
  void setSetting(const std::string& section, const std::string& key, const std::string& value);
  /// An empty version: any.
  void setProxyDirectory(Id clientId, int applicationType, const std::string& version, const std::string& directory);

  // Inventory.
  /// Adds an instance of this machine's own client. Throws std::logic_error when the name is taken.
  Id addInstance(const std::string& name, const std::map<std::string, std::string>& properties = {});
  Id addInstance(Id clientId, const std::string& name, const std::map<std::string, std::string>& properties);
  /// The default subclient of an instance; 0 when there is no such instance.
  Id defaultSubclient(Id instanceId) const;

  // What happened.
  std::vector<Event> events() const;
  std::vector<Completion> completions() const;
  /// Lengths of all sleeps in milliseconds, in their order.
  std::vector<std::int64_t> sleeps() const;
  /// Lets the clock go on without a sleep.
  void advance(std::int64_t milliseconds);

 private:
  const std::string directory_;
  const std::shared_ptr<Memory> memory_;
  const std::shared_ptr<const Services> services_;
};

}  // namespace orrery::platform::testing
