// Files of a directory by a part of their name.

#include <exception>
#include <string_view>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "paths/directory.h"

int GetMySqlInfo::readFileListByPattern(const std::string& directory, const std::string& fragment,
                                        std::vector<std::string>& files) {
  constexpr const char* tag = "GetMySqlInfo::readFileListByPattern";
  orrery::mysql::paths::Directory entries(directory);
  if (!entries.isOpen()) {
    evEvent.Debug(tag, "Cannot opendir %s, errno %d\n", directory.c_str(), entries.error());
    return -1;
  }
  try {
    while (const dirent* entry = entries.next()) {
      const std::string_view name = entry->d_name;
      if (name.find(fragment) == std::string_view::npos) continue;
      files.push_back(directory + "/" + entry->d_name);
    }
  } catch (const std::exception&) {
    evEvent.Debug(tag, "Exception received");
    return -1;
  }
  if (entries.error() == 0) return 0;
  evEvent.Debug(tag, "cannot read %s to its end, errno %d", directory.c_str(), entries.error());
  return -1;
}
