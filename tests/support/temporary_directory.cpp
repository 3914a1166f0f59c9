#include "support/temporary_directory.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "orrery/platform/posix.h"

namespace orrery::test {
namespace {

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string defaultParent() {
  const char* parent = ::secure_getenv("TMPDIR");
  return parent != nullptr && *parent != '\0' ? parent : "/tmp";
}

platform::OwnFd openFile(const std::string& path, int flags, unsigned mode = 0) {
  platform::OwnFd file(::open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!file) throwErrno(path);
  return file;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory(const std::string& parent)
    : path_((parent.empty() ? defaultParent() : parent) + "/orrery-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) throwErrno("mkdtemp " + path_);
  if (::chmod(path_.c_str(), 0711) != 0) throwErrno("chmod " + path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  if (error) std::fprintf(stderr, "%s was not removed: %s\n", path_.c_str(), error.message().c_str());
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::string readFile(const std::string& path) {
  const platform::OwnFd file = openFile(path, O_RDONLY);
  std::string content;
  char buffer[16384];
  for (;;) {
    const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno(path);
    if (count == 0) return content;
    content.append(buffer, static_cast<std::size_t>(count));
  }
}

void writeFile(const std::string& path, const std::string& content, unsigned mode) {
  const platform::OwnFd file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
  if (::fchmod(file.get(), mode) != 0) throwErrno(path);
  std::size_t written = 0;
  while (written < content.size()) {
    const ssize_t count = ::write(file.get(), content.data() + written, content.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno(path);
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace orrery::test
