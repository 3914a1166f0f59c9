#include "settings_file.h"

#include <fcntl.h>
#include <time.h>

#include <cerrno>

namespace orrery::platform::local {
namespace {

constexpr std::size_t largestFile = std::size_t{1024} * 1024;
constexpr const char* newName = ".settings.ini.new";

bool sameTime(const timespec& a, const timespec& b) noexcept {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool sameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && sameTime(a.st_mtim, b.st_mtim) &&
         sameTime(a.st_ctim, b.st_ctim);
}

/// A file that was changed this moment can change again without its times telling, because they advance in steps of
/// some milliseconds.
bool changedJustNow(const struct stat& status) noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec - status.st_ctim.tv_sec < 2;
}

struct LoadedFile {
  struct stat status {};
  std::string text;
};

LoadedFile load(const std::string& path) {
  const OwnFd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) throw systemFailure("open " + path, errno);
  LoadedFile loaded;
  if (::fstat(file.get(), &loaded.status) != 0) throw systemFailure("look at " + path, errno);
  if (!S_ISREG(loaded.status.st_mode)) throw Failure(Status::failure(path + " is not a file"));
  loaded.text = readWhole(file.get(), path, largestFile);
  return loaded;
}

}  // namespace

const ParsedSettings& SettingsFile::current() {
  struct stat status {};
  if (::lstat(path().c_str(), &status) != 0) throw systemFailure("look at " + path(), errno);
  if (trusted_ && sameFile(status, seen_)) return parsed_;
  trusted_ = false;
  const LoadedFile loaded = load(path());
  if (Status parsing = parseSettings(loaded.text, parsed_); !parsing.ok()) throw Failure(std::move(parsing));
  seen_ = loaded.status;
  trusted_ = !changedJustNow(seen_);
  return parsed_;
}

Status SettingsFile::read(const std::string& section, const std::string& key, std::optional<std::string>& value) {
  return guarded([&] {
    const std::lock_guard lock(mutex_);
    const ParsedSettings& settings = current();
    std::optional<std::string> found;
    if (const auto known = settings.sections.find(section); known != settings.sections.end())
      if (const auto present = known->second.values.find(key); present != known->second.values.end())
        found = present->second.text;
    value = std::move(found);
  });
}

Status SettingsFile::list(const std::string& section, std::map<std::string, std::string>& values) {
  return guarded([&] {
    const std::lock_guard lock(mutex_);
    const ParsedSettings& settings = current();
    std::map<std::string, std::string> found;
    if (const auto known = settings.sections.find(section); known != settings.sections.end())
      for (const auto& [key, value] : known->second.values) found.emplace(key, value.text);
    values = std::move(found);
  });
}

Status SettingsFile::write(const std::string& section, const std::string& key, const std::string& value) {
  return guarded([&] {
    const std::lock_guard oneThread(mutex_);
    const OwnFd folder = openFolder(home_);
    const FolderLock oneProcess(folder.get(), home_);
    const LoadedFile loaded = load(path());
    std::string changed;
    if (Status status = changeSettings(loaded.text, section, key, value, changed); !status.ok())
      throw Failure(std::move(status));
    if (changed.size() > largestFile) throw Failure(Status::invalid(path() + " would become too large"));
    if (changed != loaded.text) replace(folder.get(), loaded.status, changed);
    trusted_ = false;
  });
}

/// Under the lock of the folder. Readers see the old file or the new one, whole.
void SettingsFile::replace(int folder, const struct stat& earlier, const std::string& text) const {
  ::unlinkat(folder, newName, 0);  // of a writer that was killed
  const OwnFd file(::openat(folder, newName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("make a new settings file in " + home_, errno);
  TemporaryName temporary(folder, newName);
  if (earlier.st_uid != ::geteuid() || earlier.st_gid != ::getegid())
    if (::fchown(file.get(), earlier.st_uid, earlier.st_gid) != 0)
      throw systemFailure("give the new settings file the owner of " + path(), errno);
  if (::fchmod(file.get(), earlier.st_mode & 07777) != 0)
    throw systemFailure("give the new settings file the mode of " + path(), errno);
  writeWhole(file.get(), text, path());
  syncToDisk(file.get(), path());
  if (::renameat(folder, newName, folder, fileName) != 0) throw systemFailure("replace " + path(), errno);
  temporary.keep();
  syncToDisk(folder, home_);
}

}  // namespace orrery::platform::local
