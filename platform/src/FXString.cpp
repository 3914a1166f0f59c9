#include "orrery/platform/FXString.h"

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

std::string FXPath::SplitParentPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return slash == 0 ? "/" : path.substr(0, slash);
}
