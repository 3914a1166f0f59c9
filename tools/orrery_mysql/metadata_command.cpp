// orrery-mysql metadata: what the databases of a server hold, from the server or from the index of a backup.

#include <memory>
#include <optional>
#include <set>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "context.h"
#include "failure.h"
#include "instance_lookup.h"
#include "job_text.h"
#include "schema_records.h"
#include "server_databases.h"
#include "server_session.h"
#include "text_json.h"

namespace orrery::tool {
namespace {

constexpr const char* kNothing = "no metadata from";

struct Arguments {
  std::string instance;
  std::vector<std::string> databases;
  std::optional<std::string> records;  ///< file of the records
  long long job = 0;                   ///< 0: the server is asked
  bool configuration = false;
};

/// Hands everything that was asked for to the taker.
void readAll(Context& context, const Arguments& arguments, RecordTaker& taker) {
  if (arguments.job != 0) {
    readRecords(context, arguments.job, {arguments.databases.begin(), arguments.databases.end()}, taker);
    return;
  }
  ServerSession server(context, arguments.instance);
  server.library(kNothing);
  std::set<std::string> seen;
  for (const std::string& name : chosenNames(server, arguments.databases)) {
    if (!seen.insert(name).second) continue;
    if (readRecords(server, name, taker) != 0)
      server.fail("no metadata of the database " + name + " of " + server.instance());
  }
}

Json headOf(const std::string& instance, const Arguments& arguments) {
  Json head;
  head["instance"] = instance;
  head["job"] = arguments.job == 0 ? Json(nullptr) : Json(arguments.job);
  return head;
}

void writeRecords(Context& context, const std::string& instance, const Arguments& arguments) {
  const std::string what = "the file of the records";
  const std::string& path = *arguments.records;
  Destination destination(context, what, path);
  RecordFile file(destination);
  readAll(context, arguments, file);
  destination.finish();
  if (path == "-") return;
  Json document = headOf(instance, arguments);
  document["file"] = path;
  document["totals"] = toJson(file.totals());
  Table table;
  table.add({"databases", std::to_string(file.totals().databases)});
  table.add({"tables", std::to_string(file.totals().tables)});
  table.add({"records in", path});
  context.print(document, table);
}

void writeJson(Context& context, const std::string& instance, const Arguments& arguments) {
  Destination destination(context, "the document", "-");
  JsonSchema schema(destination, headOf(instance, arguments));
  readAll(context, arguments, schema);
  schema.finish();
  destination.finish();
}

ClMySqlMetaData collect(ServerSession& server) {
  ClMySqlMetaData metadata;
  GetMySqlInfoExt& session = server.library(kNothing);
  server.runTables(kNothing, [&](GetMySqlInfo&) { return session.CollectMetadata(metadata); });
  return metadata;
}

/// What people look at needs no creation statement, which are most of the work.
void printSummary(Context& context, const Arguments& arguments) {
  SchemaSummary summary;
  const bool withTables = !arguments.databases.empty();
  if (arguments.job != 0) {
    readAll(context, arguments, summary);
    context.print(Json(), summary.toTable(withTables));
    return;
  }
  ServerSession server(context, arguments.instance);
  server.library(kNothing);
  const Names names = chosenNames(server, arguments.databases);
  const ClMySqlMetaData metadata = collect(server);
  IdxMetadata::MySqlDbInfo ofAny;  // the default engine is the server's, and every account sees this database
  server.attempt([&](GetMySqlInfo& session) { return session.fillDatabaseInfo("information_schema", &ofAny); });
  for (const std::string& name : names) {
    summary.addDatabase(name, ofAny.getstring(3));
    const auto found = metadata.databases.find(name);
    if (found == metadata.databases.end()) continue;
    for (const auto& [table, info] : found->second.tables) summary.addTable(name, table, info.engine);
  }
  context.print(Json(), summary.toTable(withTables));
}

void printConfiguration(Context& context, const Arguments& arguments) {
  ServerSession server(context, arguments.instance);
  const ClMySqlMetaData metadata = collect(server);
  Json document;
  document["instance"] = server.instance();
  document["configuration"] = Json::object();
  Table table({"VARIABLE", "VALUE"});
  for (const auto& [name, value] : metadata.configuration) {
    addText(document["configuration"], name, value);
    table.add({name, value});
  }
  context.print(document, table);
}

/// The job must be one of the instance: numbers are mistaken easily.
void requireJobOf(Context& context, const platform::InstanceRecord& instance, long long id) {
  if (id != 0 && findJob(context, id).instanceId != instance.id) {
    throw Failure("the job " + std::to_string(id) + " is not one of " + instance.name, "",
                  "orrery-mysql job list shows the jobs");
  }
}

void metadata(Context& context, const Arguments& arguments) {
  const platform::InstanceRecord instance = findInstance(context, arguments.instance);
  requireJobOf(context, instance, arguments.job);
  if (arguments.configuration) {
    printConfiguration(context, arguments);
  } else if (arguments.records) {
    writeRecords(context, instance.name, arguments);
  } else if (context.format() == Format::json) {
    writeJson(context, instance.name, arguments);
  } else {
    printSummary(context, arguments);
  }
}

}  // namespace

void addMetadataCommand(CLI::App& program, Action& chosen) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("metadata", "What databases hold: tables, engines, creation statements");
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  CLI::Option* databases = command->add_option("--database", arguments->databases, "This database; all unless given")
                               ->type_name("DB")
                               ->expected(1)
                               ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  CLI::Option* records =
      command->add_option("--records", arguments->records, "Write index records into FILE; - for standard output")
          ->type_name("FILE");
  CLI::Option* job = command->add_option("--job", arguments->job, "From the index, as this backup's job recorded it")
                         ->type_name("N")
                         ->check(CLI::PositiveNumber.description(""));
  command->add_flag("--configuration", arguments->configuration, "The server's variables instead")
      ->excludes(databases)
      ->excludes(records)
      ->excludes(job);
  command->callback([=, &chosen] { chosen = [=](Context& context) { metadata(context, *arguments); }; });
}

}  // namespace orrery::tool
