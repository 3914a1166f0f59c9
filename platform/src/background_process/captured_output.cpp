#include "captured_output.h"

#include <algorithm>

namespace orrery::platform::background {
namespace {

void dropCarriageReturn(std::string& line) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
}

}  // namespace

void CapturedOutput::append(std::string_view bytes) {
  follow(bytes);
  const std::size_t room = mostOfEachEnd - head_.size();
  head_.append(bytes.substr(0, room));
  if (bytes.size() <= room) return;
  bytes.remove_prefix(room);
  passed_ += bytes.size();
  if (bytes.size() > mostOfEachEnd) bytes.remove_prefix(bytes.size() - mostOfEachEnd);
  if (tail_.size() + bytes.size() > 2 * mostOfEachEnd)
    tail_.erase(0, tail_.size() - std::min(tail_.size(), mostOfEachEnd));
  tail_.append(bytes);
}

/// Looks for lines that tell an error. All others pass without a copy, but for the last one, which may go on.
void CapturedOutput::follow(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    const std::string_view part = bytes.substr(0, end);
    const bool ended = end != std::string_view::npos;
    if (!ended || !line_.empty() || part.substr(0, errorPrefix.size()) == errorPrefix)
      line_.append(part.substr(0, longestLine - line_.size()));
    if (!ended) return;
    if (line_.compare(0, errorPrefix.size(), errorPrefix) == 0) {
      lastError_.swap(line_);
      dropCarriageReturn(lastError_);
    }
    line_.clear();
    bytes.remove_prefix(end + 1);
  }
}

std::string_view CapturedOutput::tail() const {
  const std::string_view all = tail_;
  return all.substr(all.size() - std::min(all.size(), mostOfEachEnd));
}

std::string CapturedOutput::text() const {
  std::string text = head_;
  if (const std::size_t kept = tail().size(); passed_ > kept)
    text += "\n... " + std::to_string(passed_ - kept) + " bytes are not kept ...\n";
  return text += tail();
}

bool CapturedOutput::findLast(std::string_view prefix, std::string& line) const {
  if (prefix == errorPrefix) {
    const bool isOpen = line_.compare(0, prefix.size(), prefix) == 0;
    if (!isOpen && lastError_.empty()) return false;
    line = isOpen ? line_ : lastError_;
    dropCarriageReturn(line);
    return true;
  }
  const std::string kept = text();
  std::string_view rest = kept;
  while (!rest.empty()) {
    if (rest.back() == '\n') rest.remove_suffix(1);
    const std::size_t before = rest.rfind('\n');
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    if (rest.substr(begin, prefix.size()) == prefix) {
      line = rest.substr(begin, longestLine);
      dropCarriageReturn(line);
      return true;
    }
    rest = rest.substr(0, begin);
  }
  return false;
}

}  // namespace orrery::platform::background
