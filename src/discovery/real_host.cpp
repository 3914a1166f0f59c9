// The machine itself, as discovery asks it.

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <map>
#include <sstream>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/posix.h"

#include "discovery/bounded_file.h"
#include "discovery/host.h"
#include "discovery/process_list.h"
#include "discovery/replaceable.h"
#include "discovery/sockets.h"
#include "paths/directory.h"

namespace orrery::mysql::discovery {
namespace {

using platform::OwnFd;

constexpr std::size_t longestCommandLine = std::size_t{8} * 1024 * 1024;
constexpr std::size_t longestStatus = std::size_t{64} * 1024;
constexpr std::size_t longestSocketList = std::size_t{64} * 1024 * 1024;
constexpr std::size_t largestOptionFile = std::size_t{1} * 1024 * 1024;
constexpr int mostEntries = 10000;  // of a folder that an option file names
// For a program that is no concern of the agent's but for its version.
constexpr std::size_t longestForeignOutput = std::size_t{64} * 1024;
constexpr std::size_t longestMountList = std::size_t{4} * 1024 * 1024;
// Of a list of processes: an account, an id and a program's path are shorter.
constexpr std::size_t longestListedLine = std::size_t{8} * 1024;
constexpr std::size_t longestList = std::size_t{64} * 1024 * 1024;

std::string linkAt(int folder, const char* name) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = readlinkat(folder, name, target.data(), target.size());
  return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size)) : std::string();
}

/// The four ids behind a label of /proc/PID/status: real, effective, saved, of the file system.
bool idsOf(const std::string& status, const std::string& label, std::array<unsigned, 4>& ids) {
  const std::size_t start = status.find("\n" + label);
  if (start == std::string::npos) return false;
  std::istringstream words(status.substr(start + 1 + label.size(), 100));
  return static_cast<bool>(words >> ids[0] >> ids[1] >> ids[2] >> ids[3]);
}

std::string nameOf(uid_t uid) {
  std::array<char, 4096> buffer;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return std::to_string(uid);
  }
  return entry.pw_name;
}

/// The sockets of every network namespace that was looked at in this pass: on a busy host the lists are long.
using SocketTables = std::map<std::string, SocketTable>;

class RealProcess : public Process {
 public:
  RealProcess(OwnFd folder, SocketTables& tables) : folder_(std::move(folder)), tables_(tables) {}

  bool commandLine(std::string& bytes) override {
    return readProcFile(folder_.get(), "cmdline", longestCommandLine, bytes);
  }

  ProcessAccount account() override {
    ProcessAccount account;
    std::string status;
    std::array<unsigned, 4> users{};
    std::array<unsigned, 4> groups{};
    if (!readProcFile(folder_.get(), "status", longestStatus, status) || !idsOf(status, "Uid:", users) ||
        !idsOf(status, "Gid:", groups)) {
      return account;
    }
    const auto same = [](const std::array<unsigned, 4>& ids) { return ids[0] == ids[1] && ids[0] == ids[2]; };
    account.known = true;
    account.changed = !same(users) || !same(groups);
    account.uid = users[1];
    account.gid = groups[1];
    account.name = nameOf(account.uid);
    return account;
  }

