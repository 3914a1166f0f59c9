// orrery-mysql instance add|list|show|set|remove: the inventory of servers.

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <CLI/CLI.hpp>

#include "orrery/platform/instance_properties.h"

#include "context.h"
#include "failure.h"
#include "instance_checks.h"
#include "instance_fields.h"
#include "instance_lookup.h"
#include "secrets.h"
#include "subclient_command.h"

namespace orrery::tool {
namespace {

namespace property = platform::property;

/// What `add` and `set` are given.
struct InstanceArguments {
  std::string instance;  ///< a new name, or the name or id of an instance
  std::string client;
  std::map<const InstanceField*, std::string> values;
  std::string passwordFile;
  bool passwordFromInput = false;
  bool askPassword = false;
  bool noPassword = false;
};

void addFieldOptions(CLI::App& command, InstanceArguments& arguments, bool required) {
  for (const InstanceField& field : instanceFields()) {
    CLI::Option* option = command.add_option_function<std::string>(
        field.option, [&arguments, &field](const std::string& value) { arguments.values[&field] = value; }, field.help);
    option->type_name(field.metavar);
    if (field.kind == FieldKind::onOff) option->check(CLI::IsMember({"on", "off"}).description(""));
    if (required && (field.kind == FieldKind::socket || field.kind == FieldKind::account)) option->required();
  }
}

void addPasswordOptions(CLI::App& command, InstanceArguments& arguments, const std::string& unlessGiven) {
  command.add_option("--password-file", arguments.passwordFile, "File with the account's password")->type_name("FILE");
  command.add_flag("--password-stdin", arguments.passwordFromInput, "Read the password from standard input");
  command.add_flag("--ask-password", arguments.askPassword, "Ask for the password on the terminal" + unlessGiven);
  command.add_flag("--no-password", arguments.noPassword, "Store no password");
}

void requireOnePasswordSource(const InstanceArguments& arguments) {
  const int sources = (arguments.passwordFile.empty() ? 0 : 1) + (arguments.passwordFromInput ? 1 : 0) +
                      (arguments.askPassword ? 1 : 0) + (arguments.noPassword ? 1 : 0);
  if (sources > 1) {
    throw WrongUsage("only one of --password-file, --password-stdin, --ask-password and --no-password can be given");
  }
}

/// The sealed password that the options ask for; none when they ask for no change.
std::optional<std::string> sealedPassword(Context& context, const InstanceArguments& arguments, bool askByDefault) {
  if (arguments.noPassword) return std::string();
  Secret password;
  if (!arguments.passwordFile.empty()) {
    password = readPasswordFile(arguments.passwordFile);
  } else if (arguments.passwordFromInput) {
    password = readPasswordFromStandardInput();
  } else if (arguments.askPassword || askByDefault) {
    password = askForPassword("Password of the MySQL account: ");
  } else {
    return std::nullopt;
  }
  std::string sealed;
  require(context.services().vault->seal(password.text(), sealed), "the password cannot be sealed");
  return sealed;
}

std::map<std::string, std::string> checkedProperties(const Context& context, const InstanceArguments& arguments) {
  std::map<std::string, std::string> properties;
  for (const InstanceField& field : instanceFields()) {
    const auto given = arguments.values.find(&field);
    if (given != arguments.values.end()) properties[field.property] = checkedValue(context, field, given->second);
  }
  return properties;
}

void printInstance(Context& context, const platform::InstanceRecord& record) {
  const std::string client = clientNameOf(context, record);
  context.print(toJson(record, client), toTable(record, client));
}

/// The client that a new instance belongs to: this machine's own, or one that is made for it.
platform::Id clientFor(Context& context, const std::string& name, bool& known) {
  platform::Inventory& inventory = *context.services().inventory;
  platform::Client client;
  const platform::Status status = name.empty() ? inventory.ownClient(client) : inventory.findClient(name, client);
  known = status.code != platform::statusNotFound;
  if (known) require(status, "the inventory cannot be read");
  return client.id;
}

void requireFreeName(Context& context, platform::Id client, const std::string& name) {
  platform::InstanceRecord existing;
  const platform::Status status =
      context.services().inventory->findInstance(client, property::applicationTypeMySql, name, existing);
  if (status.ok()) {
    throw Failure("the instance " + name + " is not added", "the name is taken",
                  "choose another, or change that one with orrery-mysql instance set");
  }
  if (status.code != platform::statusNotFound) require(status, "the inventory cannot be read");
}

void addInstance(Context& context, InstanceArguments& arguments) {
  requireOnePasswordSource(arguments);
  checkInstanceName(arguments.instance);
  platform::Inventory& inventory = *context.services().inventory;
  platform::InstanceRecord record;
  record.name = arguments.instance;
  record.applicationType = property::applicationTypeMySql;
  bool knownClient = true;
  record.clientId = clientFor(context, arguments.client, knownClient);
  if (knownClient) requireFreeName(context, record.clientId, record.name);
  const bool binaryGiven = std::any_of(arguments.values.begin(), arguments.values.end(),
                                       [](const auto& given) { return given.first->kind == FieldKind::clients; });
  if (!binaryGiven) {
    for (const InstanceField& field : instanceFields()) {
      if (field.kind == FieldKind::clients) arguments.values[&field] = defaultBinaryPath();
    }
  }
  record.properties = checkedProperties(context, arguments);
  if (const auto sealed = sealedPassword(context, arguments, true); sealed && !sealed->empty()) {
    record.properties[property::saPassword] = *sealed;
  }
  if (!knownClient) {
    require(inventory.putClient(arguments.client, 0, record.clientId), "the client cannot be added");
    context.note("the client " + arguments.client + " was not known and has been added");
  }
  require(inventory.addInstance(record, record.id), "the instance " + record.name + " is not added");
  printInstance(context, record);
}

void setInstance(Context& context, const InstanceArguments& arguments) {
  requireOnePasswordSource(arguments);
  platform::InstanceRecord record = findInstance(context, arguments.instance);
  std::map<std::string, std::string> changes = checkedProperties(context, arguments);
  if (const auto sealed = sealedPassword(context, arguments, false)) changes[property::saPassword] = *sealed;
  if (changes.empty())
    throw WrongUsage("nothing to change was given; orrery-mysql instance set --help lists the options");
  require(context.services().inventory->writeProperties(record.id, changes),
          "the instance " + record.name + " is not changed");
  for (const auto& [key, value] : changes) record.properties[key] = value;
  printInstance(context, record);
}

void listInstances(Context& context) {
  std::vector<platform::InstanceRecord> records;
  require(context.services().inventory->listInstances(records), "the inventory cannot be read");
  Json instances = Json::array();
  Table table({"ID", "NAME", "SOCKET", "ACCOUNT", "UNIX ACCOUNT"});
  for (const platform::InstanceRecord& record : records) {
    if (record.applicationType != property::applicationTypeMySql) continue;
    const Json whole = toJson(record, {});
    Json shown;
    std::vector<std::string> row{std::to_string(record.id), record.name};
    shown["id"] = record.id;
    shown["name"] = record.name;
    for (const char* key : {"socket", "user", "unix_user"}) {
      shown[key] = whole[key];
      row.push_back(whole[key].is_string() ? whole[key].get<std::string>() : "-");
    }
    instances.push_back(std::move(shown));
    table.add(std::move(row));
  }
  Json document;
  document["instances"] = std::move(instances);
  context.print(document, table);
}

void removeInstance(Context& context, const std::string& nameOrId, bool yes) {
  const platform::InstanceRecord record = findInstance(context, nameOrId);
  const std::string label = record.name + " (id " + std::to_string(record.id) + ")";
  if (!yes && !askYesOrNo("Remove the instance " + label + " with its backup sets, subclients and content?", "--yes")) {
    throw Failure("the instance " + label + " was not removed", "the answer was no");
  }
  require(context.services().inventory->removeInstance(record.id), "the instance " + label + " was not removed");
  Json document;
  document["removed"] = {{"id", record.id}, {"name", record.name}};
  Table table;
  table.add({"removed", label});
  context.print(document, table);
}

void addAdd(CLI::App& group, Action& chosen) {
  CLI::App* command = group.add_subcommand("add", "Add an instance");
  auto arguments = std::make_shared<InstanceArguments>();
  command->add_option("NAME", arguments->instance, "Name of the new instance")->required();
  addFieldOptions(*command, *arguments, true);
  addPasswordOptions(*command, *arguments, ", as is done unless another way is given");
  command->add_option("--client", arguments->client, "Client that owns the instance; this machine's unless given");
  command->callback(
      [arguments, &chosen] { chosen = [arguments](Context& context) { addInstance(context, *arguments); }; });
}

void addSet(CLI::App& group, Action& chosen) {
  CLI::App* command = group.add_subcommand("set", "Change what is given, and nothing else; '' takes a value away");
  auto arguments = std::make_shared<InstanceArguments>();
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  addFieldOptions(*command, *arguments, false);
  addPasswordOptions(*command, *arguments, "");
  command->callback(
      [arguments, &chosen] { chosen = [arguments](Context& context) { setInstance(context, *arguments); }; });
}

void addShow(CLI::App& group, Action& chosen) {
  CLI::App* command = group.add_subcommand("show", "Show one instance; never its password");
  auto instance = std::make_shared<std::string>();
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([instance, &chosen] {
    chosen = [instance](Context& context) { printInstance(context, findInstance(context, *instance)); };
  });
}

void addRemove(CLI::App& group, Action& chosen) {
  CLI::App* command =
      group.add_subcommand("remove", "Remove an instance from the inventory; the server stays as it is");
  auto instance = std::make_shared<std::string>();
  auto yes = std::make_shared<bool>(false);
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->add_flag("--yes", *yes, "Do not ask");
  command->callback([instance, yes, &chosen] {
    chosen = [instance, yes](Context& context) { removeInstance(context, *instance, *yes); };
  });
}

}  // namespace

void addInstanceCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("instance", "The inventory of servers");
  group->require_subcommand(1);
  addAdd(*group, chosen);
  group->add_subcommand("list", "List the instances")->callback([&chosen] { chosen = listInstances; });
  addShow(*group, chosen);
  addSet(*group, chosen);
  addRemove(*group, chosen);
  addSubclientCommands(*group, chosen);
}

}  // namespace orrery::tool
