#include "orrery/platform/FXString.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

std::vector<std::string> FXString::Split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    pieces.push_back(text.substr(start, end == std::string::npos ? end : end - start));
    if (end == std::string::npos) return pieces;
    start = end + 1;
  }
}

bool FXString::Contains(const std::string& text, const std::string& part, bool ignoreCase) {
  const auto same = [ignoreCase](char a, char b) { return ignoreCase ? lower(a) == lower(b) : a == b; };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() || part.empty();
}

std::string FXPath::SplitParentPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string FXPath::Append(const std::string& path, const std::string& name) {
  return path + "/" + name;
}

bool FXPath::DoesPathExist(const std::string& path, bool& isFile) noexcept {
  isFile = false;
  // A text with a null would name another path than it shows.
  if (path.find('\0') != std::string::npos || access(path.c_str(), F_OK) != 0) return false;
  struct stat status {};
  isFile = stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
  return true;
}
