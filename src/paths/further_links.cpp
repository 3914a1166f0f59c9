// Links that lead out of the data directory: databases moved as a whole, and the files of MyISAM and Aria tables that
// were made with a directory of their own.

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "paths/directory.h"
#include "paths/further_places.h"

namespace fs = std::filesystem;

namespace orrery::mysql::paths {
namespace {

/// Type of an entry, links not followed. The directory tells it; only file systems that do not are asked per entry.
unsigned char typeOf(const Directory& directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type;
  struct stat info {};
  if (fstatat(directory.descriptor(), entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(info.st_mode));
}

class Search {
 public:
  Search(FurtherPlaces& places, const EvEvent& log, const char* tag) : places_(places), log_(log), tag_(tag) {}

  int inDataDirectory() {
    Directory entries(places_.dataDirectory());
    if (!entries.isOpen()) return unreadable(places_.dataDirectory(), entries.error());
    while (const dirent* entry = entries.next()) {
      const unsigned char type = typeOf(entries, *entry);
      const int rc = type == DT_LNK   ? ofDatabase(entry->d_name)
                     : type == DT_DIR ? inDatabase(places_.dataDirectory() + "/" + entry->d_name, entry->d_name)
                                      : 0;
      if (rc != 0) return -1;
    }
    return entries.error() == 0 ? 0 : unreadable(places_.dataDirectory(), entries.error());
  }

 private:
  int ofDatabase(const std::string& name) {
    std::string target;
    if (const int rc = resolve(places_.dataDirectory() + "/" + name, target); rc != 0) return rc < 0 ? -1 : 0;
    std::error_code error;
    const bool isDirectory = fs::is_directory(target, error);
    if (places_.isCovered(target)) return 0;
    places_.addPhysical(isDirectory ? "database" : "file", target, name, isDirectory);
    if (!isDirectory) return 0;
    places_.cover(target);
    return inDatabase(target, name);
  }

  int inDatabase(const std::string& path, const std::string& name) {
    if (name == "lost+found") return 0;  // of the file system; no server looks into it
    Directory entries(path);
    // Databases come and go while this looks.
    if (!entries.isOpen()) return entries.error() == ENOENT ? 0 : unreadable(path, entries.error());
    while (const dirent* entry = entries.next()) {
      if (typeOf(entries, *entry) != DT_LNK) continue;
      std::string target;
      const int rc = resolve(path + "/" + entry->d_name, target);
      if (rc < 0) return -1;
      if (rc == 0) places_.addPhysical("table", target, name + "/" + entry->d_name, false);
    }
    return entries.error() == 0 ? 0 : unreadable(path, entries.error());
  }

  /// 1 for a link that leads nowhere: nothing is protected behind it.
  int resolve(const std::string& link, std::string& target) {
    std::error_code error;
    const fs::path physical = fs::canonical(link, error);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
        error == std::errc::too_many_symbolic_link_levels) {
      log_.Debug(tag_, "the link %s leads nowhere: passed over", link.c_str());
      return 1;
    }
    if (error) return unreadable(link, error.value());
    target = physical.string();
    return 0;
  }

  int unreadable(const std::string& path, int error) {
    log_.Error(tag_, "cannot read %s: %s", path.c_str(), std::generic_category().message(error).c_str());
    return -1;
  }

  FurtherPlaces& places_;
  const EvEvent& log_;
  const char* tag_;
};

}  // namespace

int addLinks(FurtherPlaces& places, const EvEvent& log, const char* tag) {
  return Search(places, log, tag).inDataDirectory();
}

}  // namespace orrery::mysql::paths
