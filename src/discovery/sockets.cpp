#include "discovery/sockets.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>

#include "orrery/platform/FXString.h"

namespace orrery::mysql::discovery {
namespace {

constexpr unsigned long acceptsConnections = 0x10000;  // among the flags of a Unix socket
constexpr std::string_view listens = "0A";             // state of a TCP socket

template <class Number>
bool parse(std::string_view text, int base, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

void addUnixSockets(const std::string& text, SocketTable& table) {
  for (const std::string& line : FXString::Split(text, '\n')) {
    std::istringstream words(line);
    std::string number, references, protocol, flags, type, state, inode, path;
    if (!(words >> number >> references >> protocol >> flags >> type >> state >> inode)) continue;
    unsigned long bits = 0;
    unsigned long node = 0;
    if (!parse(flags, 16, bits) || !parse(inode, 10, node) || (bits & acceptsConnections) == 0) continue;
    words.get();  // the one blank before a path, which may begin with blanks of its own
    std::getline(words, path);
    if (!path.empty()) table.paths.emplace(node, path);
  }
}

void addTcpSockets(const std::string& text, SocketTable& table) {
  for (const std::string& line : FXString::Split(text, '\n')) {
    std::istringstream words(line);
    std::string number, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
    if (!(words >> number >> local >> remote >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode)) {
      continue;
    }
    const std::size_t colon = local.rfind(':');
    unsigned port = 0;
    unsigned long node = 0;
    if (state != listens || colon == std::string::npos) continue;
    if (!parse(std::string_view(local).substr(colon + 1), 16, port) || !parse(inode, 10, node)) continue;
    table.ports.emplace(node, port);
  }
}

unsigned long socketInode(const std::string& link) {
  constexpr std::string_view before = "socket:[";
  unsigned long node = 0;
  if (link.rfind(before, 0) != 0 || link.back() != ']') return 0;
  return parse(std::string_view(link).substr(before.size(), link.size() - before.size() - 1), 10, node) ? node : 0;
}

ListeningSockets listeningAmong(const SocketTable& table, const std::set<unsigned long>& inodes) {
  ListeningSockets found;
  for (const auto& [node, path] : table.paths) {
    if (inodes.count(node) != 0) found.paths.push_back(path);
  }
  for (const auto& [node, port] : table.ports) {
    if (inodes.count(node) != 0) found.ports.push_back(port);
  }
  std::sort(found.ports.begin(), found.ports.end());
  found.ports.erase(std::unique(found.ports.begin(), found.ports.end()), found.ports.end());
  return found;
}

}  // namespace orrery::mysql::discovery
