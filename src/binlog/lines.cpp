// What clients print, in lines.

#include <cstddef>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "session/guarded.h"

int GetMySqlInfo::MakeListFromBuffer(const std::string& text, std::list<std::string>& lines) {
  return orrery::mysql::guarded(evEvent, "GetMySqlInfo::MakeListFromBuffer", [&] {
    std::list<std::string> found;
    for (std::size_t start = 0; start < text.size();) {
      const std::size_t end = text.find('\n', start);
      if (end == std::string::npos) {
        found.emplace_back(text, start);
        break;
      }
      found.emplace_back(text, start, end - start);
      start = end + 1;
    }
    lines.splice(lines.end(), found);
    return 0;
  });
}
