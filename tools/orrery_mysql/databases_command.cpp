// orrery-mysql databases list|show|plan|content|add|remove: the server's databases and the content of subclients.

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "context.h"
#include "failure.h"
#include "instance_lookup.h"
#include "server_databases.h"
#include "server_session.h"
#include "subclient_lookup.h"

namespace orrery::tool {
namespace {

struct Arguments {
  std::string instance;
  std::string subclient;  ///< empty: the default one
  std::vector<std::string> databases;
};

void list(Context& context, const Arguments& arguments) {
  ServerSession server(context, arguments.instance);
  const Names names = readNames(server);
  Json document;
  document["instance"] = server.instance();
  document["databases"] = names;
  Table table({"DATABASE"});
  for (const std::string& name : names) table.add({name});
  context.print(document, table);
}

struct Properties {
  unsigned long long size = 0;
  std::string created;
  bool innoDbOnly = false;
};

/// 0, or the result of the session's operation that failed.
int readProperties(ServerSession& server, const std::string& name, Properties& properties) {
  // Over a connection the name is a pattern; here it is meant as it stands.
  const std::string pattern = server.isInCommandMode() ? name : (*server).SpecialCharactersCheck(name);
  const int rc = server.attempt(
      [&](GetMySqlInfo& session) { return session.getDBProps(pattern, properties.created, properties.size); });
  if (rc != 0) return rc;
  return server.attempt([&](GetMySqlInfo& session) { return session.isUsesInnoDBEngine(name, properties.innoDbOnly); });
}

void show(Context& context, const Arguments& arguments) {
  ServerSession server(context, arguments.instance);
  Json document;
  document["instance"] = server.instance();
  document["databases"] = Json::array();
  Table table({"DATABASE", "SIZE", "CREATED", "INNODB ONLY", "FILE NAME"});
  for (const std::string& name : chosenNames(server, arguments.databases)) {
    Json shown;
    shown["name"] = name;
    std::vector<std::string> row{name};
    const std::string fileName = (*server).getMySqlHexName(name);
    Properties properties;
    if (readProperties(server, name, properties) == 0) {
      const bool isDated = !properties.created.empty() && properties.created != "0" && properties.created != "NULL";
      shown["size"] = properties.size;
      shown["created"] = isDated ? Json(properties.created) : Json(nullptr);
      shown["innodb_only"] = properties.innoDbOnly;
      row.insert(row.end(), {std::to_string(properties.size), isDated ? properties.created : "-",
                             properties.innoDbOnly ? "yes" : "no"});
    } else if (!arguments.databases.empty()) {
      server.fail("the database " + name + " is not known of " + server.instance());
    } else {
      // One name that cannot be asked for must not hide the others.
      context.note("the database " + name + " is not known: " + onOneLine((*server).strErrorString));
      for (const char* key : {"size", "created", "innodb_only"}) shown[key] = nullptr;
      row.insert(row.end(), {"-", "-", "-"});
    }
    shown["file_name"] = fileName;
    row.push_back(fileName);
    document["databases"].push_back(std::move(shown));
    table.add(std::move(row));
  }
  context.print(document, table);
}

/// The server's databases that no subclient has in its content, without those that would be added to one.
Names unprotectedNames(Context& context, const platform::InstanceRecord& instance, const mysql::DatabasePlan& plan) {
  std::set<std::string> known(plan.discovered.begin(), plan.discovered.end());
  for (const platform::SubclientRecord& subclient : subclientsOf(context, instance)) {
    for (const platform::ContentEntry& entry : contentOf(context, subclient)) known.insert(entry.name);
  }
  Names names;
  for (const std::string& name : plan.server) {
    if (known.count(name) == 0) names.push_back(bareName(name));
  }
  return names;
}

void plan(Context& context, const Arguments& arguments) {
  ServerSession server(context, arguments.instance);
  const platform::SubclientRecord subclient = findSubclient(context, server.record(), arguments.subclient);
  ApplicationId application = applicationOf(server.record(), subclient);
  mysql::DatabasePlan plan;
  server.run("no plan for the databases of",
             [&](GetMySqlInfo& session) { return session.planDatabasesForBackup(&application, plan); });
  const bool discovers = subclient.isDefault && (*server).iDbAutoDiscovery == 1;

  Json document;
  document["instance"] = server.instance();
  document["subclient"] = subclient.name;
  document["discovery"] = discovers;
  document["new"] = bareNames(plan.discovered);
  document["valid"] = bareNames(plan.valid);
  document["vanished"] = bareNames(plan.vanished);
  document["missing"] = bareNames(plan.missing);
  const Names unprotected = unprotectedNames(context, server.record(), plan);
  document["unprotected"] = unprotected;
  Table table({"DATABASE", "STATE"});
  const std::set<std::string_view> discovered(plan.discovered.begin(), plan.discovered.end());
  for (const std::string& name : plan.valid) {
    const bool isNew = discovered.count(name) > 0;
    table.add(
        {bareName(name), isNew ? "new: would be added to the content and backed up" : "valid: would be backed up"});
  }
  for (const std::string& name : plan.vanished) {
    table.add({bareName(name), "vanished: was added automatically, would be removed from the content"});
  }
  for (const std::string& name : plan.missing) {
    table.add({bareName(name), "missing: added by a user, not on the server; would be told to the job"});
  }
  for (const std::string& name : unprotected) {
    table.add({name, "unprotected: in the content of no subclient, nobody would back it up"});
  }
  if (!discovers) {
    context.note(subclient.isDefault ? "the instance adds no databases by itself: orrery-mysql instance set " +
                                           server.instance() + " --auto-discovery on changes that"
                                     : "only the default subclient takes new databases by itself");
  }
  context.print(document, table);
}

void printContent(Context& context, const platform::InstanceRecord& instance,
                  const platform::SubclientRecord& subclient) {
  Json document;
  document["instance"] = instance.name;
  document["subclient"] = subclient.name;
  document["databases"] = Json::array();
  Table table({"DATABASE", "ADDED", "SIZE WHEN ADDED"});
  for (const platform::ContentEntry& entry : contentOf(context, subclient)) {
    document["databases"].push_back(
        {{"name", bareName(entry.name)}, {"auto_discovered", entry.autoDiscovered}, {"size", entry.size}});
    table.add({bareName(entry.name), entry.autoDiscovered ? "automatically" : "by a user", std::to_string(entry.size)});
  }
  context.print(document, table);
}

void content(Context& context, const Arguments& arguments) {
  const platform::InstanceRecord instance = findInstance(context, arguments.instance);
  printContent(context, instance, findSubclient(context, instance, arguments.subclient));
}

/// What no server takes as the name of a database would be missing for ever.
void requireDatabaseName(const std::string& name) {
  constexpr std::size_t longest = 64;  // characters
  const auto isStart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  if (name.empty()) throw WrongUsage("a database has a name");
  if (name == "information_schema" || name == "performance_schema") {
    throw WrongUsage(name + " holds nothing to protect: its tables are views of the server's state");
  }
  if (static_cast<std::size_t>(std::count_if(name.begin(), name.end(), isStart)) > longest) {
    throw WrongUsage("names of databases have at most 64 characters");
  }
  try {
    static_cast<void>(Json(name).dump());
  } catch (const Json::type_error&) {
    throw WrongUsage("names of databases are UTF-8");
  }
}

/// A database in two subclients would be backed up twice.
void noteOtherHolders(Context& context, const platform::InstanceRecord& instance,
                      const platform::SubclientRecord& subclient, const std::vector<std::string>& databases) {
  const std::set<std::string> added(databases.begin(), databases.end());
  for (const platform::SubclientRecord& other : subclientsOf(context, instance)) {
    if (other.id == subclient.id) continue;
    for (const platform::ContentEntry& entry : contentOf(context, other)) {
      if (added.count(bareName(entry.name)) == 0) continue;
      context.note("the database " + bareName(entry.name) + " is in the content of the subclient " + other.name +
                   " as well and will be backed up with both");
    }
  }
}

void addToContent(Context& context, const Arguments& arguments) {
  const platform::InstanceRecord instance = findInstance(context, arguments.instance);
  const platform::SubclientRecord subclient = findSubclient(context, instance, arguments.subclient);
  std::map<std::string, platform::ContentEntry> present;
  for (platform::ContentEntry& entry : contentOf(context, subclient)) present.emplace(entry.name, entry);
  std::vector<platform::ContentEntry> entries;
  for (const std::string& name : arguments.databases) {
    requireDatabaseName(name);
    const auto known = present.find(listedName(name));
    entries.push_back({ApplProperty::typeDatabase, listedName(name), known == present.end() ? 0 : known->second.size,
                       known == present.end() ? 0 : known->second.created, false});
  }
  noteOtherHolders(context, instance, subclient, arguments.databases);
  require(context.services().inventory->putContent(subclient.id, entries),
          "the content of the subclient " + subclient.name + " is not changed");
  printContent(context, instance, subclient);
}

void removeFromContent(Context& context, const Arguments& arguments) {
  const platform::InstanceRecord instance = findInstance(context, arguments.instance);
  const platform::SubclientRecord subclient = findSubclient(context, instance, arguments.subclient);
  std::set<std::string> present;
  for (const platform::ContentEntry& entry : contentOf(context, subclient)) present.insert(entry.name);
  std::vector<std::string> names;
  for (const std::string& name : arguments.databases) {
    // What a suite wrote without the "/" is known by its whole name.
    names.push_back(present.count(name) > 0 ? name : listedName(name));
    if (present.count(names.back()) == 0) {
      throw Failure("the database " + name + " is not in the content of the subclient " + subclient.name, "",
                    "orrery-mysql databases content " + instance.name + " --subclient " + subclient.name + " shows it");
    }
  }
  require(context.services().inventory->removeContent(subclient.id, ApplProperty::typeDatabase, names),
          "the content of the subclient " + subclient.name + " is not changed");
  printContent(context, instance, subclient);
}

enum class Takes { instance, subclient, someDatabases, subclientAndDatabases };

void addOne(CLI::App& group, const char* name, const char* help, Takes takes, void (*run)(Context&, const Arguments&),
            Action& chosen) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  if (takes == Takes::subclient || takes == Takes::subclientAndDatabases) {
    command->add_option("--subclient", arguments->subclient, "The subclient; the default one unless given")
        ->type_name("NAME");
  }
  if (takes == Takes::someDatabases) {
    command->add_option("DATABASE", arguments->databases, "Names of databases; all unless given");
  } else if (takes == Takes::subclientAndDatabases) {
    command->add_option("DATABASE", arguments->databases, "Names of databases")->required();
  }
  command->callback([=, &chosen] { chosen = [=](Context& context) { run(context, *arguments); }; });
}

}  // namespace

void addDatabasesCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("databases", "Databases of a server, and which of them are backed up");
  group->require_subcommand(1);
  addOne(*group, "list", "List the server's databases", Takes::instance, list, chosen);
  addOne(*group, "show", "Size, creation time and engines of databases", Takes::someDatabases, show, chosen);
  addOne(*group, "plan", "What a backup would do about each database, without changing anything", Takes::subclient,
         plan, chosen);
  addOne(*group, "content", "The databases that a subclient is to protect", Takes::subclient, content, chosen);
  addOne(*group, "add", "Put databases into the content of a subclient", Takes::subclientAndDatabases, addToContent,
         chosen);
  addOne(*group, "remove", "Take databases out of the content of a subclient; the server keeps them",
         Takes::subclientAndDatabases, removeFromContent, chosen);
}

}  // namespace orrery::tool
