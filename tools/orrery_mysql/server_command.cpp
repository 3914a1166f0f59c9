// orrery-mysql ping|version|variable|binlog: questions and commands to a server.

#include <chrono>
#include <cmath>
#include <memory>

#include <CLI/CLI.hpp>

#include "context.h"
#include "failure.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

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

/// Whether the server has the variable: one that is empty and one that is not there read alike.
bool variableExists(ServerSession& server, const std::string& pattern) {
  std::string rows;
  server.run("no variable from", [&](GetMySqlInfo& session) {
    return session.executeMySqlCommand("SHOW VARIABLES LIKE '" + pattern + "'", rows, false);
  });
  return !rows.empty();
}

void variable(Context& context, const std::string& name, const std::string& instance) {
  if (name.empty() || name.find('\\') != std::string::npos) {
    throw Failure("no variable is called [" + name + "]", "", "names are those of SHOW VARIABLES");
  }
  ServerSession server(context, instance);
  std::string value;
  // The library takes a pattern; here a name is meant as it stands.
  const std::string pattern = (*server).SpecialCharactersCheck(name);
  server.run("no variable from", [&](GetMySqlInfo& session) { return session.QueryVariable(pattern, value); });
  if (value.empty() && !variableExists(server, pattern)) {
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

void flushLogs(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  server.run("the binary log is not flushed on", [](GetMySqlInfo& session) { return session.FlushLogs(); });
  Json document;
  document["instance"] = server.instance();
  document["flushed"] = true;
  Table table;
  table.add({server.instance(), "logs flushed"});
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
  addInstanceCommand(program, "ping", "Whether the server answers, and how fast", ping, chosen);
  addInstanceCommand(program, "version", "Version of the server", version, chosen);

  auto name = std::make_shared<std::string>();
  auto instance = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand("variable", "Value of one server variable");
  command->add_option("NAME", *name, "Name of the variable")->required();
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { variable(context, *name, *instance); }; });

  CLI::App* group = program.add_subcommand("binlog", "Binary logs");
  group->require_subcommand(1);
  addInstanceCommand(*group, "flush", "Close the current binary log and begin a new one", flushLogs, chosen);
}

}  // namespace orrery::tool
