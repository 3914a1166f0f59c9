#include "manifest.h"

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/CKyDirectory.h"

#include "failure.h"
#include "output_file.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

constexpr const char* formatName = "orrery-mysql-manifest";
constexpr int formatVersion = 1;

Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json timeOrNull(std::int64_t time) {
  return time == 0 ? Json(nullptr) : Json(timeText(time));
}

Json replicationOf(const Manifest& manifest) {
  Json document;
  document["state"] = manifest.replication;
  document["held_from"] = timeOrNull(manifest.heldFrom);
  document["held_until"] = timeOrNull(manifest.heldUntil);
  document["primary_log"] = textOrNull(manifest.primaryLog);
  document["primary_position"] =
      manifest.primaryPosition.empty() ? Json(nullptr) : Json(std::stoull(manifest.primaryPosition));
  return document;
}

Json databasesOf(const Manifest& manifest) {
  GetMySqlInfo names;
  Json document;
  document["protect"] = Json::array();
  for (const std::string& name : manifest.databases) {
    const std::string directory = names.getMySqlHexName(name);
    // Servers spell some letters outside ASCII in a way of their own: no name is better than one that is not there.
    const bool exists = kindOf(manifest.paths.dataDirectory + "/" + directory) == FileKind::directory;
    document["protect"].push_back({{"name", name}, {"directory", exists ? Json(directory) : Json(nullptr)}});
  }
  document["added"] = manifest.added;
  document["removed"] = manifest.removed;
  document["missing"] = manifest.missing;
  return document;
}

std::string joined(const std::list<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// Lists of people: how many, then which.
std::string counted(const std::list<std::string>& names) {
  return std::to_string(names.size()) + (names.empty() ? "" : ": " + joined(names));
}

std::string metadataText(const Manifest& manifest) {
  std::string text = std::to_string(manifest.recordedDatabases) + " databases with " +
                     std::to_string(manifest.recordedTables) + " tables in the index";
  if (!manifest.notRecorded.empty()) text += ", without " + joined(manifest.notRecorded);
  return text;
}

}  // namespace

Json toJson(const Manifest& manifest) {
  Json document;
  document["format"] = formatName;
  document["version"] = formatVersion;
  document["job"] = manifest.job;
  document["level"] = manifest.level == 2 ? "incremental" : "full";
  document["started"] = timeText(manifest.started);
  document["finished"] = timeText(manifest.finished);
  document["instance"] = {{"id", manifest.instance.id}, {"name", manifest.instance.name}};
  document["subclient"] = {{"id", manifest.subclient.id}, {"name", manifest.subclient.name}};
  document["access"] = manifest.commandMode ? "command" : "library";
  document["server"] = {{"version", manifest.version}, {"mariadb", manifest.isMariaDb}};
  document["replication"] = replicationOf(manifest);
  document["databases"] = databasesOf(manifest);
  document["metadata"] = {{"recorded", manifest.recordsMetadata},
                          {"databases", manifest.recordedDatabases},
                          {"tables", manifest.recordedTables},
                          {"failed", manifest.notRecorded}};
  document["data_directory"] = manifest.paths.dataDirectory;
  document["paths"] = Json::array();
  for (const DataPath& path : manifest.paths.paths) document["paths"].push_back(toJson(path));
  document["binary_logs"] = {{"enabled", manifest.writesBinaryLogs},
                             {"directory", textOrNull(manifest.binaryLogDirectory)},
                             {"logs", manifest.binaryLogs}};
  return document;
}

Table toTable(const Manifest& manifest) {
  Table table;
  table.add({"job", std::to_string(manifest.job) + ", " + (manifest.level == 2 ? "incremental" : "full")});
  table.add({"instance", manifest.instance.name + ", subclient " + manifest.subclient.name});
  table.add({"server", (manifest.isMariaDb ? "MariaDB " : "MySQL ") + manifest.version + ", in " +
                           (manifest.commandMode ? "command" : "library") + " mode"});
  std::string replication = manifest.replication;
  if (manifest.heldFrom != 0) {
    replication += " from " + timeText(manifest.heldFrom) + " to " + timeText(manifest.heldUntil);
  }
  if (!manifest.primaryLog.empty()) {
    replication += ", at " + manifest.primaryLog + ":" + manifest.primaryPosition + " of its primary";
  }
  table.add({"replication", replication});
  table.add({"databases", counted(manifest.databases)});
  if (!manifest.added.empty()) table.add({"new", joined(manifest.added)});
  if (!manifest.removed.empty()) table.add({"removed", joined(manifest.removed) + " (gone from the server)"});
  if (!manifest.missing.empty()) table.add({"missing", joined(manifest.missing) + " (not on the server)"});
  if (manifest.recordsMetadata) table.add({"metadata", metadataText(manifest)});
  for (const DataPath& path : manifest.paths.paths) {
    table.add({path.kind, path.path + (path.owner ? ", of " + *path.owner + ":" + path.group.value_or("") : "")});
  }
  table.add({"binary logs", manifest.writesBinaryLogs ? counted(manifest.binaryLogs) : "off"});
  if (!manifest.binaryLogDirectory.empty()) table.add({"binary logs in", manifest.binaryLogDirectory});
  return table;
}

std::string writeManifest(Context& context, const Manifest& manifest) {
  const std::string folder = context.resultsDirectory() + "/manifests";
  const CKyError error = CKyDirectory::Create(folder, 0700);
  if (error.isError()) throw Failure("the folder of the manifests is not made", error.text());
  std::string path = folder + "/job-" + std::to_string(manifest.job) + ".json";
  NewFile file("the manifest", path, path + ".new");
  writeWhole(file.file(), toJson(manifest).dump(2, ' ', false, Json::error_handler_t::replace) + "\n", "the manifest");
  file.keep();
  return path;
}

}  // namespace orrery::tool
