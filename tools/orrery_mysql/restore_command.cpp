// orrery-mysql restore: an instance as it was at a point in time, from images.

#include <unistd.h>

#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "context.h"
#include "enterprise_restore.h"
#include "failure.h"
#include "posix.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

struct Options {
  std::string instance;
  std::string time;
  std::optional<std::string> into;
  bool planOnly = false;
  bool littleRoom = false;
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
  if (options.into) {
    // An unset variable of a script, or a forgotten value, must not turn a restore into a folder into one of the
    // server.
    if (options.into->empty() || options.into->starts_with("--")) throw WrongUsage("--into wants the path of a folder");
    std::string path = absolutePath(*options.into);
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    request.into = std::move(path);
  }
  request.planOnly = options.planOnly;
  request.littleRoom = options.littleRoom;
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
  command->add_flag("--little-room", options->littleRoom,
                    "Go on where an image could not be unpacked beside the data; not every mysqlbackup needs that");
  command->add_flag("--yes", options->yes, "Do not ask on the terminal before data are replaced");
  command->callback(
      [=, &chosen] { chosen = [=](Context& context) { runRestore(context, requestOf(context, *options)); }; });
}

}  // namespace orrery::tool
