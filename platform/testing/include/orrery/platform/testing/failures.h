#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

namespace orrery::platform::testing {

/// Makes calls of the ports fail, and counts them. A call is named by its port and operation as services.h spells them,
/// "Inventory::readProperty"; overloads share a name. Calls that return nothing are counted too; a failing
/// "LogSink::write" loses the line, and the clock cannot fail. Safe from several threads.
class Failures {
 public:
  /// The nth call from now on fails, counted from 1; the others go on.
  void failNth(const std::string& call, std::size_t n, Status status);
  /// Every call from now on fails.
  void failAlways(const std::string& call, Status status);
  /// Every call from now on that has this argument fails: a name, a key, a section, or a number in decimal.
  void failWhen(const std::string& call, const std::string& argument, Status status);
  /// Forgets what was to fail; the counts stay.
  void clear();

  /// How often the call was made since the beginning, failed ones included.
  std::size_t calls(const std::string& call) const;

  /// For the ports: counts the call and says how it ends.
  Status check(const std::string& call, const std::vector<std::string>& arguments = {});

 private:
  struct Rule {
    std::size_t nth = 0;  // 0: every time
    std::string argument;
    bool anyArgument = true;
    Status status;
    std::size_t seen = 0;
  };

  mutable std::mutex mutex_;
  std::map<std::string, std::vector<Rule>> rules_;
  std::map<std::string, std::size_t> counts_;
};

}  // namespace orrery::platform::testing
