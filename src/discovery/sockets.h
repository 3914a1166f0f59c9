#pragma once

#include <map>
#include <set>
#include <string>

#include "discovery/host.h"

namespace orrery::mysql::discovery {

/// The listening sockets of one network namespace by their inodes.
struct SocketTable {
  std::multimap<unsigned long, std::string> paths;
  std::multimap<unsigned long, unsigned> ports;
};

/// Adds what /proc/net/unix lists.
void addUnixSockets(const std::string& text, SocketTable& table);
/// Adds what /proc/net/tcp or /proc/net/tcp6 lists.
void addTcpSockets(const std::string& text, SocketTable& table);

/// The inode of a socket that a descriptor's link names, "socket:[N]"; 0 for anything else.
unsigned long socketInode(const std::string& link);

ListeningSockets listeningAmong(const SocketTable& table, const std::set<unsigned long>& inodes);

}  // namespace orrery::mysql::discovery
