#pragma once

#include <atomic>
#include <string>

#include "orrery/platform/services.h"

#include "posix.h"

namespace orrery::platform::local {

/// The log of a home: one line per message, one write per line, so that lines of several threads and processes stay
/// whole. Never fails: what cannot be written is lost.
class LogFile final : public LogSink {
 public:
  static constexpr const char* fileName = "orrery-mysql.log";
  static constexpr long long largestSize = 16LL * 1024 * 1024;
  static constexpr int keptOlder = 4;

  /// Sets a log of more than `largestSize` bytes aside, then opens it. A log that cannot be opened is replaced by
  /// standard error. `threshold`: the highest level of debug lines that is recorded.
  LogFile(const std::string& directory, int threshold);

  bool wants(int level) const noexcept override { return level <= threshold_.load(std::memory_order_relaxed); }
  void write(const LogLine& line) noexcept override;
  void writeInChild(const LogLine& line) noexcept override;

 private:
  enum class Written { whole, part, nothing };
  Written append(const char* bytes, std::size_t size) const noexcept;

  OwnFd file_;
  std::atomic<int> threshold_;
  std::atomic<bool> torn_{false};  // the last line was cut off by a full disk; the next one begins with a line break
};

}  // namespace orrery::platform::local
