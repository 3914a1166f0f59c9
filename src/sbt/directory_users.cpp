#include "sbt/directory_users.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

#include "orrery/platform/posix.h"

#include "sbt/emptying.h"

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
  /// Whether a process has another directory at this path, as in a container: its paths tell nothing then.
  bool isAnotherFor(const fs::path& process) const {
    struct stat other {};
    const std::string inside = process.native() + "/root" + path;
    return exists && stat(inside.c_str(), &other) == 0 && (other.st_dev != info.st_dev || other.st_ino != info.st_ino);
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
    if (one == Use::found && !directory.isAnotherFor(process)) return one;
    if (one == Use::hidden) use = one;
  }
  if (directory.isAnotherFor(process)) return use;
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

/// With the scripts that keep a server running, and end with it. Whole names, as the system cuts them: there are others
/// that begin alike, such as programs that watch a server.
bool isServer(const std::string& program) {
  constexpr std::string_view names[] = {"mysqld",   "mysqld-debug",  "mysqld_safe",    "mysqld_safe_hel",
                                        "mariadbd", "mariadbd-safe", "mariadbd-safe-h"};
  return std::find(std::begin(names), std::end(names), program) != std::end(names);
}

std::string nameOf(const fs::path& process) {
  const std::string program = programOf(process);
  return "process " + process.filename().string() + (program.empty() ? "" : " (" + program + ")");
}

/// What its status tells behind a key.
std::string statusOf(const fs::path& process, std::string_view key) {
  std::ifstream file(process / "status");
  for (std::string line; std::getline(file, line);)
    if (line.compare(0, key.size(), key) == 0) return line.substr(key.size());
  return {};
}

/// The account that a process runs as. Its folder does not tell that: one that changed its account belongs to root.
std::optional<uid_t> accountOf(const fs::path& process) {
  std::istringstream fields(statusOf(process, "Uid:"));
  uid_t real = 0;
  uid_t effective = 0;
  return fields >> real >> effective ? std::optional(effective) : std::nullopt;
}

/// 0: it has none here, or is gone.
pid_t parentOf(const fs::path& process) {
  std::istringstream field(statusOf(process, "PPid:"));
  pid_t parent = 0;
  return field >> parent ? parent : 0;
}

bool mayBeUser(const fs::path& process, const Directory& directory) {
  if (isServer(programOf(process))) return true;
  const std::optional<uid_t> account = accountOf(process);
  return directory.exists && account && *account == directory.info.st_uid && *account != geteuid();
}

/// The number of a process by its folder; 0: it is none's.
pid_t idOf(const fs::path& process) {
  const std::string name = process.filename().native();
  pid_t id = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
  return error == std::errc() && end == name.data() + name.size() ? id : 0;
}

fs::path folderOf(pid_t process, const std::string& proc) {
  return fs::path(proc) / std::to_string(process);
}

bool isAmong(const std::vector<pid_t>& processes, pid_t process) {
  return std::find(processes.begin(), processes.end(), process) != processes.end();
}

/// All processes of a server's name.
std::vector<pid_t> serversIn(const std::string& proc) {
  std::vector<pid_t> servers;
  std::error_code error;
  fs::directory_iterator entry(proc, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error))
    if (const pid_t id = idOf(entry->path()); id != 0 && isServer(programOf(entry->path()))) servers.push_back(id);
  return servers;
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

/// What a look at the lock of a file came to.
struct Lock {
  std::string words;    // empty: it is free
  bool isHeld = false;  // otherwise it cannot be told
  pid_t holder = 0;     // not above 0: it cannot be seen here
};

/// Which locks are looked for.
using Wanted = std::function<bool(const Lock& lock)>;

