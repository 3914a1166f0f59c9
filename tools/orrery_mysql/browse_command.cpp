// orrery-mysql browse: what can be restored, as the archive and the index know it. The server is not asked.

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "context.h"
#include "failure.h"
#include "images.h"
#include "instance_lookup.h"
#include "job_text.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

struct Request {
  std::string instance;
  std::string database;  ///< images that hold it; empty: all
};

std::vector<std::string> databasesIn(Context& context, const platform::ArchiveFile& image, platform::Id instance) {
  std::vector<platform::BrowsePath> paths;
  require(context.services().index->listPaths(instance, image.jobId, paths), "the index cannot be read");
  std::vector<std::string> names;
  names.reserve(paths.size());
  for (platform::BrowsePath& path : paths) names.push_back(std::move(path.name));
  return names;
}

std::string inOneLine(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text.empty() ? "-" : text;
}

void browse(Context& context, const Request& request) {
  const platform::InstanceRecord instance = findInstance(context, request.instance);
  Json document;
  document["instance"] = instance.name;
  document["images"] = Json::array();
  Table table({"TIME", "LEVEL", "SIZE", "JOB", "IMAGE", "DATABASES"});
  const std::vector<platform::ArchiveFile> images = imagesOf(context, instance);
  const std::vector<std::string> reasons = whyNotRestorable(context, images);
  std::string told;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const platform::ArchiveFile& image = images[i];
    const bool isRestorable = reasons[i].empty();
    const std::vector<std::string> databases = databasesIn(context, image, instance.id);
    if (!request.database.empty() && std::find(databases.begin(), databases.end(), request.database) == databases.end())
      continue;
    Json entry = imageDocument(image);
    entry["restorable"] = isRestorable;
    entry["reason"] = isRestorable ? Json(nullptr) : Json(reasons[i]);
    entry["databases"] = databases;
    document["images"].push_back(std::move(entry));
    table.add({timeText(image.created * 1000000),
               std::string(levelText(image.level)) + (isRestorable ? "" : ", not restorable"),
               amountText(static_cast<double>(image.size)), std::to_string(image.jobId), image.name,
               inOneLine(databases)});
    // Images that follow one another share their reason.
    if (!isRestorable && reasons[i] != told) context.note("no restore brings back " + image.name + ": " + reasons[i]);
    told = reasons[i];
  }
  if (document["images"].empty()) {
    context.note("there is no image of " + instance.name +
                 (request.database.empty() ? std::string() : " with the database " + request.database) +
                 "; orrery-mysql backup " + instance.name + " makes one where enterprise backup is on");
  }
  context.print(document, table);
}

}  // namespace

void addBrowseCommand(CLI::App& program, Action& chosen) {
  auto request = std::make_shared<Request>();
  CLI::App* command = program.add_subcommand("browse", "The images that a restore can use, and what they hold");
  command->add_option("INSTANCE", request->instance, "Name or id")->required();
  command->add_option("--database", request->database, "Only images that hold it")->type_name("NAME");
  command->callback([=, &chosen] { chosen = [=](Context& context) { browse(context, *request); }; });
}

}  // namespace orrery::tool
