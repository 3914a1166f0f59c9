#include "posix.h"

#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace orrery::tool {

FileKind kindOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return FileKind::missing;
  if (S_ISREG(status.st_mode)) return FileKind::regular;
  if (S_ISDIR(status.st_mode)) return FileKind::directory;
  if (S_ISSOCK(status.st_mode)) return FileKind::socket;
  return FileKind::other;
}

bool isExecutable(const std::string& path) {
  return kindOf(path) == FileKind::regular && ::access(path.c_str(), X_OK) == 0;
}

bool accountExists(const std::string& name) {
  std::vector<char> buffer(4096);
  passwd entry{};
  passwd* found = nullptr;
  int error = ERANGE;
  while ((error = ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  return error == 0 && found != nullptr;
}

std::string absolutePath(const std::string& path) {
  if (path.empty() || path.front() == '/') return path;
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.lexically_normal().string();
}

std::filesystem::path resolvedPath(const std::string& path) {
  std::error_code error;
  std::filesystem::path whole = std::filesystem::weakly_canonical(path, error);
  if (error) whole = std::filesystem::path(path).lexically_normal();
  return whole.has_filename() ? whole : whole.parent_path();
}

bool isWithin(const std::filesystem::path& path, const std::filesystem::path& above) {
  return std::mismatch(above.begin(), above.end(), path.begin(), path.end()).first == above.end();
}

std::string environmentVariable(const char* name) {
  const char* value = ::secure_getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace orrery::tool
