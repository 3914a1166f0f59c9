#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

namespace orrery::platform::testing {

/// One line as it was logged.
struct CapturedLine {
  LogKind kind = LogKind::debug;
  int level = 0;
  long long jobId = 0;
  std::string tag;
  std::string text;
};

/// Keeps every line in the order of arrival. Safe from several threads.
///
/// A line that a child process writes between fork and exec does not arrive here: the child may work on a copy of this
/// memory. `forwardChildLines` lets such lines go to a descriptor instead.
class LogCapture {
 public:
  std::vector<CapturedLine> entries() const;
  /// "tag: text" of every line.
  std::vector<std::string> lines() const;
  std::vector<std::string> texts() const;
  /// Whether the text of some line holds `part`.
  bool contains(const std::string& part) const;
  void clear();

  /// Highest level of debug lines that is wanted; without a call every level is.
  void setThreshold(int level) noexcept { threshold_ = level; }
  bool wants(int level) const noexcept { return level <= threshold_; }

  /// Lines of children are written to this descriptor as "tag: text\n", with one write each, the tag and text cut so
  /// that a line has at most 4096 bytes. -1: they are lost.
  void forwardChildLines(int descriptor) noexcept { childDescriptor_ = descriptor; }

  /// For the log port.
  void add(const LogLine& line);
  void addFromChild(const LogLine& line) const noexcept;

 private:
  mutable std::mutex mutex_;
  std::vector<CapturedLine> lines_;
  std::atomic<int> threshold_{1000};
  std::atomic<int> childDescriptor_{-1};
};

}  // namespace orrery::platform::testing
