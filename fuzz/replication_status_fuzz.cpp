// Any lines are read without harm, and nothing that stands where a server's error text does makes a replica run whose
// threads do not.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>

#include "replication/status.h"

namespace {

void appendLines(std::list<std::string>& lines, std::string_view text) {
  for (;;) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::list<std::string> lines;
  appendLines(lines, text);
  const auto any = orrery::mysql::readReplicationStatus(lines);
  if (any.runs() && !any.isRow) std::abort();

  std::list<std::string> broken;
  appendLines(broken,
              "*************************** 1. row ***************************\nstate\nhost\nuser\n3306\n60\nbin.1\n4\n"
              "relay.1\n4\nbin.1\nYes\nNo\n\n\n\n\n\n\n1062");
  appendLines(broken, text);
  appendLines(broken, "0\n774\n1385\nNone\n\n0\nNo\n\n\n\n\n\nNULL\nNo\n0\n\n1062\n");
  appendLines(broken, text);
  if (orrery::mysql::readReplicationStatus(broken).runs()) std::abort();
  return 0;
}
