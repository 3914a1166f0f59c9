#pragma once

#include <string>

namespace orrery::mysql::discovery {

/// What others wrote, for a log line or an error: its beginning, and how much there is of it.
class LogText {
 public:
  explicit LogText(const std::string& text) : whole_(text) {
    if (text.size() > longest) cut_ = text.substr(0, longest) + " [" + std::to_string(text.size()) + " bytes in all]";
  }
  const char* c_str() const { return cut_.empty() ? whole_.c_str() : cut_.c_str(); }

 private:
  static constexpr std::size_t longest = std::size_t{4} * 1024;
  const std::string& whole_;
  std::string cut_;
};

}  // namespace orrery::mysql::discovery
