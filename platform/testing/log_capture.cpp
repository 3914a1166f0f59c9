#include "orrery/platform/testing/log_capture.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace orrery::platform::testing {

std::vector<CapturedLine> LogCapture::entries() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<std::string> LogCapture::lines() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  result.reserve(lines_.size());
  for (const CapturedLine& line : lines_) result.push_back(line.tag + ": " + line.text);
  return result;
}

std::vector<std::string> LogCapture::texts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> result;
  result.reserve(lines_.size());
  for (const CapturedLine& line : lines_) result.push_back(line.text);
  return result;
}

bool LogCapture::contains(const std::string& part) const {
  const std::lock_guard lock(mutex_);
  return std::any_of(lines_.begin(), lines_.end(),
                     [&](const CapturedLine& line) { return line.text.find(part) != std::string::npos; });
}

void LogCapture::clear() {
  const std::lock_guard lock(mutex_);
  lines_.clear();
}

void LogCapture::add(const LogLine& line) {
  const std::lock_guard lock(mutex_);
  lines_.push_back({line.kind, line.level, line.jobId, std::string(line.tag), std::string(line.text)});
}

/// Stack and write only: see LogSink::writeInChild.
void LogCapture::addFromChild(const LogLine& line) const noexcept {
  const int descriptor = childDescriptor_;
  if (descriptor < 0) return;
  const int error = errno;
  std::array<char, 4096> buffer;
  std::size_t size = 0;
  for (const std::string_view piece : {line.tag, std::string_view(": "), line.text}) {
    const std::size_t taken = std::min(piece.size(), buffer.size() - 1 - size);
    if (taken != 0) std::memcpy(buffer.data() + size, piece.data(), taken);
    size += taken;
  }
  buffer[size++] = '\n';
  static_cast<void>(!::write(descriptor, buffer.data(), size));
  errno = error;
}

}  // namespace orrery::platform::testing
