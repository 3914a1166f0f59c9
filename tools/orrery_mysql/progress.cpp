#include "progress.h"

#include <unistd.h>

#include <chrono>
#include <string_view>
#include <utility>

namespace orrery::tool {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kStates = "|/-\\";
constexpr std::string_view kErase = "\r\033[K";

void writeAll(std::string_view text) {
  // What a terminal does not take is only decoration.
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return;
}

}  // namespace

Progress::Progress(std::string text, bool wanted) : text_(std::move(text)) {
  if (wanted && ::isatty(STDERR_FILENO) == 1) thread_ = std::thread([this] { draw(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void Progress::change(std::string text) {
  const std::lock_guard lock(mutex_);
  text_ = std::move(text);
}

void Progress::tell(const std::string& line) {
  const std::lock_guard lock(mutex_);
  writeAll((thread_.joinable() ? std::string(kErase) : std::string()) + line + "\n");
}

void Progress::draw() {
  std::unique_lock lock(mutex_);
  if (changed_.wait_for(lock, 1s, [this] { return done_; })) return;
  const auto start = std::chrono::steady_clock::now() - 1s;
  for (std::size_t turn = 0; !done_; ++turn) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    std::string line(kErase);
    line.append(1, kStates[turn % kStates.size()]).append(" ").append(text_);
    // Back to its start: what others write begins there, not behind it.
    line.append(" ").append(std::to_string(seconds.count())).append(" s\r");
    writeAll(line);
    changed_.wait_for(lock, 150ms, [this] { return done_; });
  }
  writeAll(kErase);
}

}  // namespace orrery::tool
