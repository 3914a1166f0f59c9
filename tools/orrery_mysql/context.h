#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "output.h"
#include "tee_log.h"

namespace CLI {
class App;
}

namespace orrery::tool {

struct GlobalOptions {
  std::string home;  ///< empty: the default home
  Format format = Format::table;
  std::string access = "auto";
  int verbosity = 0;
  std::vector<std::string> program;  ///< words behind "--" of a command that runs another program
};

/// What a running command works with: the user's global options, the home, and the way out.
class Context {
 public:
  explicit Context(GlobalOptions options) : options_(std::move(options)) {}

  /// The home's folder, absolute.
  std::string homePath() const;

  /// Opens the home on first use, makes it the process's backend, and removes what killed processes left in its tmp
  /// folder. Throws Failure when it cannot be opened.
  const platform::Services& services();

  /// The home's folder for short-lived files, and the one for results.
  std::string temporaryDirectory();
  std::string resultsDirectory();

  /// What this process logged last that may tell of a failure; empty before the home is open.
  std::string lastWords() const { return log_ ? log_->lastWords() : std::string(); }

  Format format() const noexcept { return options_.format; }
  /// Prints the command's result.
  void print(const Json& document, const Table& table) const { tool::print(options_.format, document, table); }
  /// Tells the user something on standard error that is no failure.
  void note(const std::string& text) const;
  /// How servers are reached: "auto", "command" or "library".
  const std::string& access() const noexcept { return options_.access; }
  /// The other program that the command line names, with its arguments.
  const std::vector<std::string>& program() const noexcept { return options_.program; }
  /// Makes the program end with another exit status than that of success: of a program that it ran for the user.
  void setExitStatus(int status) noexcept { exitStatus_ = status; }
  int exitStatus() const noexcept { return exitStatus_; }
  /// Whether a sign of life may be drawn on the terminal.
  bool wantsProgress() const noexcept { return options_.format == Format::table && options_.verbosity == 0; }

 private:
  GlobalOptions options_;
  std::shared_ptr<TeeLog> log_;
  std::optional<platform::ScopedServices> installed_;
  int exitStatus_ = 0;
};

/// What a command line asks for. Parsing puts it together; it runs once parsing is done.
using Action = std::function<void(Context&)>;

// The groups of commands: each adds its own to the program and puts the chosen action into `chosen`.
void addInitCommand(CLI::App& program, Action& chosen);
void addDiscoverCommand(CLI::App& program, Action& chosen);
void addInstanceCommands(CLI::App& program, Action& chosen);
void addSettingCommands(CLI::App& program, Action& chosen);
void addServerCommands(CLI::App& program, Action& chosen);
void addControlCommands(CLI::App& program, Action& chosen);
void addBinlogCommands(CLI::App& program, Action& chosen);
void addReplicaCommands(CLI::App& program, Action& chosen);
void addDatabasesCommands(CLI::App& program, Action& chosen);
void addPathsCommands(CLI::App& program, Action& chosen);
void addMetadataCommand(CLI::App& program, Action& chosen);
void addReferencesCommand(CLI::App& program, Action& chosen);
void addAccountsCommand(CLI::App& program, Action& chosen);
void addBackupCommand(CLI::App& program, Action& chosen);
void addRestoreCommand(CLI::App& program, Action& chosen);
void addBrowseCommand(CLI::App& program, Action& chosen);
void addJobCommands(CLI::App& program, Action& chosen);

}  // namespace orrery::tool
