#include "output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "failure.h"
#include "posix.h"
#include "printable.h"

namespace orrery::tool {
namespace {

/// Characters of a UTF-8 text: every byte that does not continue one.
std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

std::string Table::text() const {
  std::vector<std::vector<std::string>> lines;
  if (!header_.empty()) lines.push_back(header_);
  for (const std::vector<std::string>& row : rows_) {
    std::vector<std::string>& cells = lines.emplace_back();
    for (const std::string& cell : row) cells.push_back(printable(cell));
  }
  std::vector<std::size_t> widths;
  for (const std::vector<std::string>& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], widthOf(line[i]));
  }
  std::string result;
  for (const std::vector<std::string>& line : lines) {
    std::string printed;
    for (std::size_t i = 0; i < line.size(); ++i) {
      printed += line[i];
      if (i + 1 < line.size()) printed.append(widths[i] - widthOf(line[i]) + 2, ' ');
    }
    printed.erase(printed.find_last_not_of(' ') + 1);
    result += printed + "\n";
  }
  return result;
}

void print(Format format, const Json& document, const Table& table) {
  const std::string text =
      format == Format::json ? document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : table.text();
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure("the result cannot be written to standard output", errorText(errno));
  }
}

OutputAside::OutputAside() {
  std::fflush(stdout);
  kept_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (kept_ < 0) return;
  const OwnFd nowhere(::isatty(STDERR_FILENO) == 1 ? -1 : ::open("/dev/null", O_WRONLY | O_CLOEXEC));
  ::dup2(nowhere.valid() ? nowhere.get() : STDERR_FILENO, STDOUT_FILENO);
}

OutputAside::~OutputAside() {
  std::fflush(stdout);
  if (kept_ < 0) return;
  ::dup2(kept_, STDOUT_FILENO);
  ::close(kept_);
}

}  // namespace orrery::tool
