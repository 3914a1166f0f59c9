// orrery-mysql instance subclient list|add|remove: the parts of an instance that are backed up on their own.

#include "subclient_command.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "failure.h"
#include "instance_lookup.h"
#include "secrets.h"
#include "subclient_lookup.h"

namespace orrery::tool {
namespace {

Json toJson(const platform::SubclientRecord& subclient) {
  Json document;
  document["id"] = subclient.id;
  document["name"] = subclient.name;
  document["default"] = subclient.isDefault;
  return document;
}

void list(Context& context, const std::string& nameOrId) {
  const platform::InstanceRecord instance = findInstance(context, nameOrId);
  Json document;
  document["instance"] = instance.name;
  document["subclients"] = Json::array();
  Table table({"ID", "NAME", "DEFAULT", "DATABASES"});
  for (const platform::SubclientRecord& subclient : subclientsOf(context, instance)) {
    const std::size_t databases = contentOf(context, subclient).size();
    Json shown = toJson(subclient);
    shown["databases"] = databases;
    document["subclients"].push_back(std::move(shown));
    table.add(
        {std::to_string(subclient.id), subclient.name, subclient.isDefault ? "yes" : "no", std::to_string(databases)});
  }
  context.print(document, table);
}

void add(Context& context, const std::string& nameOrId, const std::string& name) {
  const platform::InstanceRecord instance = findInstance(context, nameOrId);
  platform::SubclientRecord subclient = findSubclient(context, instance, {});
  subclient.isDefault = false;
  subclient.name = name;
  require(context.services().inventory->addSubclient(subclient.backupSetId, name, subclient.id),
          "the subclient is not added to " + instance.name);
  Table table;
  table.add({"added", name + " (id " + std::to_string(subclient.id) + ")"});
  Json document;
  document["added"] = toJson(subclient);
  context.print(document, table);
}

void remove(Context& context, const std::string& nameOrId, const std::string& name, bool yes) {
  const platform::InstanceRecord instance = findInstance(context, nameOrId);
  const platform::SubclientRecord subclient = findSubclient(context, instance, name);
  const std::string label = subclient.name + " of " + instance.name;
  if (!yes && !askYesOrNo("Remove the subclient " + label + " with its content?", "--yes")) {
    throw Failure("the subclient " + label + " was not removed", "the answer was no");
  }
  require(context.services().inventory->removeSubclient(subclient.id), "the subclient " + label + " was not removed");
  Table table;
  table.add({"removed", label});
  Json document;
  document["removed"] = toJson(subclient);
  context.print(document, table);
}

struct Arguments {
  std::string instance;
  std::string name;
  bool yes = false;
};

}  // namespace

void addSubclientCommands(CLI::App& instanceGroup, Action& chosen) {
  CLI::App* group = instanceGroup.add_subcommand("subclient", "Parts of an instance that are backed up on their own");
  group->require_subcommand(1);
  auto arguments = std::make_shared<Arguments>();
  CLI::App* listing = group->add_subcommand("list", "List the subclients of an instance");
  CLI::App* adding = group->add_subcommand("add", "Add a subclient without content");
  CLI::App* removing = group->add_subcommand("remove", "Remove a subclient with its content");
  for (CLI::App* command : {listing, adding, removing}) {
    command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
    if (command != listing) command->add_option("SUBCLIENT", arguments->name, "Its name")->required();
  }
  removing->add_flag("--yes", arguments->yes, "Do not ask");
  listing->callback(
      [arguments, &chosen] { chosen = [arguments](Context& context) { list(context, arguments->instance); }; });
  adding->callback([arguments, &chosen] {
    chosen = [arguments](Context& context) { add(context, arguments->instance, arguments->name); };
  });
  removing->callback([arguments, &chosen] {
    chosen = [arguments](Context& context) { remove(context, arguments->instance, arguments->name, arguments->yes); };
  });
}

}  // namespace orrery::tool
