#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace orrery::tool {

/// A sign of life on standard error while the scope lasts, from its second second on; erased at the end. Does nothing
/// unless `wanted` and standard error is a terminal.
class [[nodiscard]] Progress {
 public:
  Progress(std::string text, bool wanted);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// What is shown from now on. Called by any thread.
  void change(std::string text);
  /// Writes a line of its own to standard error, whether or not anything is drawn. Called by any thread.
  void tell(const std::string& line);

 private:
  void draw();

  std::mutex mutex_;
  std::string text_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

}  // namespace orrery::tool
