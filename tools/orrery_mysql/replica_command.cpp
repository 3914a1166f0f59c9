// orrery-mysql replica status|hold|release: replication and the backups that hold it.

#include <memory>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "context.h"
#include "failure.h"
#include "held_replica.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "replica_hold.h"
#include "replica_release.h"
#include "secrets.h"
#include "server_session.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

std::string many(unsigned count, const std::string& one, const std::string& several) {
  return std::to_string(count) + " " + (count == 1 ? one : several);
}

/// What the server says of replication, or why it says nothing.
struct Told {
  std::string state = "unknown";
  std::string problem;
};

Told askServer(Context& context, const std::string& nameOrId) {
  Told told;
  try {
    ServerSession server(context, nameOrId);
    told.state = stateText(readReplication(server));
  } catch (const Failure& failure) {
    // The counter matters most when the server is in trouble.
    told.problem = failure.what();
  }
  return told;
}

/// What an operator can do, in words.
std::string advice(const Holds& holds, const Told& told, const std::string& name) {
  const std::string release = "orrery-mysql replica release --stale " + name;
  if (!holds.counterProblem.empty()) return "backups count no holder while the counter cannot be read; " + release;
  if (!holds.possible.empty()) {
    return "a backup may run in process " + listOf(holds.possible) + "; when those have ended and the counter stays, " +
           release;
  }
  if (holds.isStale()) {
    std::string text;
    if (holds.dead() > 0) text = many(holds.dead(), "holder", "holders") + " died";
    if (holds.unknown() > 0) {
      text += (text.empty() ? "" : ", ") + many(holds.unknown(), "is a backup that is", "are backups that are") +
              " not known here";
    }
    return text + "; when no backup runs, " + release;
  }
  if (holds.alive() > 0) return "the replica is let go when its holders end";
  if (told.state == "stopped") return "no backup holds it: look at the server's own replica status and error log";
  return "nothing to do";
}

Json toJson(const KnownHolder& known) {
  Json holder;
  holder["pid"] = known.holder.process.id;
  holder["command_pid"] = known.holder.command.id == 0 ? Json(nullptr) : Json(known.holder.command.id);
  holder["alive"] = known.isAlive;
  holder["since"] = timeText(known.holder.since);
  holder["command"] = known.holder.commandLine;
  return holder;
}

std::vector<std::string> toRow(const KnownHolder& known) {
  return {"holder", "process " + std::to_string(known.holder.process.id) + (known.isAlive ? ", alive" : ", died") +
                        ", since " + timeText(known.holder.since) + ": " + known.holder.commandLine};
}

void status(Context& context, const std::string& nameOrId) {
  const platform::InstanceRecord record = findInstance(context, nameOrId);
  const Told told = askServer(context, nameOrId);
  const Holds holds = readHolds(context, record.id);
  const std::string next = advice(holds, told, record.name);

  const auto textOrNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
  Json document;
  document["instance"] = record.name;
  document["replication"] = told.state;
  document["replication_problem"] = textOrNull(told.problem);
  document["counter"] = holds.counterProblem.empty() ? Json(holds.counter) : Json(nullptr);
  document["counter_problem"] = textOrNull(holds.counterProblem);
  document["holders"] = Json::array();
  document["unknown_holders"] = holds.unknown();
  document["possible_holders"] = holds.possible;
  document["advice"] = next;
  Table table;
  table.add({"instance", record.name});
  table.add({"replication", told.state + (told.problem.empty() ? "" : " (" + told.problem + ")")});
  table.add({"counter", holds.counterProblem.empty() ? std::to_string(holds.counter) : holds.counterProblem});
  for (const KnownHolder& known : holds.known) {
    document["holders"].push_back(toJson(known));
    table.add(toRow(known));
  }
  if (holds.unknown() > 0) table.add({"not known", many(holds.unknown(), "holder", "holders")});
  table.add({"advice", next});
  context.print(document, table);
}

std::string question(const Holds& holds, const std::string& name) {
  const unsigned left = holds.alive();
  std::string text = holds.counterProblem.empty() ? "The counter of " + name + " says " + std::to_string(holds.counter)
                                                  : "The counter of " + name + " cannot be read";
  text += "; of its holders " + many(left, "lives", "live") + ", " + std::to_string(holds.dead()) + " died, " +
          std::to_string(holds.unknown()) + " cannot be known here. Set it to " + std::to_string(left);
  return text + (left == 0 ? " and start the replica?" : "?");
}

void printRelease(const Context& context, const std::string& name, unsigned before, const Release& release) {
  Json document;
  document["instance"] = name;
  document["counter_before"] = before;
  document["counter"] = release.counter;
  document["replica_started"] = release.started;
  document["forgotten_holders"] = Json::array();
  for (const platform::ReplicaHolder& holder : release.forgotten) {
    document["forgotten_holders"].push_back(toJson({holder, false}));
  }
  Table table;
  table.add({"counter", std::to_string(release.counter)});
  table.add({"replica", release.started ? "started" : "left as it is"});
  for (const platform::ReplicaHolder& holder : release.forgotten) table.add(toRow({holder, false}));
  context.print(document, table);
}

void release(Context& context, const std::string& nameOrId, bool yes) {
  const platform::InstanceRecord record = findInstance(context, nameOrId);
  const Holds holds = readHolds(context, record.id);
  if (!holds.isStale()) {
    context.note("nothing is stale on " + record.name);
    return printRelease(context, record.name, holds.counter, {holds.counter, false, {}});
  }
  const std::string what = "the replica of " + record.name + " is not released";
  if (!yes && !askYesOrNo(question(holds, record.name), "--yes")) throw Failure(what, "the answer was no");
  ServerSession server(context, nameOrId);
  const Release done = releaseStale(context, record, holds, [&] {
    // An interrupt must not come between the start and the counter that goes with it.
    const Finishing toTheEnd;
    // Through the server's own client: the session's operation is the protocol's, and would wait for the lock held
    // here.
    (*server).clearErrors();
    if ((*server).GetMySqlInfo::StartSlave() != 0) server.fail("the replica is not started on " + record.name);
  });
  printRelease(context, record.name, holds.counter, done);
}

void addStatus(CLI::App& group, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  CLI::App* command = group.add_subcommand("status", "Whether replication runs, and which backups hold it");
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { status(context, *instance); }; });
}

void addHold(CLI::App& group, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  CLI::App* command = group.add_subcommand("hold", "Hold the replica while a command runs: INSTANCE -- COMMAND...");
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] {
    chosen = [=](Context& context) {
      if (context.program().empty()) throw WrongUsage("COMMAND is required: replica hold INSTANCE -- COMMAND...");
      holdReplica(context, *instance, context.program());
    };
  });
}

struct ReleaseArguments {
  std::string instance;
  bool stale = false;  ///< always given: says what is released
  bool yes = false;
};

void addRelease(CLI::App& group, Action& chosen) {
  auto arguments = std::make_shared<ReleaseArguments>();
  CLI::App* command = group.add_subcommand("release", "Clear what backups that died left behind");
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  command->add_flag("--stale", arguments->stale, "Clear holders that no longer live, and no others")->required();
  command->add_flag("--yes", arguments->yes, "Do not ask");
  command->callback([arguments, &chosen] {
    chosen = [arguments](Context& context) { release(context, arguments->instance, arguments->yes); };
  });
}

}  // namespace

void addReplicaCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("replica", "Replication and the backups that hold it");
  group->require_subcommand(1);
  addStatus(*group, chosen);
  addHold(*group, chosen);
  addRelease(*group, chosen);
}

}  // namespace orrery::tool
