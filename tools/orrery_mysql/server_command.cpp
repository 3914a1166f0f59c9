// orrery-mysql mode|ping|version|variable: questions to a server.

#include <chrono>
#include <cmath>
#include <memory>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlInterface.h"

#include "context.h"
#include "failure.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

/// Why a client library cannot be used; empty when it can.
std::string reasonNotToLoad(const std::string& library) {
  MySqlInterface probe("", "", "", 0);
  return probe.LoadAndInitialize(library) == 0 ? std::string() : onOneLine(probe.getLastErrorStr());
}

void mode(Context& context, const std::string& instance) {
  const AccessChoice choice = chooseAccess(context, instance);
  Json document;
  document["instance"] = choice.instance;
  document["mode"] = choice.commandMode ? "command" : "library";
  document["reason"] = choice.reason;
  document["library"] = nullptr;
  document["library_error"] = nullptr;
  Table table;
  table.add({"instance", choice.instance});
  table.add({"mode", choice.commandMode ? "command" : "library"});
  table.add({"because", choice.reason});
  if (!choice.commandMode) {
    const std::string problem = reasonNotToLoad(choice.library);
    document["library"] = choice.library;
    if (!problem.empty()) document["library_error"] = problem;
    table.add({"library", choice.library + (problem.empty() ? "" : " (cannot be used: " + problem + ")")});
  }
  context.print(document, table);
}

void ping(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  std::chrono::duration<double, std::milli> taken{};
  server.run("no answer from", [&](GetMySqlInfo& session) {
    const auto start = std::chrono::steady_clock::now();
    const int rc = session.PingServer();
    taken = std::chrono::steady_clock::now() - start;
    return rc;
  });
  const double milliseconds = std::round(taken.count() * 10) / 10;
  Json document;
  document["instance"] = server.instance();
  document["alive"] = true;
  document["milliseconds"] = milliseconds;
  Table table;
  table.add({server.instance(), "alive", Json(milliseconds).dump() + " ms"});
  context.print(document, table);
}

void version(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  std::string text;
  server.run("no version from", [&](GetMySqlInfo& session) { return session.getVersionFromServer(text); });
  text = onOneLine(text);
  Json document;
  document["instance"] = server.instance();
  document["version"] = text;
  Table table;
  table.add({server.instance(), text});
  context.print(document, table);
}

void variable(Context& context, const std::string& name, const std::string& instance) {
  if (name.empty() || name.find('\\') != std::string::npos) {
    throw Failure("no variable is called [" + name + "]", "", "names are those of SHOW VARIABLES");
  }
  ServerSession server(context, instance);
  std::string value;
  if (!server.readVariable(name, value)) {
    throw Failure("the server of " + server.instance() + " has no variable " + name, "",
                  "names are those of SHOW VARIABLES");
  }
  Json document;
  document["instance"] = server.instance();
  document["name"] = name;
  document["value"] = value;
  Table table;
  table.add({name, value});
  context.print(document, table);
}

using InstanceCommand = void (*)(Context&, const std::string&);

void addInstanceCommand(CLI::App& parent, const char* name, const char* help, InstanceCommand run, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  CLI::App* command = parent.add_subcommand(name, help);
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { run(context, *instance); }; });
}

}  // namespace

void addServerCommands(CLI::App& program, Action& chosen) {
  addInstanceCommand(program, "mode", "How an agent would reach the server, and why", mode, chosen);
  addInstanceCommand(program, "ping", "Whether the server answers, and how fast", ping, chosen);
  addInstanceCommand(program, "version", "Version of the server", version, chosen);

  auto name = std::make_shared<std::string>();
  auto instance = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand("variable", "Value of one server variable");
  command->add_option("NAME", *name, "Name of the variable")->required();
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { variable(context, *name, *instance); }; });
}

}  // namespace orrery::tool
