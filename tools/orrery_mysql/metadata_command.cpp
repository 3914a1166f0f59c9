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

/// Servers' numbers of what was dropped meanwhile (ER_BAD_DB_ERROR, ER_NO_SUCH_TABLE).
bool isGone(int number) {
  return number == 1049 || number == 1146;
}

/// Why the session's last operation failed, in one line.
std::string reasonOf(const ServerSession& server, const std::string& what) {
  try {
    server.fail(what);
  } catch (const Failure& failure) {
    return failure.what();
  }
}

/// One of several databases: what cannot be read of it does not keep the others from the result.
void leaveOut(Context& context, ServerSession& server, const std::string& name, LeftOutDatabases& leftOut) {
  const std::string what = "no metadata of the database " + name + " of " + server.instance();
  if (isClientError((*server).iErrorCode)) server.fail(what);
  leftOut.push_back({name, reasonOf(server, what)});
  if (!isGone((*server).iErrorCode)) context.setExitStatus(1);
}

/// Hands everything that was asked for to the taker. What is left out is told.
LeftOutDatabases readAll(Context& context, const Arguments& arguments, RecordTaker& taker) {
  LeftOutDatabases leftOut;
  if (arguments.job != 0) {
    leftOut = readRecords(context, arguments.job, {arguments.databases.begin(), arguments.databases.end()}, taker);
    for (const LeftOutDatabase& one : leftOut) {
      context.note("the database " + one.name + " is left out, " + one.reason);
    }
    return leftOut;
  }
  ServerSession server(context, arguments.instance);
  server.usePlainStatements(kNothing);
  std::set<std::string> seen;
  for (const std::string& name : chosenNames(server, arguments.databases)) {
    if (!seen.insert(name).second) continue;
    if (readRecords(server, name, taker) == 0) continue;
    if (!arguments.databases.empty()) server.fail("no metadata of the database " + name + " of " + server.instance());
    leaveOut(context, server, name, leftOut);
    context.note(leftOut.back().reason);
  }
  return leftOut;
}

Json headOf(const std::string& instance, const Arguments& arguments) {
  Json head;
  head["instance"] = instance;
  head["job"] = arguments.job == 0 ? Json(nullptr) : Json(arguments.job);
  head["sql_mode"] = plainMode;  // of recorded statements as well
  return head;
}

void writeRecords(Context& context, const std::string& instance, const Arguments& arguments) {
  const std::string what = "the file of the records";
  const std::string& path = *arguments.records;
  Destination destination(context, what, path);
  RecordFile file(destination);
  const LeftOutDatabases leftOut = readAll(context, arguments, file);
  destination.finish();
  if (path == "-") return;
  Json document = headOf(instance, arguments);
  document["file"] = path;
  document["left_out"] = toJson(leftOut);
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
  schema.finish(readAll(context, arguments, schema));
  destination.finish();
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
  server.usePlainStatements(kNothing);
  GetMySqlInfoExt& session = server.library(kNothing);
  const Names names = chosenNames(server, arguments.databases);
  std::string defaultEngine;  // the server's, which comes with every database
  for (const std::string& name : names) {
    IdxMetadata::MySqlDbInfo info;
    if (defaultEngine.empty() &&
        server.attempt([&](GetMySqlInfo&) { return session.fillDatabaseInfo(name, &info); }) == 0) {
      defaultEngine = info.getstring(3);
    }
    ClMySqlDbInfo tables;
    server.run(kNothing, [&](GetMySqlInfo&) { return session.collectTables(name, tables); });
    summary.addDatabase(name, defaultEngine);
    for (const auto& [table, listed] : tables.tables) summary.addTable(name, table, listed.engine);
  }
  context.print(Json(), summary.toTable(withTables));
}

void printConfiguration(Context& context, const Arguments& arguments) {
  ServerSession server(context, arguments.instance);
  GetMySqlInfoExt& session = server.library(kNothing);
  ClMySqlMetaData metadata;
  server.usePlainStatements(kNothing);
  server.runTables(kNothing, [&](GetMySqlInfo&) { return session.CollectMetadata(metadata); });
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
