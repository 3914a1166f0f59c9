#include "captured_output.h"

#include <algorithm>
#include <cstring>

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
  const std::size_t firstEnd = bytes.find('\n');
  line_.append(bytes.substr(0, std::min(firstEnd, longestLine - line_.size())));
  if (firstEnd == std::string_view::npos) return;
  keepLastError(line_);
  bytes.remove_prefix(firstEnd + 1);
  if (const std::size_t lastEnd = bytes.rfind('\n'); lastEnd != std::string_view::npos) {
    keepLastError(bytes.substr(0, lastEnd));
    bytes.remove_prefix(lastEnd + 1);
  }
  line_ = bytes.substr(0, longestLine);
}

void CapturedOutput::keepLastError(std::string_view lines) {
  constexpr std::string_view mark = "\nERROR:";
  static_assert(mark.substr(1) == errorPrefix);
  std::size_t found = lines.substr(0, errorPrefix.size()) == errorPrefix ? 0 : std::string_view::npos;
  std::string_view rest = lines;
  while (const void* const at = memmem(rest.data(), rest.size(), mark.data(), mark.size())) {
    found = static_cast<std::size_t>(static_cast<const char*>(at) - lines.data()) + 1;
    rest = lines.substr(found);
  }
  if (found == std::string_view::npos) return;
  const std::string_view line = lines.substr(found);
  lastError_ = line.substr(0, std::min(line.find('\n'), longestLine));
  dropCarriageReturn(lastError_);
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
