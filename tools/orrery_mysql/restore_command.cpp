// orrery-mysql restore: an instance as it was at a point in time, from images.

#include <unistd.h>

#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>

#include "context.h"
#include "enterprise_restore.h"
#include "failure.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

struct Options {
  std::string instance;
  std::string time;
  std::string into;
  bool planOnly = false;
  bool yes = false;
};

RestoreRequest requestOf(Context& context, const Options& options) {
  RestoreRequest request;
  request.instance = options.instance;
  if (options.time == "now") {
    request.toTime = context.services().clock->now() / 1000000;
  } else if (const std::optional<std::int64_t> seconds = secondsOf(options.time)) {
    request.toTime = *seconds;
  } else {
    throw WrongUsage("--to-time: " + options.time +
                     " is no time; write it as 2026-03-01T22:15:04Z, with +01:00 for another zone, as seconds since "
                     "1970, or now");
  }
  if (!options.into.empty()) {
    std::error_code error;
    request.into = std::filesystem::absolute(options.into, error).lexically_normal().string();
    while (request.into.size() > 1 && request.into.back() == '/') request.into.pop_back();
  }
  request.planOnly = options.planOnly;
  // Programs say what they mean; people may have typed the wrong name.
  request.asks = !options.yes && ::isatty(STDIN_FILENO) == 1;
  return request;
}

}  // namespace

void addRestoreCommand(CLI::App& program, Action& chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand(
      "restore", "Bring an instance back as it was at a point in time, from its images; replaces its data");
  command->add_option("INSTANCE", options->instance, "Name or id")->required();
  command
      ->add_option("--to-time", options->time,
                   "The moment: 2026-03-01T22:15:04Z, seconds since 1970, or now; the last images before it are used")
      ->type_name("TIME")
      ->required();
  command->add_option("--into", options->into, "Restore the files into this empty folder; the server is left alone")
      ->type_name("DIR");
  command->add_flag("--plan", options->planOnly, "Check the images and say what would be done; changes nothing");
  command->add_flag("--yes", options->yes, "Do not ask on the terminal before data are replaced");
  command->callback(
      [=, &chosen] { chosen = [=](Context& context) { runRestore(context, requestOf(context, *options)); }; });
}

}  // namespace orrery::tool