Lock lockOn(const fs::path& file, const std::string& proc) {
  // A pipe of that name must not be waited for.
  const OwnFd opened(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (!opened && (errno == ENOENT || errno == ENXIO)) return {};
  if (opened && fstat(opened.get(), &info) == 0 && !S_ISREG(info.st_mode)) return {};
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (!opened || fcntl(opened.get(), F_OFD_GETLK, &lock) != 0)
    return {"whether " + file.native() + " is locked cannot be told: " + errorText(errno)};
  if (lock.l_type == F_UNLCK) return {};
  // One of another namespace has no number here, and a lock that is tied to an open file has none at all.
  const std::string who = lock.l_pid > 0 ? nameOf(folderOf(lock.l_pid, proc)) : "a process that cannot be seen here";
  return {who + " holds a lock on " + file.native(), true, lock.l_pid};
}

/// Below the data directory, and nothing that its server can have files in.
bool isForeign(const fs::path& folder) {
  struct stat info {};
  struct stat above {};
  return stat(folder.c_str(), &info) == 0 && stat(folder.parent_path().c_str(), &above) == 0 && info.st_uid == 0 &&
         above.st_uid != 0;
}

/// Looks through one folder, and into its folders when `below` is set.
Lock lockIn(const fs::path& folder, bool below, const Wanted& wanted, int& tables, const std::string& proc) {
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const fs::path& path = entry->path();
    const std::string name = path.filename().native();
    Lock found;
    std::error_code gone;
    if (below && entry->is_directory(gone)) {
      if (name != folderOfFileSystem) found = lockIn(path, false, wanted, tables, proc);
    } else if (isKeptOpen(name) || (isTable(name) && --tables >= 0)) {
      found = lockOn(path, proc);
    }
    if (!found.words.empty() && wanted(found)) return found;
  }
  if (!error || error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return {};
  if (!below && error == std::errc::permission_denied && isForeign(folder)) return {};
  Lock unknown{"what is locked in " + folder.native() + " cannot be told: " + error.message()};
  return wanted(unknown) ? unknown : Lock();
}

Lock firstLock(const std::string& directory, const std::string& proc, const Wanted& wanted) {
  int tables = mostTables;
  return lockIn(directory, true, wanted, tables, proc);
}

/// Who holds the locks of a server's directory; 0: nobody who can be seen here.
pid_t holderOf(const std::string& directory, const std::string& proc) {
  return firstLock(directory, proc, [](const Lock& lock) { return lock.isHeld && lock.holder > 0; }).holder;
}

/// Whether what a process calls `name` is the directory, which it may know by another path, as in a container.
bool isDirectoryOf(pid_t process, const std::string& name, const std::string& directory, const std::string& proc) {
  struct stat info {};
  struct stat there {};
  if (stat(directory.c_str(), &info) != 0) return false;
  const std::string inside = folderOf(process, proc).native() + "/root" + name;
  if (stat(inside.c_str(), &there) != 0 && stat(name.c_str(), &there) != 0) return false;
  return there.st_dev == info.st_dev && there.st_ino == info.st_ino;
}

/// What would count of a process: that it works in the directory, that it may do so unseen.
struct Interest {
  bool found = false;
  bool hidden = false;
};

/// Asked before a process is looked into, which takes longer.
using Asked = std::function<Interest(const fs::path& process)>;

/// Words for people, empty: nobody; and whether they name one that does work in the directory.
struct User {
  std::string words;
  bool isFound = false;
};

User firstUser(const std::string& path, const std::string& proc, const Asked& asked) {
  Directory directory;
  std::error_code error;
  directory.path = fs::weakly_canonical(path, error).native();
  if (error) return {"who uses " + path + " cannot be told: " + error.message()};
  if (directory.path.size() > 1 && directory.path.back() == '/') directory.path.pop_back();
  // One that was removed may still be somebody's: its path tells it then, and no inode.
  directory.exists = stat(directory.path.c_str(), &directory.info) == 0;
  if (!directory.exists) directory.info = {};
  fs::directory_iterator entry(proc, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const fs::path& process = entry->path();
    if (idOf(process) == 0) continue;
    const Interest interest = asked(process);
    if (!interest.found && !interest.hidden) continue;
    const Use use = useOf(process, directory);
    if (use == Use::found && interest.found) return {nameOf(process) + " works in " + path, true};
    if (use == Use::hidden && interest.hidden && mayBeUser(process, directory))
      return {"whether " + nameOf(process) + " works in " + path +
              " cannot be told: this account may not look into it"};
  }
  if (error) return {"the processes of this machine cannot be listed: " + error.message()};
  return {};
}

}  // namespace

