#pragma once

#include <string>
#include <string_view>

namespace orrery::platform::background {

/// What is kept of a stream of any length: its beginning, its end, and the last line that tells an error.
class CapturedOutput {
 public:
  static constexpr std::size_t mostOfEachEnd = std::size_t{256} * 1024;
  static constexpr std::size_t longestLine = 4096;
  static constexpr std::string_view errorPrefix = "ERROR:";

  void append(std::string_view bytes);

  bool empty() const noexcept { return head_.empty(); }
  /// Both ends, with a line between them that tells how much is missing.
  std::string text() const;
  /// The last line with this prefix, its line end taken off, cut at longestLine; false when none is kept. A line
  /// without a line end counts.
  bool findLast(std::string_view prefix, std::string& line) const;

 private:
  void follow(std::string_view bytes);
  /// Of whole lines, without the end of the last one.
  void keepLastError(std::string_view lines);
  std::string_view tail() const;

  std::string head_;
  std::string tail_;               // up to twice what is kept, so that it moves seldom
  unsigned long long passed_ = 0;  // bytes that came after the head
  std::string line_;               // beginning of the line that is not ended yet
  std::string lastError_;
};

}  // namespace orrery::platform::background
