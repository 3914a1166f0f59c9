/// A stand-in for the enterprise backup program, for tests and the quickstart: it takes the command lines that the
/// library builds, takes and applies real physical backups with mariadb-backup, and moves every byte through the media
/// library. It is never installed.

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "commands.h"
#include "ending.h"
#include "failure.h"
#include "faults.h"
#include "options.h"

namespace {

using namespace orrery::standin;

int fail(std::string reason) {
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  say("ERROR: " + reason);
  return 1;
}

int run(const std::vector<std::string>& arguments) {
  const Ending ending;
  const Faults faults;
  faults.at("start");
  faults.at("options");
  const Options options = parseOptions(arguments);
  if (faults.is("no_error_line")) return 1;
  if (options.restores)
    copyBackAndApplyLog(options, faults, ending);
  else
    backupToImage(options, faults, ending);
  say("mysqlbackup completed OK!");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
