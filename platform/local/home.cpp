#include "orrery/platform/home.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "orrery/platform/CKyDirectory.h"

#include "archive_store.h"
#include "clock.h"
#include "directories.h"
#include "holder_store.h"
#include "home_files.h"
#include "index_store.h"
#include "inventory_store.h"
#include "job_store.h"
#include "log_file.h"
#include "proxy_directory.h"
#include "schema/migrations.h"
#include "settings_file.h"
#include "vault.h"

namespace orrery::platform {
namespace {

using namespace local;

std::string environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody here changes the environment
  return value == nullptr ? std::string() : std::string(value);
}

std::string requirePath(const std::string& path) {
  if (path.empty()) throw Failure(Status::invalid("the path of a home cannot be empty"));
  if (path.find('\0') != std::string::npos)
    throw Failure(Status::invalid("the path of a home cannot hold a null byte"));
  return absolutePath(path);
}

void makeHomeFolder(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (!S_ISDIR(status.st_mode)) throw Failure(Status::invalid(path + " is not a folder; choose another path"));
    return;
  }
  if (errno == ENOTDIR) throw Failure(Status::invalid("a file stands in the way of " + path + "; choose another path"));
  if (errno == ENAMETOOLONG) throw Failure(Status::invalid("the path of the home is too long: " + path));
  if (errno != ENOENT) throw systemFailure("look at " + path, errno);
  if (const CKyError error = CKyDirectory::Create(path, 0711); error.isError())
    throw Failure(Status::failure("cannot make the folder " + error.text()));
}

OwnFd openExistingHome(const std::string& path) {
  // Only looked through: other accounts may not read the folder, and are to hear which file they may not open.
  OwnFd folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (folder) return folder;
  if (errno == ENOENT || errno == ENOTDIR)
    throw Failure(Status::unavailable("there is no home at " + path + "; run `orrery-mysql init` to make it"));
  throw systemFailure("open the home " + path, errno, statusUnavailable);
}

/// The folder of a home that is complete and that nobody else could have altered.
OwnFd requireHome(const std::string& path) {
  OwnFd folder = openExistingHome(path);
  requireTrusted(folder.get(), path);
  if (!hasAnyPart(folder.get()))
    throw Failure(
        Status::unavailable("there is no home in the folder " + path + "; run `orrery-mysql init` to make it"));
  if (const std::string missing = missingParts(folder.get(), path); !missing.empty())
    throw Failure(Status::unavailable("the home " + path + " is incomplete (" + missing +
                                      " missing); run `orrery-mysql init` to complete it"));
  return folder;
}

/// Unfinished parts of a creation that was killed do not count.
bool holdsOtherThings(const std::string& path) {
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with('.') || name.find(".new") == std::string::npos) return true;
  }
  return false;
}

/// Settings that cannot be read do not keep a home from being opened: reads of them say what is wrong.
int logThreshold(Settings& settings) {
  std::optional<std::string> text;
  int level = 0;
  if (settings.read("Log", "nLevel", text).ok() && text) {
    const std::string_view digits = *text;
    const char* const last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), last, level);
    if (error != std::errc() || end != last) level = 0;
  }
  return level;
}

std::shared_ptr<Database> openStore(const std::string& path) {
  auto database = std::make_shared<Database>(path);
  bringUpToDate(*database);
  return database;
}

std::shared_ptr<const Services> openServices(const HomePaths& paths) {
  const auto database = openStore(paths.store());
  auto opened = std::make_shared<Services>();
  opened->settings = std::make_shared<SettingsFile>(paths.root);
  opened->log = std::make_shared<LogFile>(paths.log(), logThreshold(*opened->settings));
  opened->events = std::make_shared<EventStore>(database, opened->log);
  opened->inventory = std::make_shared<InventoryStore>(database);
  opened->directories = std::make_shared<HomeDirectories>(paths, opened->inventory);
  opened->vault = std::make_shared<Vault>(paths.root);
  opened->jobs = std::make_shared<JobStore>(database);
  opened->index = std::make_shared<IndexStore>(database);
  opened->archive = std::make_shared<ArchiveStore>(database, paths.media());
  opened->proxies = std::make_shared<ProxySettings>(opened->settings);
  opened->holders = std::make_shared<HolderStore>(database);
  opened->clock = std::make_shared<SystemClock>();
  return opened;
}

}  // namespace

std::string defaultHome() {
  if (std::string home = environment("ORRERY_HOME"); !home.empty()) return home;
  if (::geteuid() == 0) return "/var/lib/orrery";
  if (const std::string state = environment("XDG_STATE_HOME"); !state.empty()) return state + "/orrery";
  return environment("HOME") + "/.local/state/orrery";
}

Status createHome(const std::string& path, const std::string& clientName) {
  return guarded([&] {
    const std::string home = requirePath(path);
    makeHomeFolder(home);
    const OwnFd folder = openFolder(home);
    requireTrusted(folder.get(), home);
    const FolderLock lock(folder.get(), home);
    if (!hasAnyPart(folder.get()) && holdsOtherThings(home)) {
      throw Failure(Status::invalid(
          "the folder " + home + " holds other things and no home; name an empty folder, or one that does not exist"));
    }
    if (!missingParts(folder.get(), home).empty()) makeMissingParts(folder.get(), home, clientName);
  });
}

Status openHome(const std::string& path, std::shared_ptr<const Services>& services) {
  return guarded([&] {
    const std::string home = requirePath(path);
    requireHome(home);
    services = openServices(HomePaths(home));
  });
}

bool isHome(const std::string& path) {
  return guarded([&] { requireHome(requirePath(path)); }).ok();
}

}  // namespace orrery::platform
