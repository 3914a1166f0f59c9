#include "output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "failure.h"

namespace orrery::tool {
namespace {

constexpr std::size_t kBuffer = 65536;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// A file that only this process can reach, in the home's folder for short-lived files.
OwnFd unnamedFile(Context& context, const std::string& what) {
  std::string path = context.temporaryDirectory() + "/spool.XXXXXX";
  OwnFd file(::mkostemp(path.data(), O_CLOEXEC));
  if (!file.valid()) throw Failure(what + " cannot be put together", path + ": " + errorText(errno));
  ::unlink(path.c_str());
  return file;
}

/// Removes what killed processes left of earlier attempts at the same file: PATH.PID.new.
void removeLeftovers(const std::string& path) {
  const std::string begin = path.substr(path.rfind('/') + 1) + ".";
  constexpr std::string_view end = ".new";
  std::error_code none;  // a folder that cannot be read keeps them
  for (std::filesystem::directory_iterator entry(folderOf(path), none), last; !none && entry != last;
       entry.increment(none)) {
    const std::string name = entry->path().filename();
    if (name.size() <= begin.size() + end.size() || !name.starts_with(begin) || !name.ends_with(end)) continue;
    const std::string_view digits =
        std::string_view(name).substr(begin.size(), name.size() - begin.size() - end.size());
    pid_t writer = 0;
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), writer);
    if (error != std::errc() || stop != digits.data() + digits.size() || writer <= 0) continue;
    if (::kill(writer, 0) != 0 && errno == ESRCH) ::unlink(entry->path().c_str());
  }
}

}  // namespace

void writeWhole(const OwnFd& file, std::string_view text, const std::string& what) {
  while (!text.empty()) {
    const ssize_t count = ::write(file.get(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure(what + " is not written", errorText(errno), "make room there");
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string resultForm(const Context& context, const std::string& as, const std::string& forPeople) {
  if (context.format() == Format::table) return as.empty() ? forPeople : as;
  if (as.empty() || as == "json") return "json";
  throw WrongUsage("--format json and --as " + as + " contradict each other");
}

NewFile::NewFile(std::string what, std::string path, std::string temporary)
    : what_(std::move(what)), path_(std::move(path)) {
  ::unlink(temporary.c_str());  // of a process that was killed; what stays is refused in the next step
  file_ = OwnFd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file_.valid()) throw Failure(what_ + " " + temporary + " is not made", errorText(errno));
  temporary_ = std::move(temporary);
}

NewFile::~NewFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void NewFile::keep() {
  if (::fsync(file_.get()) != 0 || ::rename(temporary_.c_str(), path_.c_str()) != 0) {
    throw Failure(what_ + " " + path_ + " is not written", errorText(errno));
  }
  temporary_.clear();
  const OwnFd folder(::open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder that cannot be read cannot be synced either; the file itself is safe, its name may be lost in a crash.
  if (folder.valid()) ::fsync(folder.get());
}

Destination::Destination(Context& context, std::string what, const std::string& path) : what_(std::move(what)) {
  if (path.empty()) throw WrongUsage("a file has a name");
  if (path == "-") {
    spool_ = unnamedFile(context, what_);
    return;
  }
  const FileKind kind = kindOf(path);
  if (kind != FileKind::missing && kind != FileKind::regular) {
    throw Failure(what_ + " is not written", path + " is there and no regular file", "- stands for standard output");
  }
  std::error_code missing;
  if (kind == FileKind::missing && std::filesystem::is_symlink(path, missing)) {
    throw Failure(what_ + " is not written", path + " is a link that leads nowhere", "make what it leads to");
  }
  const std::string real = std::filesystem::canonical(path, missing);  // a link stays, what it leads to is replaced
  const std::string& place = missing ? path : real;
  removeLeftovers(place);
  named_.emplace(what_, place, place + "." + std::to_string(::getpid()) + ".new");
}

void Destination::write(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kBuffer) flush();
}

void Destination::flush() {
  writeWhole(file(), buffer_, what_);
  written_ += static_cast<std::int64_t>(buffer_.size());
  buffer_.clear();
}

void Destination::cutBack(std::int64_t place) {
  if (place >= written_) {
    buffer_.resize(static_cast<std::size_t>(place - written_));
    return;
  }
  buffer_.clear();
  if (::ftruncate(file().get(), place) != 0 || ::lseek(file().get(), place, SEEK_SET) < 0) {
    throw Failure(what_ + " is not written", errorText(errno));
  }
  written_ = place;
}

void Destination::finish() {
  flush();
  if (named_) {
    named_->keep();
    return;
  }
  if (::lseek(spool_.get(), 0, SEEK_SET) != 0) throw Failure(what_ + " is not written", errorText(errno));
  std::array<char, kBuffer> bytes{};
  for (;;) {
    const ssize_t count = ::read(spool_.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure(what_ + " is not written", errorText(errno));
    const auto size = static_cast<std::size_t>(count);
    errno = 0;
    if (std::fwrite(bytes.data(), 1, size, stdout) != size || (size == 0 && std::fflush(stdout) != 0)) {
      throw Failure("the result cannot be written to standard output", errorText(errno));
    }
    if (size == 0) return;
  }
}

}  // namespace orrery::tool
