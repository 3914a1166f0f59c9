#include "tee_log.h"

#include <unistd.h>

#include <exception>

#include "failure.h"

namespace orrery::tool {

void TeeLog::write(const platform::LogLine& line) noexcept {
  const bool error = line.kind == platform::LogKind::error;
  if (error || inner_->wants(line.level)) inner_->write(line);
  if (error || line.level == 0) remember(error ? lastError_ : lastPlainLine_, line.text);
  if (verbosity_ > 0 && (error || shown(line.level))) show(line);
}

void TeeLog::remember(std::string& place, std::string_view text) noexcept {
  try {
    const std::lock_guard lock(mutex_);
    place.assign(text);
  } catch (const std::exception&) {
    return;  // the log itself has the line
  }
}

void TeeLog::show(const platform::LogLine& line) const noexcept {
  try {
    std::string shownLine(line.kind == platform::LogKind::error ? "error: " : "");
    shownLine.append(line.tag).append(": ").append(line.text);
    shownLine = onOneLine(shownLine) + "\n";
    // One write per line, so that lines of several threads stay whole. A closed standard error loses them.
    if (::write(STDERR_FILENO, shownLine.data(), shownLine.size()) < 0) return;
  } catch (const std::exception&) {
    return;
  }
}

std::string TeeLog::lastWords() const {
  const std::lock_guard lock(mutex_);
  return lastError_.empty() ? lastPlainLine_ : lastError_;
}

}  // namespace orrery::tool
