#include "media_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>

namespace orrery::media {
namespace {

using platform::aboveStandardStreams;

constexpr std::string_view temporaryPrefix = ".new-";

/// False, with errno, when the calling process is not the one that holds the open file.
bool tryLock(int fd) {
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0)
    if (errno != EINTR) return false;
  return true;
}

/// False when somebody else has the file locked. Throws where files cannot be locked.
bool lockedUnlessTaken(int fd, const std::string& path) {
  if (tryLock(fd)) return true;
  if (errno == EWOULDBLOCK) return false;
  throw systemFailure("lock " + path, errno);
}

bool isNameOf(int folder, const std::string& name, int fd) noexcept {
  struct stat named {};
  struct stat opened {};
  return ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && ::fstat(fd, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

std::string nextTemporaryName() {
  static std::atomic<unsigned> count{0};  // tells the files of one process apart; observed by nobody else
  return std::string(temporaryPrefix) + std::to_string(::getpid()) + "-" + std::to_string(++count);
}

int openAt(int folder, const std::string& name, int flags, mode_t mode = 0) {
  return aboveStandardStreams(::openat(folder, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
}

void removeWhenDead(int folder, const std::string& name, const std::function<bool(int)>& isSettled) {
  const OwnFd file(openAt(folder, name, O_RDONLY | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || !tryLock(file.get())) return;
  // Another session may have removed the name before this one had the lock; it may be a new file's by now.
  if (!isNameOf(folder, name, file.get()) || ::fstat(file.get(), &status) != 0) return;
  // What is settled must outlast a loss of power, so the image's own name does first.
  if (status.st_nlink == 1 || (::fsync(folder) == 0 && isSettled(file.get()))) ::unlinkat(folder, name.c_str(), 0);
}

MediaFailure notOpened(const std::string& path, int error) {
  if (error == ELOOP) return MediaFailure(path + " is a link and no image; move it out of the media folder");
  if (error == EISDIR) return MediaFailure(path + " is a folder and no image; move it out of the media folder");
  return systemFailure("open the image " + path, error);
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

MediaFailure systemFailure(const std::string& step, int error) {
  std::string text = "cannot " + step + ": " + platform::errorText(error);
  if (error == ENOSPC || error == EDQUOT || error == EFBIG)
    text += "; make room on the disk of the media folder, and run the job again";
  else if (error == EROFS)
    text += "; the disk of the media folder is mounted for reading only: mount it for writing, and run the job again";
  else if (error == EACCES || error == EPERM)
    text += "; make the media folder writable for this account, and run the job again";
  return MediaFailure(text);
}

TemporaryFile::~TemporaryFile() {
  // By name while the file is still locked: its name can be nobody else's.
  if (!name_.empty()) ::unlinkat(folder_, name_.c_str(), 0);
}

MediaFolder::MediaFolder(std::string path)
    : path_(std::move(path)),
      folder_(aboveStandardStreams(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))) {
  if (!folder_) throw systemFailure("open the media folder " + path_, errno);
}

bool MediaFolder::holds(const std::string& fileName) const {
  struct stat status {};
  if (::fstatat(folder_.get(), fileName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
  if (errno == ENOENT) return false;
  throw systemFailure("look for an image in " + path_, errno);
}

bool MediaFolder::isNamed(const std::string& fileName, int fd) const noexcept {
  return isNameOf(folder_.get(), fileName, fd);
}

OwnFd MediaFolder::open(const std::string& fileName) const {
  OwnFd file(openAt(folder_.get(), fileName, O_RDONLY | O_NONBLOCK));
  if (!file) {
    if (errno == ENOENT) return file;
    throw notOpened(path_ + "/" + fileName, errno);
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw systemFailure("look at the image " + path_ + "/" + fileName, errno);
  if (S_ISDIR(status.st_mode)) throw notOpened(path_ + "/" + fileName, EISDIR);
  if (!S_ISREG(status.st_mode))
    throw MediaFailure(path_ + "/" + fileName + " is no file; move it out of the media folder");
  return file;
}

TemporaryFile MediaFolder::create() const {
  while (true) {
    std::string name = nextTemporaryName();
    OwnFd file(openAt(folder_.get(), name, O_RDWR | O_CREAT | O_EXCL, 0600));
    if (!file) {
      if (errno == EEXIST) continue;  // of a dead process that had this id
      throw systemFailure("make an image in " + path_, errno);
    }
    // Between making and locking, another session may take the file for a dead writer's. It is made anew then.
    if (!lockedUnlessTaken(file.get(), path_ + "/" + name) || !isNameOf(folder_.get(), name, file.get())) continue;
    TemporaryFile made(folder_.get(), std::move(name), std::move(file));
    // The umask of a backup program may be anything.
    if (::fchmod(made.fd(), 0600) != 0) throw systemFailure("set the mode of an image in " + path_, errno);
    return made;
  }
}

void MediaFolder::publish(TemporaryFile& file, const std::string& fileName) const {
  const std::string what = "give the image its name " + path_ + "/" + fileName;
  if (::fsync(file.fd()) != 0) throw systemFailure("write an image in " + path_ + " to the disk", errno);
  int result = ::linkat(folder_.get(), file.name_.c_str(), folder_.get(), fileName.c_str(), 0);
  // Some file systems give a file one name only.
  const bool renamed = result != 0 && (errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL);
  if (renamed)
    result = ::renameat2(folder_.get(), file.name_.c_str(), folder_.get(), fileName.c_str(), RENAME_NOREPLACE);
  if (result != 0 && errno == EEXIST)
    throw MediaFailure(sbtExists, path_ + "/" + fileName + " exists already; remove that image or choose another name");
  if (result != 0) throw systemFailure(what, errno);
  if (renamed) file.name_.clear();
  try {
    sync();
  } catch (const MediaFailure&) {
    withdraw(file, fileName);
    throw;
  }
}

void MediaFolder::withdraw(const TemporaryFile& file, const std::string& fileName) const noexcept {
  // Nobody else takes the name from a locked file, so it is the same one still when it goes.
  if (isNamed(fileName, file.fd())) ::unlinkat(folder_.get(), fileName.c_str(), 0);
}

OwnFd MediaFolder::claim(const std::string& fileName) const {
  const std::string path = path_ + "/" + fileName;
  while (true) {
    OwnFd file(openAt(folder_.get(), fileName, O_RDWR | O_NONBLOCK));
    // A link has nobody who completes it; it is held as it is.
    if (!file && errno == ELOOP)
      file = OwnFd(openAt(folder_.get(), fileName, O_PATH));
    else if (file && !lockedUnlessTaken(file.get(), path))
      throw MediaFailure(path + " is being completed or removed by another session; try again when that is done");
    if (!file) {
      if (errno == ENOENT) return file;
      throw notOpened(path, errno);
    }
    // Between opening and locking, another session may have removed it, and a third one made it anew.
    if (isNamed(fileName, file.get())) return file;
  }
}

bool MediaFolder::remove(const std::string& fileName) const {
  if (::unlinkat(folder_.get(), fileName.c_str(), 0) == 0) {
    sync();
    return true;
  }
  if (errno == ENOENT) return false;
  throw systemFailure("remove " + path_ + "/" + fileName, errno);
}

void MediaFolder::sync() const {
  if (::fsync(folder_.get()) != 0) throw systemFailure("write the media folder " + path_ + " to the disk", errno);
}

void MediaFolder::removeLeftovers(const std::function<bool(int)>& isSettled) const {
  // A stream of its own position: the descriptor of the folder is shared with whatever else is going on.
  OwnFd again(openAt(folder_.get(), ".", O_RDONLY | O_DIRECTORY));
  const std::unique_ptr<DIR, CloseFolder> folder(again ? ::fdopendir(again.get()) : nullptr);
  if (!folder) throw systemFailure("read the media folder " + path_, errno);
  const int fd = again.release();  // the stream closes it now
  while (const dirent* entry =
             ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe): the stream is this call's own
    if (std::string_view(entry->d_name).starts_with(temporaryPrefix)) removeWhenDead(fd, entry->d_name, isSettled);
  }
}

}  // namespace orrery::media