  ProcessPlaces places() override {
    const int folder = folder_.get();
    ProcessPlaces places;
    places.executable = linkAt(folder, "exe");
    places.workingDirectory = linkAt(folder, "cwd");
    places.root = linkAt(folder, "root");
    const std::string mounts = linkAt(folder, "ns/mnt");
    const std::string users = linkAt(folder, "ns/user");
    const std::string network = linkAt(folder, "ns/net");
    places.otherUsers = !users.empty() && users != linkAt(AT_FDCWD, "/proc/self/ns/user");
    places.otherNetwork = !network.empty() && network != linkAt(AT_FDCWD, "/proc/self/ns/net");
    places.unseen = mounts.empty() || users.empty();
    if (mounts.empty() || mounts == linkAt(AT_FDCWD, "/proc/self/ns/mnt")) return places;
    // Services have mounts of their own as well, with some folders of the host hidden or read-only.
    std::string own;
    std::string others;
    const OwnFd self(::open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const bool read = readProcFile(folder, "mountinfo", longestMountList, others) &&
                      readProcFile(self.get(), "mountinfo", longestMountList, own);
    places.otherMounts = !read || rootMountIn(others) != rootMountIn(own);
    return places;
  }

  std::optional<ListeningSockets> sockets() override {
    paths::Directory descriptors(folder_.get(), "fd");
    if (!descriptors.isOpen()) return std::nullopt;
    std::set<unsigned long> inodes;
    while (const dirent* entry = descriptors.next()) {
      const unsigned long node = socketInode(linkAt(descriptors.descriptor(), entry->d_name));
      if (node != 0) inodes.insert(node);
    }
    return listeningAmong(table(), inodes);
  }

 private:
  const SocketTable& table() {
    const auto [place, isNew] = tables_.try_emplace(linkAt(folder_.get(), "ns/net"));
    if (!isNew) return place->second;
    std::string text;
    if (readProcFile(folder_.get(), "net/unix", longestSocketList, text)) addUnixSockets(text, place->second);
    for (const char* name : {"net/tcp", "net/tcp6"}) {
      if (readProcFile(folder_.get(), name, longestSocketList, text)) addTcpSockets(text, place->second);
    }
    return place->second;
  }

  OwnFd folder_;
  SocketTables& tables_;
};

/// The agent's environment without what would change the outputs that are read: the width of a screen, formats, and
/// languages, in which grep takes bytes of a stranger's title for no text at all.
std::vector<std::string> plainEnvironment() {
  constexpr std::array<std::string_view, 6> without{
      "COLUMNS=", "LINES=", "PS_FORMAT=", "PS_PERSONALITY=", "GREP_OPTIONS=", "LC_ALL="};
  std::vector<std::string> environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const auto begins = [&](std::string_view name) { return text.substr(0, name.size()) == name; };
    if (std::none_of(without.begin(), without.end(), begins)) environment.emplace_back(text);
  }
  environment.emplace_back("LC_ALL=C");
  return environment;
}

class RealHost : public Host {
 public:
  int shell(const std::string& command, const CommandRules& rules, std::string& output, std::string& errors) override {
    DzProcess::RunOptions options;
    options.environment = &environment_;
    options.milliseconds = static_cast<int>(rules.milliseconds);
    options.isStopped = rules.isStopped;
    if (rules.dropsLongLines) {
      options.longestLine = longestListedLine;
      options.mostOutput = longestList;
    }
    if (rules.account) {
      options.environment = &foreignEnvironment_;
      options.takesAccount = true;
      options.user = rules.account->uid;
      options.group = rules.account->gid;
      options.mostOutput = longestForeignOutput;
    }
    return DzProcess::system(command, output, errors, options);
  }

  int start(const std::string& command, std::string& output, std::string& errors, int& exitStatus,
            std::string& reason) override {
    DzProcess::RunOptions options;
    options.environment = &environment_;
    return DzProcess::RunProcess({"/bin/sh", "-c", command}, options, output, errors, exitStatus, reason);
  }

  std::unique_ptr<Process> open(const std::string& pid) override {
    OwnFd folder(::open(("/proc/" + pid).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return nullptr;
    return std::make_unique<RealProcess>(std::move(folder), tables_);
  }

  bool exists(const std::string& path, bool& isFile) override { return FXPath::DoesPathExist(path, isFile); }

  bool readOptionFile(const std::string& path, std::string& text, std::string& reason) override {
    return readPlainFile(path, largestOptionFile, text, reason);
  }

  std::vector<std::string> optionFilesIn(const std::string& folder) override {
    std::vector<std::string> files;
    paths::Directory entries(folder);
    for (int seen = 0; entries.isOpen() && seen < mostEntries; ++seen) {
      const dirent* const entry = entries.next();
      if (entry == nullptr) break;
      const std::string name = entry->d_name;
      if (name.size() > 4 && name.compare(name.size() - 4, 4, ".cnf") == 0) {
        files.push_back(FXPath::Append(folder.back() == '/' ? folder.substr(0, folder.size() - 1) : folder, name));
      }
    }
    std::sort(files.begin(), files.end());
    return files;
  }

  PathVerdict whoCanReplace(const std::string& path) override { return discovery::whoCanReplace(path, geteuid()); }
  uid_t agentUid() override { return geteuid(); }
  std::int64_t milliseconds() override {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  }

 private:
  const std::vector<std::string> environment_ = plainEnvironment();
  const std::vector<std::string> foreignEnvironment_{"PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL=C"};
  SocketTables tables_;
};

}  // namespace

std::unique_ptr<Host> realHost() {
  return std::make_unique<RealHost>();
}

}  // namespace orrery::mysql::discovery
