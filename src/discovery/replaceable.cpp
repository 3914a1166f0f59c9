#include "discovery/replaceable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <deque>

#include "orrery/platform/FXString.h"
#include "orrery/platform/posix.h"

namespace orrery::mysql::discovery {
namespace {

constexpr int mostLinks = 40;

class Walk {
 public:
  Walk(const std::string& path, uid_t self) : self_(self) { push(path); }

  std::string run() {
    std::string obstacle = look("/");
    while (obstacle.empty() && !rest_.empty()) obstacle = step();
    return obstacle;
  }

 private:
  void push(const std::string& path) {
    const std::vector<std::string> parts = FXString::Split(path, '/');
    rest_.insert(rest_.begin(), parts.begin(), parts.end());
  }

  std::string step() {
    const std::string name = rest_.front();
    rest_.pop_front();
    if (name.empty() || name == ".") return {};
    if (name == "..") {
      // What was entered has been looked at on the way; so has what lies above it.
      at_ = FXPath::SplitParentPath(at_);
      if (at_ == "/") at_.clear();
      return {};
    }
    return look(at_ + "/" + name);
  }

  bool trusts(uid_t owner) const { return owner == 0 || owner == self_; }

  std::string look(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return lookedAtNothing(path, errno);
    if (!trusts(status.st_uid)) return path + " belongs to the account " + std::to_string(status.st_uid);
    if (S_ISLNK(status.st_mode)) return follow(path);
    const bool group = (status.st_mode & S_IWGRP) != 0 && status.st_gid != 0;
    const bool others = (status.st_mode & S_IWOTH) != 0;
    // In a sticky folder only the owner of a name can change it, and the owner is looked at.
    sticky_ = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0 && (group || others);
    if ((group || others) && !sticky_) return path + " can be written by others";
    at_ = path == "/" ? std::string() : path;
    return {};
  }

  std::string lookedAtNothing(const std::string& path, int error) const {
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    if (!isMissing) return path + " cannot be looked at: " + platform::errorText(error);
    return sticky_ ? path + " is not there, and anybody can make it" : std::string();
  }

  std::string follow(const std::string& link) {
    std::array<char, PATH_MAX> target;
    const ssize_t size = readlink(link.c_str(), target.data(), target.size());
    if (size <= 0 || ++links_ > mostLinks) return link + " is a link that leads nowhere";
    const std::string path(target.data(), static_cast<std::size_t>(size));
    if (path.front() == '/') at_.clear();
    push(path);
    return {};
  }

  const uid_t self_;
  std::string at_;  // a folder that has been looked at; empty: the root
  std::deque<std::string> rest_;
  int links_ = 0;
  bool sticky_ = false;
};

}  // namespace

std::string whoCanReplace(const std::string& path, uid_t self) {
  if (path.empty() || path.front() != '/') return path + " is no absolute path";
  if (path.find('\0') != std::string::npos) return "the path holds a null";
  return Walk(path, self).run();
}

}  // namespace orrery::mysql::discovery
