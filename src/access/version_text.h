#pragma once

#include <string>
#include <string_view>

namespace orrery::mysql {

/// `version` up to its last digit: 8.0.36-log becomes 8.0.36, 10.6.12-MariaDB becomes 10.6.12. The first character is
/// kept whatever it is.
inline std::string withoutSuffix(std::string_view version) {
  if (version.empty()) return {};
  std::size_t last = version.size() - 1;
  while (last > 0 && (version[last] < '0' || version[last] > '9')) --last;
  return std::string(version.substr(0, last + 1));
}

}  // namespace orrery::mysql
