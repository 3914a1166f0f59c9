#include "sbt/directory_users.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

#include "orrery/platform/posix.h"

using orrery::platform::errorText;
using orrery::platform::OwnFd;
namespace fs = std::filesystem;

namespace orrery::mysql::sbt {
namespace {

/// Asked for their locks: enough to find a server that keeps its system tablespace elsewhere.
constexpr int mostTables = 1000;

/// The directory as processes can be compared with it.
struct Directory {
  std::string path;  // without links
  struct stat info {};
  bool exists = false;

  bool holds(std::string_view other) const {
    constexpr std::string_view deleted = " (deleted)";
    if (other == path) return true;
    if (other.size() > deleted.size() && other.substr(other.size() - deleted.size()) == deleted)
      other.remove_suffix(deleted.size());
    return other == path || (other.size() > path.size() && other.substr(0, path.size()) == path &&
                             (path.back() == '/' || other[path.size()] == '/'));
  }
  /// What another path to the same directory leads to, as in a container.
  bool isAt(const fs::path& link) const {
    struct stat other {};
    return stat(link.c_str(), &other) == 0 && other.st_dev == info.st_dev && other.st_ino == info.st_ino;
  }
};

/// What a look at a process came to. What ends meanwhile is no user; what may not be looked into is `hidden`.
enum class Use { none, hidden, found };

Use orHidden(const std::error_code& error) {
  return error == std::errc::permission_denied || error == std::errc::operation_not_permitted ? Use::hidden : Use::none;
}

Use leadsInto(const fs::path& link, const Directory& directory) {
  std::error_code error;
  const fs::path target = fs::read_symlink(link, error);
  if (error) return orHidden(error);
  return directory.holds(target.native()) ? Use::found : Use::none;
}

Use isOpenIn(const fs::path& process, const Directory& directory) {
  std::error_code error;
  Use use = Use::none;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end; entry.increment(error)) {
    const Use one = leadsInto(entry->path(), directory);
    if (one == Use::found) return one;
    if (one == Use::hidden) use = one;
  }
  return error ? orHidden(error) : use;
}

/// A mapping stays when its descriptor is closed. The path is the last field of a line, after five without a slash but
/// for the device's number.
bool isMappedIn(const fs::path& process, const Directory& directory) {
  std::ifstream maps(process / "maps");
  for (std::string line; std::getline(maps, line);) {
    const std::size_t slash = line.find('/');
    if (slash != std::string::npos && directory.holds(std::string_view(line).substr(slash))) return true;
  }
  return false;
}

Use useOf(const fs::path& process, const Directory& directory) {
  Use use = Use::none;
  for (const char* const place : {"cwd", "root"}) {
    if (directory.isAt(process / place)) return Use::found;
    const Use one = leadsInto(process / place, directory);
    if (one == Use::found) return one;
    if (one == Use::hidden) use = one;
  }
  const Use open = isOpenIn(process, directory);
  if (open == Use::found || isMappedIn(process, directory)) return Use::found;
  return open == Use::hidden ? open : use;
}

std::string programOf(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

/// With the scripts that keep a server running, and end with it.
bool isServer(const std::string& program) {
  return program.rfind("mysqld", 0) == 0 || program.rfind("mariadbd", 0) == 0;
}

std::string nameOf(const fs::path& process) {
  const std::string program = programOf(process);
  return "process " + process.filename().string() + (program.empty() ? "" : " (" + program + ")");
}

/// The account that a process runs as. Its folder does not tell that: one that changed its account belongs to root.
std::optional<uid_t> accountOf(const fs::path& process) {
  std::ifstream file(process / "status");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("Uid:", 0) != 0) continue;
    std::istringstream fields(line.substr(4));
    uid_t real = 0;
    uid_t effective = 0;
    if (fields >> real >> effective) return effective;
    break;
  }
  return std::nullopt;
}

bool mayBeUser(const fs::path& process, const Directory& directory) {
  if (isServer(programOf(process))) return true;
  const std::optional<uid_t> account = accountOf(process);
  return directory.exists && account && *account == directory.info.st_uid && *account != geteuid();
}

bool isProcess(const std::string& name, pid_t self) {
  pid_t id = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
  return error == std::errc() && end == name.data() + name.size() && id != self;
}

bool isTable(std::string_view name) {
  constexpr std::string_view ending = ".ibd";
  return name.size() > ending.size() && name.substr(name.size() - ending.size()) == ending;
}

/// Files that a server keeps open as long as it runs.
bool isKeptOpen(std::string_view name) {
  for (const std::string_view begin : {"ib", "#ib", "undo", "aria_log_control"})
    if (name.substr(0, begin.size()) == begin) return true;
  return false;
}

std::string lockOn(const fs::path& file, const std::string& proc) {
  // A pipe of that name must not be waited for.
  const OwnFd opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (!opened && (errno == ENOENT || errno == ENXIO)) return {};
  if (opened && fstat(opened.get(), &info) == 0 && !S_ISREG(info.st_mode)) return {};
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (!opened || fcntl(opened.get(), F_OFD_GETLK, &lock) != 0)
    return "whether " + file.native() + " is locked cannot be told: " + errorText(errno);
  if (lock.l_type == F_UNLCK) return {};
  // One of another namespace has no number here, and a lock that is tied to an open file has none at all.
  return (lock.l_pid > 0 ? nameOf(fs::path(proc) / std::to_string(lock.l_pid)) : "a process that cannot be seen here") +
         " holds a lock on " + file.native();
}

/// Looks through one folder, and into its folders when `below` is set.
std::string lockIn(const fs::path& folder, bool below, int& tables, const std::string& proc) {
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const fs::path& path = entry->path();
    const std::string name = path.filename().native();
    std::string found;
    std::error_code gone;
    if (below && entry->is_directory(gone)) {
      found = lockIn(path, false, tables, proc);
    } else if (isKeptOpen(name) || (isTable(name) && --tables >= 0)) {
      found = lockOn(path, proc);
    }
    if (!found.empty()) return found;
  }
  if (!error || error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return {};
  return "what is locked in " + folder.native() + " cannot be told: " + error.message();
}

}  // namespace

std::string directoryUser(const std::string& path, pid_t self, Whom whom, const std::string& proc) {
  Directory directory;
  std::error_code error;
  directory.path = fs::weakly_canonical(path, error).native();
  if (error) return "who uses " + path + " cannot be told: " + error.message();
  if (directory.path.size() > 1 && directory.path.back() == '/') directory.path.pop_back();
  // One that was removed may still be somebody's: its path tells it then, and no inode.
  directory.exists = stat(directory.path.c_str(), &directory.info) == 0;
  if (!directory.exists) directory.info = {};
  fs::directory_iterator entry(proc, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const fs::path& process = entry->path();
    if (!isProcess(process.filename().native(), self)) continue;
    const Use use = useOf(process, directory);
    if (use == Use::none || (whom == Whom::allButServers && isServer(programOf(process)))) continue;
    if (use == Use::found) return nameOf(process) + " works in " + path;
    if (mayBeUser(process, directory))
      return "whether " + nameOf(process) + " works in " + path + " cannot be told: this account may not look into it";
  }
  return error ? "the processes of this machine cannot be listed: " + error.message() : std::string();
}

std::string directoryLocker(const std::string& directory, const std::string& proc) {
  int tables = mostTables;
  return lockIn(directory, true, tables, proc);
}

}  // namespace orrery::mysql::sbt
