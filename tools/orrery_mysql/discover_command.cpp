// orrery-mysql discover: the servers that run on this machine, and their way into the inventory.

#include <memory>
#include <set>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlAutoDiscoveryLinux.h"

#include "context.h"
#include "discovery_text.h"
#include "failure.h"
#include "interrupt.h"
#include "progress.h"
#include "registration.h"

namespace orrery::tool {
namespace {

using State = RegistrationOutcome::State;

struct DiscoverArguments {
  bool registers = false;
  bool explains = false;
};

const char* nameOf(State state) {
  switch (state) {
    case State::isNew:
      return "new";
    case State::known:
      return "known";
    case State::added:
      return "registered";
    case State::refused:
      return "not_registered";
  }
  return "";
}

void runPass(Context& context, MySqlAutoDiscoveryLinux& discovery) {
  const Progress progress("looking for servers", context.wantsProgress());
  discovery.stopWhen([] { return interruptSignal() != 0; });
  const CKyError error = discovery.identifyMySqlInstanceInfo();
  if (interruptSignal() != 0) throw Interrupted();
  if (error.isError()) {
    throw Failure("the servers of this machine cannot be listed", error.text(), "are ps, grep and awk installed?",
                  error.code());
  }
}

/// The command that gives an instance what discovery cannot learn, and what it has seen to be missing; for one that is
/// not registered, the command that adds it by hand. Empty for one that is known.
std::string nextStep(const RegistrationOutcome& outcome, const mysql::ServerProcess& server) {
  const bool isAdded = outcome.state == State::added;
  if (!isAdded && outcome.state != State::refused) return {};
  std::string command = std::string("orrery-mysql instance ") + (isAdded ? "set " : "add ") +
                        shellWord(outcome.instance) + " --user ACCOUNT --ask-password";
  std::set<std::string> given;
  for (const mysql::DiscoveryHint& hint : server.hints) {
    if (hint.option.empty() || hint.value.empty() || !given.insert(hint.option).second) continue;
    command += " " + hint.option + " " + shellWord(hint.value);
  }
  if (!isAdded && given.count("--socket") == 0) command += " --socket PATH";
  return command;
}

/// Records stand in the order of the processes that have one.
std::vector<FoundServer> foundServers(const MySqlAutoDiscoveryLinux& discovery) {
  std::vector<FoundServer> found;
  auto record = discovery.getInstances().begin();
  for (const mysql::ServerProcess& server : discovery.getExplanation().processes) {
    if (server.recorded) found.push_back({*record++, &server});
  }
  return found;
}

void tellUser(const Context& context, const RegistrationOutcome& outcome, const std::string& next) {
  if (outcome.state == State::refused)
    context.note(outcome.instance + " is not registered: " + outcome.reason + "; by hand: " + next);
  if (outcome.state != State::added) return;
  for (const std::string& missing : outcome.missing) context.note("of " + outcome.instance + ", " + missing);
  context.note(outcome.instance + " is registered without MySQL account and password: " + next);
}

void discover(Context& context, const DiscoverArguments& arguments) {
  context.services();
  MySqlAutoDiscoveryLinux discovery(EvDebug::getClientName());
  runPass(context, discovery);
  const mysql::DiscoveryExplanation& explanation = discovery.getExplanation();
  for (const mysql::DiscoveryHint& hint : explanation.hints) context.note(hint.text);
  const std::vector<FoundServer> found = foundServers(discovery);
  const auto outcomes = registerRecords(context, found, arguments.registers);

  Json document;
  document["instances"] = Json::array();
  Table table({"NAME", "SOCKET", "PORT", "LOG OR DATA FOLDER", "PROGRAMS", "OPTION FILE", "UNIX ACCOUNT", "INVENTORY"});
  for (std::size_t i = 0; i < found.size(); ++i) {
    const MysqlInstanceInfo& record = found[i].record;
    const RegistrationOutcome& outcome = outcomes[i];
    const std::string next = nextStep(outcome, *found[i].process);
    Json shown = toJson(record);
    shown["state"] = nameOf(outcome.state);
    shown["instance"] = outcome.state == State::refused ? Json(nullptr) : Json(outcome.instance);
    shown["next"] = next.empty() ? Json(nullptr) : Json(next);
    document["instances"].push_back(std::move(shown));
    const auto cell = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
    table.add({record.strInstanceName, cell(record.strSocketFile), cell(record.strPort), cell(record.strLogDataDir),
               cell(record.strBinaryDir), cell(record.strConfigFile), cell(record.strUnixUser),
               outcome.state == State::refused ? nameOf(outcome.state)
                                               : std::string(nameOf(outcome.state)) + " as " + outcome.instance});
    if (arguments.registers) tellUser(context, outcome, next);
  }
  if (arguments.explains) {
    document["processes"] = Json::array();
    for (const mysql::ServerProcess& server : explanation.processes) document["processes"].push_back(toJson(server));
  }
  document["hints"] = Json::array();
  for (const mysql::DiscoveryHint& hint : explanation.hints) document["hints"].push_back(toJson(hint));
  context.print(document, arguments.explains ? explanationTable(explanation) : table);
}

}  // namespace

void addDiscoverCommand(CLI::App& program, Action& chosen) {
  CLI::App* command = program.add_subcommand("discover", "Find the servers that run on this machine");
  auto arguments = std::make_shared<DiscoverArguments>();
  command->add_flag("--register", arguments->registers, "Add those that the inventory does not have");
  command->add_flag("--explain", arguments->explains,
                    "Show where every value came from, what was left out and why, and what to set by hand");
  command->callback(
      [arguments, &chosen] { chosen = [arguments](Context& context) { discover(context, *arguments); }; });
}

}  // namespace orrery::tool
