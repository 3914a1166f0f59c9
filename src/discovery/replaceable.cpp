#include "discovery/replaceable.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <utility>
#include <vector>

#include "orrery/platform/FXString.h"
#include "orrery/platform/posix.h"

namespace orrery::mysql::discovery {
namespace {

using platform::OwnFd;

constexpr int mostLinks = 40;
constexpr std::size_t deepest = 200;  // each folder on the way is held open
constexpr unsigned long kindBits = 0xffffffffUL;

/// The kernel's own way along a path, one name at a time. Nothing is looked up twice: what was opened is what is
/// judged, and a name between two looks cannot become another's.
class Walk {
 public:
  Walk(const std::string& path, uid_t self) : self_(self) { push(path); }

  PathVerdict run() {
    enter({OwnFd(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)), "/"});
    while (goesOn() && !rest_.empty()) step();
    return std::move(verdict_);
  }

 private:
  struct Place {
    OwnFd fd;
    std::string path;
  };

  bool goesOn() const { return !ended_ && verdict_.replaceableBy.empty() && verdict_.refusal.empty(); }
  void replaceable(std::string reason) { verdict_.replaceableBy = std::move(reason); }
  void refuse(std::string reason) { verdict_.refusal = std::move(reason); }

  void push(const std::string& path) {
    const std::vector<std::string> parts = FXString::Split(path, '/');
    rest_.insert(rest_.begin(), parts.begin(), parts.end());
  }

  void step() {
    const std::string name = rest_.front();
    rest_.pop_front();
    if (name.empty() || name == ".") return;
    if (name == "..") {
      // What lies above was opened on the way down and is still held; it counts as it is now.
      if (places_.size() > 1) places_.pop_back();
      look(places_.back());
      return;
    }
    const Place& folder = places_.back();
    std::string path = (folder.path == "/" ? "" : folder.path) + "/" + name;
    OwnFd fd(openat(folder.fd.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (fd) return enter({std::move(fd), std::move(path)});
    return foundNothing(path, errno);
  }

  void enter(Place place) {
    if (places_.size() == deepest) return replaceable(place.path + " lies too deep");
    places_.push_back(std::move(place));
    look(places_.back());
  }

  /// Who may change the place, and who made the file system that says so.
  void look(const Place& place) {
    struct stat status {};
    struct statfs system {};
    if (fstat(place.fd.get(), &status) != 0 || fstatfs(place.fd.get(), &system) != 0) {
      return replaceable(place.path + " cannot be looked at: " + platform::errorText(errno));
    }
    // Its links lead to wherever a process likes, whatever they say.
    if ((static_cast<unsigned long>(system.f_type) & kindBits) == PROC_SUPER_MAGIC) {
      return refuse(place.path + " lies in /proc, where paths lead into other processes");
    }
    // Such file systems come from users, as removable media or by a program, and name owners at will.
    if ((static_cast<unsigned long>(system.f_flags) & ST_NOSUID) != 0 && verdict_.ofUser.empty()) {
      verdict_.ofUser = place.path + " lies on a file system that may be a user's (nosuid)";
    }
    if (status.st_uid != 0 && status.st_uid != self_) {
      return replaceable(place.path + " belongs to the account " + std::to_string(status.st_uid));
    }
    if (S_ISLNK(status.st_mode)) return follow();
    const bool others = ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0) || (status.st_mode & S_IWOTH) != 0;
    // In a sticky folder only the owner of a name can change it, and the owner is looked at.
    sticky_ = others && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    if (others && !sticky_) return replaceable(place.path + " can be written by others");
    verdict_.device = status.st_dev;
    verdict_.inode = status.st_ino;
  }

  /// A name that is missing can come at any time. Only the last name of a path, in a folder that nobody else writes
  /// to, is safe: what is not there is not run. Folders further up are made by the system for accounts, at their
  /// wish.
  void foundNothing(const std::string& path, int error) {
    ended_ = true;
    verdict_.device = verdict_.inode = 0;
    if (error != ENOENT) return replaceable(path + " cannot be looked at: " + platform::errorText(error));
    if (sticky_) return replaceable(path + " is not there, and anybody can make it");
    if (!rest_.empty()) return replaceable(path + " is not there, and what lies below could come from anybody");
  }

  void follow() {
    Place link = std::move(places_.back());
    places_.pop_back();
    std::array<char, PATH_MAX> target;
    const ssize_t size = readlinkat(link.fd.get(), "", target.data(), target.size());
    if (size <= 0 || ++links_ > mostLinks) return replaceable(link.path + " is a link that leads nowhere");
    const std::string path(target.data(), static_cast<std::size_t>(size));
    if (path.front() == '/') places_.erase(places_.begin() + 1, places_.end());
    push(path);
    look(places_.back());
  }

  const uid_t self_;
  std::vector<Place> places_;  // the folders from the root to where the walk stands, and what was found in the last
  std::deque<std::string> rest_;
  PathVerdict verdict_;
  int links_ = 0;
  bool sticky_ = false;
  bool ended_ = false;
};

}  // namespace

PathVerdict whoCanReplace(const std::string& path, uid_t self) {
  PathVerdict verdict;
  if (path.empty() || path.front() != '/') {
    verdict.replaceableBy = path + " is no absolute path";
  } else if (path.find('\0') != std::string::npos) {
    verdict.replaceableBy = "the path holds a null";
  } else {
    verdict = Walk(path, self).run();
  }
  return verdict;
}

}  // namespace orrery::mysql::discovery
