#include "context.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/home.h"

#include "failure.h"
#include "interrupt.h"
#include "posix.h"
#include "printable.h"

namespace orrery::tool {

std::string Context::homePath() const {
  return absolutePath(options_.home.empty() ? platform::defaultHome() : options_.home);
}

const platform::Services& Context::services() {
  if (installed_) return platform::services();
  std::shared_ptr<const platform::Services> home;
  require(platform::openHome(homePath(), home), "the home cannot be opened");
  auto services = std::make_shared<platform::Services>(*home);
  log_ = std::make_shared<TeeLog>(services->log, options_.verbosity);
  services->log = log_;
  services->clock = std::make_shared<InterruptibleClock>(services->clock);
  installed_.emplace(std::move(services));
  // Settings that cannot be read are told at once: going on would act as if they were not there.
  std::map<std::string, std::string> settings;
  require(platform::services().settings->list("MySQL", settings), "the settings cannot be read");
  require(platform::removeLeftovers(temporaryDirectory(), nullptr), "leftovers of ended processes cannot be removed");
  return platform::services();
}

std::string Context::temporaryDirectory() {
  std::string path;
  require(services().directories->temporary(path), "the folder for short-lived files is not known");
  return path;
}

std::string Context::resultsDirectory() {
  std::string path;
  require(services().directories->jobResults({}, path), "the folder for results is not known");
  return path;
}

void Context::note(const std::string& text) const {
  std::fprintf(stderr, "orrery-mysql: note: %s\n", printable(onOneLine(text)).c_str());
}

}  // namespace orrery::tool
