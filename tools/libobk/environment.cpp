#include "environment.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "orrery/platform/home.h"

#include "failure.h"

namespace orrery::libobk {

using namespace media;
namespace {

std::string variable(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody here changes the environment
  return value == nullptr ? std::string() : std::string(value);
}

/// A home that lost parts, or that is not to be trusted, is still the one that is meant: opening it says what is wrong.
bool isMeantAsHome(const std::string& folder) {
  return ::access((folder + "/store.db").c_str(), F_OK) == 0 || ::access((folder + "/vault.key").c_str(), F_OK) == 0;
}

struct Home {
  std::mutex mutex;
  std::string path;
};

/// All sessions of a process work in the home that was found when the library was begun.
Home& theHome() {
  static Home home;
  return home;
}

std::string absolute(const std::string& path) {
  return path.empty() ? path : std::filesystem::absolute(path).string();
}

/// As the library was loaded: a link in a home is not followed.
std::string folderOfLibrary() {
  Dl_info info{};
  // Asked of a function that no other library can stand in for, as one could for what is exported.
  if (::dladdr(reinterpret_cast<const void*>(&workOutHome), &info) == 0 || info.dli_fname == nullptr) return {};
  const std::filesystem::path folder = std::filesystem::path(info.dli_fname).parent_path();
  return folder.empty() ? "." : folder.string();
}

}  // namespace

Environment readEnvironment() {
  Environment environment{variable("DzSrcClientName"), variable("DzMySQLSBTInstance"), {}};
  std::string problem;
  if (!parseThreadCommandLine(variable("ThreadCommandLine"), environment.job, problem))
    throw MediaFailure("ThreadCommandLine in the environment cannot be read: " + problem +
                       "; it is to be \"-j JOB -a INSTANCE:SUBCLIENT -at 104 -t LEVEL\"");
  return environment;
}

void workOutHome() {
  std::string found = absolute(folderOfLibrary());
  if (found.empty() || !isMeantAsHome(found)) found = absolute(platform::defaultHome());
  Home& home = theHome();
  const std::lock_guard held(home.mutex);
  home.path = std::move(found);
}

std::string homeToUse() {
  Home& home = theHome();
  const std::lock_guard held(home.mutex);
  return home.path;
}

}  // namespace orrery::libobk
