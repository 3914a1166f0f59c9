#pragma once

#include <cstdint>
#include <string>

#include "ending.h"
#include "image.h"
#include "options.h"

namespace orrery::standin {

/// The server of a backup, asked through the ordinary client, which reads the password from the option file.
/// Everything throws Failure.
class Server {
 public:
  Server(const Options& options, const Ending& ending) : options_(options), ending_(ending) {}

  std::string dataDirectory() const;
  /// Fills in what an incremental backup follows: the newest one that succeeded.
  void findBase(ImageFacts& facts) const;
  /// Enters a backup that succeeded in mysql.backup_history, which is made when it is missing. Neither travels to
  /// replicas, whose backups have numbers of their own.
  void record(const ImageFacts& facts, const std::string& dataDirectory, std::int64_t started) const;

 private:
  std::string query(const std::string& statements) const;

  const Options& options_;
  const Ending& ending_;
};

/// The data folder that the [mysqld] group of an option file tells.
std::string dataDirectoryIn(const std::string& optionFile, const Ending& ending);

}  // namespace orrery::standin
