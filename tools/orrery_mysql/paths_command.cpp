// orrery-mysql paths, encode-name: where a server keeps its files, and what it calls them.

#include <memory>

#include <CLI/CLI.hpp>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "context.h"
#include "data_paths.h"
#include "failure.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

void paths(Context& context, const std::string& instance) {
  ServerSession server(context, instance);
  DataPaths found = readDataPaths(server);
  try {
    addFurtherPaths(server, found);
  } catch (const Failure& failure) {
    // What the map says is worth having without the rest, on a machine that does not hold the files for one.
    context.note(std::string(failure.what()) + "; only the map is shown");
  }
  Json document;
  document["instance"] = server.instance();
  document["data_directory"] = found.dataDirectory;
  document["paths"] = Json::array();
  for (const DataPath& path : found.paths) document["paths"].push_back(toJson(path));
  context.print(document, toTable(found.paths));
}

void encodeNames(Context& context, const std::vector<std::string>& names) {
  GetMySqlInfo session;
  Json document;
  document["names"] = Json::array();
  Table table({"NAME", "FILE NAME"});
  for (const std::string& name : names) {
    const std::string encoded = session.getMySqlHexName(name);
    document["names"].push_back({{"name", name}, {"file_name", encoded}});
    table.add({name, encoded});
  }
  context.print(document, table);
}

}  // namespace

void addPathsCommands(CLI::App& program, Action& chosen) {
  auto instance = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand("paths", "Every place that holds the server's data, and its owner");
  command->add_option("INSTANCE", *instance, "Name or id")->required();
  command->callback([=, &chosen] { chosen = [=](Context& context) { paths(context, *instance); }; });

  auto names = std::make_shared<std::vector<std::string>>();
  CLI::App* encode = program.add_subcommand("encode-name", "The file name of a database's or table's name");
  encode->add_option("NAME", *names, "Names as the server knows them")->required();
  encode->callback([=, &chosen] { chosen = [=](Context& context) { encodeNames(context, *names); }; });
}

}  // namespace orrery::tool
