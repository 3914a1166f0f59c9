// The command orrery-mysql: reads the command line, runs the chosen command, tells how it went.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "orrery/mysql/version.h"

#include "context.h"
#include "failure.h"
#include "interrupt.h"
#include "printable.h"

namespace orrery::tool {
namespace {

enum ExitStatus { exitFailed = 1, exitWrongUsage = 2 };

/// "--name=" says that the value is empty, but the parser would take the next argument for it.
std::vector<std::string> withEmptyValues(int argc, char** argv) {
  std::vector<std::string> result;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    optionsEnded = optionsEnded || argument == "--";
    if (!optionsEnded && argument.starts_with("--") && argument.find('=') == argument.size() - 1) {
      result.emplace_back(argument.substr(0, argument.size() - 1));
      result.emplace_back();
    } else {
      result.emplace_back(argument);
    }
  }
  return result;
}

/// The parser takes a word such as "[a,b]" for a list. A mark before it keeps it whole; options take it off again.
constexpr char kWhole = '\x01';

void markWholeWords(std::vector<std::string>& arguments) {
  for (std::string& argument : arguments) {
    if (argument.starts_with('[') && argument.ends_with(']')) argument.insert(argument.begin(), kWhole);
  }
}

void takeMarksOff(CLI::App& program) {
  const auto takeOff = [](std::string word) {
    if (word.starts_with(kWhole)) word.erase(word.begin());
    return word;
  };
  for (CLI::Option* option : program.get_options()) {
    if (option->get_items_expected_max() > 0) option->transform(takeOff, "");
  }
  for (CLI::App* command : program.get_subcommands({})) takeMarksOff(*command);
}

/// Takes away the words behind "--" of a command that runs another program. They are that program's; the parser would
/// split a word such as "[a,b]".
std::vector<std::string> takeProgram(std::vector<std::string>& arguments) {
  const auto mark = std::find(arguments.begin(), arguments.end(), "--");
  const auto group = std::find(arguments.begin(), mark, "replica");
  if (mark == arguments.end() || std::find(group, mark, "hold") == mark) return {};
  std::vector<std::string> words(mark + 1, arguments.end());
  arguments.erase(mark, arguments.end());
  return words;
}

void addGlobalOptions(CLI::App& program, GlobalOptions& options) {
  program.set_version_flag("--version", std::string("orrery-mysql ") + mysql::version());
  program.add_option("--home", options.home, "The agent's home; else ORRERY_HOME, else the account's own")
      ->type_name("DIR");
  program
      .add_option_function<std::string>(
          "--format",
          [&options](const std::string& value) { options.format = value == "json" ? Format::json : Format::table; },
          "Tables for people or JSON for programs")
      ->check(CLI::IsMember({"table", "json"}).description(""))
      ->type_name("table|json");
  program.add_option("--access", options.access, "How servers are reached; auto chooses")
      ->check(CLI::IsMember({"auto", "command", "library"}).description(""))
      ->type_name("auto|command|library");
  program.add_flag(
      "-v", [&options](std::int64_t count) { options.verbosity = static_cast<int>(count); },
      "Show log lines on standard error; twice: of every level");
}

/// After Ctrl-C the end itself says enough.
int fail(std::string_view text, int status) {
  if (interruptSignal() != 0) return status;
  std::fprintf(stderr, "orrery-mysql: %s\n", printable(onOneLine(text)).c_str());
  return status;
}

/// Help that was asked for goes to standard output; everything else is wrong usage.
int endOfParsing(const CLI::App& program, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return program.exit(error, std::cout, std::cerr);
  constexpr std::string_view kHelp = "; orrery-mysql --help and orrery-mysql COMMAND --help tell what there is";
  const bool commandMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  const std::vector<std::string> unknown = program.remaining(true);
  if (commandMissing && !unknown.empty()) {
    return fail("there is no command " + unknown.front() + std::string(kHelp), exitWrongUsage);
  }
  if (commandMissing && error.what() == std::string_view("A subcommand is required")) {
    return fail("the command is missing" + std::string(kHelp), exitWrongUsage);
  }
  return fail(error.what() + std::string(kHelp), exitWrongUsage);
}

int runChosen(const Action& action, const GlobalOptions& options) {
  try {
    Context context(options);
    action(context);
    return context.exitStatus();
  } catch (const Interrupted&) {
    return exitFailed;
  } catch (const WrongUsage& error) {
    return fail(error.what(), exitWrongUsage);
  } catch (const std::exception& error) {
    return fail(error.what(), exitFailed);
  }
}

int run(int argc, char** argv) {
  GlobalOptions options;
  Action chosen;
  CLI::App program("Access to MySQL and MariaDB servers for backup agents", "orrery-mysql");
  // Global options may stand behind the command as well.
  program.fallthrough();
  program.require_subcommand(1);
  addGlobalOptions(program, options);
  addInitCommand(program, chosen);
  addDiscoverCommand(program, chosen);
  addInstanceCommands(program, chosen);
  addSettingCommands(program, chosen);
  addServerCommands(program, chosen);
  addControlCommands(program, chosen);
  addBinlogCommands(program, chosen);
  addReplicaCommands(program, chosen);
  addDatabasesCommands(program, chosen);
  addPathsCommands(program, chosen);
  addMetadataCommand(program, chosen);
  addReferencesCommand(program, chosen);
  addAccountsCommand(program, chosen);
  addBackupCommand(program, chosen);
  addRestoreCommand(program, chosen);
  addBrowseCommand(program, chosen);
  addJobCommands(program, chosen);
  try {
    std::vector<std::string> arguments = withEmptyValues(argc, argv);
    options.program = takeProgram(arguments);
    markWholeWords(arguments);
    takeMarksOff(program);
    program.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return endOfParsing(program, error);
  }
  int status = exitFailed;
  {
    const InterruptGuard signals;
    status = runChosen(chosen, options);
  }
  if (const int signal = interruptSignal(); signal != 0) endBySignal(signal);
  return status;
}

}  // namespace
}  // namespace orrery::tool

namespace {

/// Whoever starts the program without one of the standard streams: the next file opened would take its place. What is
/// written to a missing output fails, as it should.
void holdStandardStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) < 0) std::abort();
  }
}

/// Whoever starts the program with SIGCHLD ignored: the system would forget how our children end.
void learnHowChildrenEnd() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  ::sigaction(SIGCHLD, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  holdStandardStreams();
  learnHowChildrenEnd();
  try {
    return orrery::tool::run(argc, argv);
  } catch (const std::exception& error) {
    return orrery::tool::fail(error.what(), orrery::tool::exitFailed);
  }
}
