#include "environment.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

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

}  // namespace

Environment readEnvironment() {
  Environment environment{variable("DzSrcClientName"), variable("DzMySQLSBTInstance"), {}};
  std::string problem;
  if (!parseThreadCommandLine(variable("ThreadCommandLine"), environment.job, problem))
    throw MediaFailure("ThreadCommandLine in the environment cannot be read: " + problem +
                       "; it is to be \"-j JOB -a INSTANCE:SUBCLIENT -at 104 -t LEVEL\"");
  return environment;
}

std::string homeToUse() {
  Dl_info info{};
  // The name is the one that the library was loaded by: a link in a home is not followed. Asked of a function that no
  // other library can stand in for, as one could for what is exported.
  if (::dladdr(reinterpret_cast<const void*>(&homeToUse), &info) != 0 && info.dli_fname != nullptr) {
    std::error_code error;
    std::string folder = std::filesystem::absolute(info.dli_fname, error).parent_path().string();
    if (!error && isMeantAsHome(folder)) return folder;
  }
  return platform::defaultHome();
}

}  // namespace orrery::libobk