std::string directoryUser(const std::string& directory, pid_t self, Whom whom, const std::string& proc,
                          const std::vector<pid_t>& elsewhere) {
  return firstUser(directory, proc,
                   [&](const fs::path& process) {
                     const pid_t id = idOf(process);
                     const bool counts = id != self && (whom == Whom::everybody || !isServer(programOf(process)));
                     return Interest{counts, counts && !isAmong(elsewhere, id)};
                   })
      .words;
}

std::string directoryLocker(const std::string& directory, const std::string& proc) {
  return firstLock(directory, proc, [](const Lock&) { return true; }).words;
}

std::vector<pid_t> serverProcesses(const std::string& directory, const std::string& itsOwn, const std::string& proc) {
  pid_t server = holderOf(directory, proc);
  if (itsOwn.empty()) {
    if (!isServer(programOf(folderOf(server, proc)))) server = 0;
  } else if (server == 0 || !isDirectoryOf(server, itsOwn, directory, proc)) {
    server = holderOf(itsOwn, proc);
  }
  if (server == 0) return {};
  std::vector<pid_t> processes{server};
  const auto isScript = [&](pid_t process) { return process > 0 && isServer(programOf(folderOf(process, proc))); };
  for (pid_t parent = parentOf(folderOf(server, proc)); isScript(parent) && !isAmong(processes, parent);
       parent = parentOf(folderOf(parent, proc)))
    processes.push_back(parent);
  const std::vector<pid_t> line = processes;
  for (const pid_t id : serversIn(proc))
    if (!isAmong(line, id) && isAmong(line, parentOf(folderOf(id, proc)))) processes.push_back(id);
  return processes;
}

std::vector<pid_t> serversElsewhere(const std::string& directory, const std::vector<pid_t>& server,
                                    const std::string& proc) {
  const auto isItsOwn = [&](const Lock& lock) { return lock.isHeld && isAmong(server, lock.holder); };
  if (server.empty() || !firstLock(directory, proc, isItsOwn).isHeld) return {};
  std::vector<pid_t> others;
  for (const pid_t id : serversIn(proc))
    if (!isAmong(server, id)) others.push_back(id);
  return others;
}

bool isOfAnotherMachine(const std::string& directory, const std::string& itsOwn, pid_t self, const std::string& proc) {
  std::error_code error;
  if (itsOwn.empty() ||
      fs::weakly_canonical(fs::path(itsOwn) / "", error) != fs::weakly_canonical(fs::path(directory) / "", error) ||
      error)
    return false;
  const User user = firstUser(directory, proc, [&](const fs::path& process) {
    const bool counts = idOf(process) != self && isServer(programOf(process));
    return Interest{counts, counts};
  });
  return user.words.empty() && directoryLocker(directory, proc).empty();
}

std::string whoStays(const std::string& directory, pid_t self, const std::vector<pid_t>& server,
                     const std::string& proc) {
  const std::vector<pid_t> elsewhere = serversElsewhere(directory, server, proc);
  // Where nobody knows which one it is, the server in the directory is taken for the one that is to be stopped.
  const auto mayGo = [&](pid_t process) {
    return isAmong(server, process) || (server.empty() && isServer(programOf(folderOf(process, proc))));
  };
  const User user = firstUser(directory, proc, [&](const fs::path& process) {
    const pid_t id = idOf(process);
    const bool counts = id != self && !isAmong(server, id);
    return Interest{counts && !mayGo(id), counts && !isAmong(elsewhere, id)};
  });
  if (!user.words.empty()) return user.words;
  return firstLock(directory, proc,
                   [&](const Lock& lock) { return !lock.isHeld || (lock.holder > 0 && !mayGo(lock.holder)); })
      .words;
}

std::string serverIn(const std::string& directory, pid_t self, const std::string& proc) {
  const User user = firstUser(directory, proc, [&](const fs::path& process) {
    return Interest{idOf(process) != self && isServer(programOf(process)), false};
  });
  if (user.isFound) return user.words;
  return firstLock(directory, proc,
                   [&](const Lock& lock) {
                     return lock.isHeld && (lock.holder <= 0 || isServer(programOf(folderOf(lock.holder, proc))));
                   })
      .words;
}

}  // namespace orrery::mysql::sbt
