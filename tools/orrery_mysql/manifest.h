#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "context.h"
#include "data_paths.h"

namespace orrery::tool {

/// What a backup found that a file backup has to protect. docs/file-formats.md describes its JSON.
struct Manifest {
  long long job = 0;
  int level = 1;
  std::int64_t started = 0;  ///< microseconds since the epoch
  std::int64_t finished = 0;
  platform::InstanceRecord instance;
  platform::SubclientRecord subclient;
  bool commandMode = false;
  std::string version;
  bool isMariaDb = false;

  std::string replication;  ///< its state while the rest was read
  std::int64_t heldFrom = 0;
  std::int64_t heldUntil = 0;
  bool runsAgain = true;   ///< replication went on after it was let go
  std::string primaryLog;  ///< up to where the replica had carried out what its primary did; empty for no replica
  std::string primaryPosition;

  std::list<std::string> databases;  ///< to protect, bare names
  std::list<std::string> added;
  std::list<std::string> removed;
  std::list<std::string> missing;

  bool recordsMetadata = false;  ///< creation statements went into the index
  std::size_t recordedDatabases = 0;
  std::size_t recordedTables = 0;
  std::list<std::string> notRecorded;  ///< databases

  DataPaths paths;

  bool writesBinaryLogs = false;
  std::string binaryLogDirectory;
  std::list<std::string> binaryLogs;  ///< complete ones, oldest first
};

Json toJson(const Manifest& manifest);
Table toTable(const Manifest& manifest);

/// Writes the document below the results' folder under its final name, whole or not at all, and returns the path.
/// Throws Failure.
std::string writeManifest(Context& context, const Manifest& manifest);

}  // namespace orrery::tool
