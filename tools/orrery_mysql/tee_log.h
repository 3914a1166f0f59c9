#pragma once

#include <mutex>
#include <string>

#include "orrery/platform/services.h"

namespace orrery::tool {

/// The home's log with two ears of the command's own: the last messages, kept to explain a failure, and a copy on
/// standard error for `-v`.
class TeeLog final : public platform::LogSink {
 public:
  /// `verbosity` 0: nothing on standard error; 1: plain lines and errors; 2 and more: every level.
  TeeLog(std::shared_ptr<platform::LogSink> inner, int verbosity) : inner_(std::move(inner)), verbosity_(verbosity) {}

  bool wants(int level) const noexcept override { return shown(level) || inner_->wants(level); }
  void write(const platform::LogLine& line) noexcept override;
  void writeInChild(const platform::LogLine& line) noexcept override { inner_->writeInChild(line); }

  /// Text of the last error, without its tag; else that of the last plain line; empty when there was neither.
  std::string lastWords() const;

 private:
  bool shown(int level) const noexcept { return verbosity_ >= 2 || (verbosity_ == 1 && level == 0); }
  void remember(std::string& place, std::string_view text) noexcept;
  void show(const platform::LogLine& line) const noexcept;

  std::shared_ptr<platform::LogSink> inner_;
  int verbosity_;
  mutable std::mutex mutex_;
  std::string lastError_;
  std::string lastPlainLine_;
};

}  // namespace orrery::tool
