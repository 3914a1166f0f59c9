// orrery-mysql references: which tables reference which through foreign keys.

#include <algorithm>
#include <memory>
#include <set>
#include <tuple>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "context.h"
#include "failure.h"
#include "output_file.h"
#include "printable.h"
#include "reference_graph.h"
#include "server_databases.h"
#include "server_session.h"
#include "text_json.h"

namespace orrery::tool {
namespace {

using Keys = std::vector<mysql::ForeignKey>;

constexpr const char* kNothing = "no references from";

struct Arguments {
  std::string instance;
  std::string as;  ///< empty: what the format says
  bool all = false;
  std::vector<std::string> databases;
};

/// The map that agents work with, as keys without names and columns.
Keys readMap(ServerSession& server) {
  GetMySqlInfoExt& session = server.library(kNothing);
  MySqlChildTables parents;
  server.runTables(kNothing, [&](GetMySqlInfo&) { return session.CollectChildTableData(parents); });
  Keys keys;
  for (const auto& [database, tables] : parents) {
    for (const auto& [table, children] : tables) {
      for (const CNMessageBase& child : children.list(1)) {
        mysql::ForeignKey& key = keys.emplace_back();
        key.database = child.getstring(2);
        key.table = child.getstring(1);
        key.referencedDatabase = database;
        key.referencedTable = table;
      }
    }
  }
  return keys;
}

Keys readCatalogue(ServerSession& server) {
  GetMySqlInfoExt& session = server.library(kNothing);
  Keys keys;
  server.run(kNothing, [&](GetMySqlInfo&) { return session.collectForeignKeys(keys); });
  return keys;
}

/// Keeps what has one of the databases at either end.
void keepOnly(Keys& keys, const Names& databases) {
  const std::set<std::string> kept(databases.begin(), databases.end());
  const auto isElsewhere = [&](const mysql::ForeignKey& key) {
    return kept.count(key.database) == 0 && kept.count(key.referencedDatabase) == 0;
  };
  keys.erase(std::remove_if(keys.begin(), keys.end(), isElsewhere), keys.end());
}

/// A name that is read as one wherever it stands in a line: between back-ticks unless it is plain.
std::string nameText(const std::string& name) {
  const auto isPlain = [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '$' ||
           c >= 0x80;
  };
  if (!name.empty() && std::all_of(name.begin(), name.end(), isPlain)) return printable(name);
  std::string text = "`";
  for (const char c : name) text.append(c == '`' ? 2 : 1, c);
  return printable(text + "`");
}

std::string namesText(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + nameText(name);
  return "(" + text + ")";
}

std::string tableText(const std::string& database, const std::string& table) {
  return nameText(database) + "." + nameText(table);
}

/// A line for each parent with its children; for each key where keys are known.
std::string linesOf(const Keys& keys, bool all) {
  std::string text;
  std::string parent;
  for (const mysql::ForeignKey& key : keys) {
    const std::string here = tableText(key.referencedDatabase, key.referencedTable);
    const std::string child = tableText(key.database, key.table);
    if (all) {
      text += here + " <- " + child + "  " + nameText(key.name) + " " + namesText(key.columns) + " -> " +
              namesText(key.referencedColumns) + " on update " + key.onUpdate + " on delete " + key.onDelete + "\n";
    } else if (here == parent) {
      text.insert(text.size() - 1, ", " + child);
    } else {
      text += here + " <- " + child + "\n";
    }
    parent = here;
  }
  return text;
}

Json keysOf(const Keys& keys) {
  Json result = Json::array();
  for (const mysql::ForeignKey& key : keys) {
    result.push_back({{"database", key.database},
                      {"table", key.table},
                      {"name", key.name},
                      {"columns", key.columns},
                      {"referenced_database", key.referencedDatabase},
                      {"referenced_table", key.referencedTable},
                      {"referenced_columns", key.referencedColumns},
                      {"on_update", key.onUpdate},
                      {"on_delete", key.onDelete}});
  }
  return result;
}

Json parentsOf(const Keys& keys) {
  Json result = Json::array();
  for (const mysql::ForeignKey& key : keys) {
    if (result.empty() || result.back()["database"] != key.referencedDatabase ||
        result.back()["table"] != key.referencedTable) {
      result.push_back(
          {{"database", key.referencedDatabase}, {"table", key.referencedTable}, {"children", Json::array()}});
    }
    result.back()["children"].push_back({{"database", key.database}, {"table", key.table}});
  }
  return result;
}

std::string textOf(const Keys& keys, const std::string& instance, const Arguments& arguments, const std::string& as) {
  if (as == "dot") return dotText(keys);
  if (as == "text") return linesOf(keys, arguments.all);
  Json document;
  document["instance"] = instance;
  if (arguments.all) {
    document["keys"] = keysOf(keys);
  } else {
    document["parents"] = parentsOf(keys);
  }
  return dumped(document, 2) + "\n";
}

void references(Context& context, const Arguments& arguments) {
  const std::string as = resultForm(context, arguments.as, "text");
  ServerSession server(context, arguments.instance);
  server.usePlainStatements(kNothing);
  const Names databases = arguments.databases.empty() ? Names() : chosenNames(server, arguments.databases);
  Keys keys = arguments.all ? readCatalogue(server) : readMap(server);
  server.requirePlainStatements(kNothing);
  if (!databases.empty()) keepOnly(keys, databases);
  const auto byParent = [](const mysql::ForeignKey& a, const mysql::ForeignKey& b) {
    return std::tie(a.referencedDatabase, a.referencedTable) < std::tie(b.referencedDatabase, b.referencedTable);
  };
  if (as == "text") std::stable_sort(keys.begin(), keys.end(), byParent);
  Destination output(context, "the result", "-");
  output.write(textOf(keys, server.instance(), arguments, as));
  output.finish();
}

}  // namespace

void addReferencesCommand(CLI::App& program, Action& chosen) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("references", "Tables that reference others through foreign keys");
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  command->add_option("--as", arguments->as, "Lines, JSON or a Graphviz graph; what --format says unless given")
      ->check(CLI::IsMember({"text", "json", "dot"}).description(""))
      ->type_name("text|json|dot");
  command->add_flag("--all", arguments->all, "Every key of the server's catalogue, not the agents' map of first keys");
  command->add_option("--database", arguments->databases, "Keys from or to this database; all unless given")
      ->type_name("DB")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command->callback([=, &chosen] { chosen = [=](Context& context) { references(context, *arguments); }; });
}

}  // namespace orrery::tool
