// orrery-mysql binlog status|list|current|flush|purge: binary logs of a server.

#include <algorithm>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string_view>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "context.h"
#include "failure.h"
#include "secrets.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

using Names = std::list<std::string>;

constexpr int kLoggingIsOn = 1;  // of GetMySqlInfo::iSessionMode

bool writesLogs(ServerSession& server) {
  server.run("the binary logs' state is not known of",
             [](GetMySqlInfo& session) { return session.FindBinLogStatus() < 0 ? -1 : 0; });
  return (*server).iSessionMode == kLoggingIsOn;
}

struct Catalogue {
  bool isOn = false;
  Names names;
  std::optional<long> first;
  std::optional<long> last;
};

Catalogue readCatalogue(ServerSession& server) {
  Catalogue catalogue;
  constexpr long none = -1;
  long first = none;
  long last = none;
  server.run("no list of binary logs from",
             [&](GetMySqlInfo& session) { return session.FindMasterLogs(catalogue.names, &first, &last); });
  catalogue.isOn = (*server).iSessionMode == kLoggingIsOn;
  if (first != none) catalogue.first = first;
  if (last != none) catalogue.last = last;
  return catalogue;
}

Json numberOrNull(const std::optional<long>& number) {
  return number ? Json(*number) : Json(nullptr);
}

void noteThatLogsAreOff(const Context& context, const ServerSession& server) {
  context.note("binary logging is off on " + server.instance());
}

void status(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  const bool isOn = writesLogs(server);
  std::string directory;
  if (isOn) {
    server.run("no folder of binary logs from",
               [&](GetMySqlInfo& session) { return session.GetLogBinPath(directory); });
  }
  Json document;
  document["instance"] = server.instance();
  document["binary_logging"] = isOn;
  document["directory"] = isOn ? Json(directory) : Json(nullptr);
  Table table;
  table.add({"instance", server.instance()});
  table.add({"binary logging", isOn ? "on" : "off"});
  if (isOn) table.add({"directory", directory});
  context.print(document, table);
}

void list(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  const Catalogue catalogue = readCatalogue(server);
  Json document;
  document["instance"] = server.instance();
  document["binary_logging"] = catalogue.isOn;
  document["logs"] = catalogue.names;
  document["first"] = numberOrNull(catalogue.first);
  document["last"] = numberOrNull(catalogue.last);
  Table table({"BINARY LOG"});
  for (const std::string& name : catalogue.names) table.add({name});
  if (!catalogue.isOn) noteThatLogsAreOff(context, server);
  context.print(document, table);
}

struct Position {
  std::string file;
  std::optional<std::string> offset;  ///< in bytes; clients do not tell it
};

Position readPosition(ServerSession& server) {
  Position position;
  server.run("no current binary log from", [&](GetMySqlInfo& session) {
    auto* const library = dynamic_cast<GetMySqlInfoExt*>(&session);
    if (library == nullptr) {
      const int rc = session.LastLogName();
      position.file = session.strMasterLogFile;
      return rc;
    }
    std::string info;
    if (library->FetchMasterInfo(info) != 0) return -1;
    const std::size_t colon = info.rfind(':');  // the name may hold one as well
    position.file = info.substr(0, colon);
    position.offset = info.substr(colon + 1);
    return 0;
  });
  return position;
}

void current(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  const bool isOn = writesLogs(server);
  const Position position = isOn ? readPosition(server) : Position();
  Json document;
  document["instance"] = server.instance();
  document["binary_logging"] = isOn;
  document["file"] = isOn ? Json(position.file) : Json(nullptr);
  document["position"] = nullptr;
  if (position.offset) document["position"] = std::stoull(*position.offset);
  Table table;
  if (isOn) table.add({server.instance(), position.file, position.offset.value_or("")});
  if (!isOn) noteThatLogsAreOff(context, server);
  context.print(document, table);
}

void flush(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  server.run("the binary log is not flushed on", [](GetMySqlInfo& session) { return session.FlushLogs(); });
  Json document;
  document["instance"] = server.instance();
  document["flushed"] = true;
  Table table;
  table.add({server.instance(), "logs flushed"});
  context.print(document, table);
}

std::string countOf(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " binary log" : " binary logs");
}

/// What purging would remove, for the question.
std::string removable(const Names& names, const std::string& before) {
  const auto end = std::find(names.begin(), names.end(), before);
  if (end == names.end()) return "the binary logs";
  const auto count = static_cast<std::size_t>(std::distance(names.begin(), end));
  if (count == 0) return "no binary log";
  return countOf(count) + " (" + names.front() + (count == 1 ? "" : " to " + *std::prev(end)) + ")";
}

void purge(Context& context, const std::string& instance, const std::string& before, bool yes) {
  if (before.empty()) throw WrongUsage("--before wants the name of a binary log");
  ServerSession server(context, instance);
  const Catalogue earlier = readCatalogue(server);
  if (!yes && !askYesOrNo("Remove " + removable(earlier.names, before) + " before " + before + " from the server of " +
                              server.instance() + "?",
                          "--yes")) {
    throw Failure("the binary logs of " + server.instance() + " were not purged", "the answer was no");
  }
  server.run("the binary logs are not purged on", [&](GetMySqlInfo& session) { return session.PurgeLogsTo(before); });
  // The server keeps what a replica still reads, so only a second look tells what went.
  const Names left = readCatalogue(server).names;
  const std::set<std::string_view> kept(left.begin(), left.end());
  Names removed;
  std::copy_if(earlier.names.begin(), earlier.names.end(), std::back_inserter(removed),
               [&](const std::string& name) { return kept.count(name) == 0; });
  if (std::find(left.begin(), left.end(), before) != left.begin()) {
    context.note("the server keeps binary logs before " + before +
                 ": a replica reads them, or its engines need them for a while after a rotation");
  }
  Json document;
  document["instance"] = server.instance();
  document["before"] = before;
  document["removed"] = removed;
  Table table;
  table.add({server.instance(), countOf(removed.size()) + " removed"});
  context.print(document, table);
}

using InstanceCommand = void (*)(Context&, const std::string&);

void addInstanceCommand(CLI::App& group, const char* name, const char* help, InstanceCommand run, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { run(context, *instance); }; });
}

void addPurge(CLI::App& group, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  auto before = std::make_shared<std::string>();
  auto yes = std::make_shared<bool>(false);
  CLI::App* command = group.add_subcommand("purge", "Remove the binary logs before one of them");
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->add_option("--before", *before, "First binary log that stays")->type_name("FILE")->required();
  command->add_flag("--yes", *yes, "Do not ask");
  command->callback([=, &chosen] { chosen = [=](Context& context) { purge(context, *instance, *before, *yes); }; });
}

}  // namespace

void addBinlogCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("binlog", "Binary logs");
  group->require_subcommand(1);
  addInstanceCommand(*group, "status", "Whether the server writes binary logs, and where", status, chosen);
  addInstanceCommand(*group, "list", "List the binary logs, oldest first", list, chosen);
  addInstanceCommand(*group, "current", "The binary log that is written now", current, chosen);
  addInstanceCommand(*group, "flush", "Close the current binary log and begin a new one", flush, chosen);
  addPurge(*group, chosen);
}

}  // namespace orrery::tool
