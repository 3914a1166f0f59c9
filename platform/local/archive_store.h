#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "database.h"

namespace orrery::platform::local {

/// The files on the media. A name is one file: what was entered under it before goes when it is entered again. Entering
/// one waits for minutes for a store that is in use, because the file took hours to write; nothing else waits longer
/// than the store does.
class ArchiveStore final : public ArchiveManager {
 public:
  /// `mediaFolder`: where the images lie.
  ArchiveStore(std::shared_ptr<Database> database, std::string mediaFolder)
      : database_(std::move(database)), mediaFolder_(std::move(mediaFolder)) {}

  static constexpr std::chrono::minutes patience{5};

  Status addFile(const ArchiveFile& file, Id& id) override;
  Status listFiles(Id backupSetId, int applicationType, std::int64_t from, std::int64_t to,
                   std::vector<ArchiveFile>& files) override;
  Status findFiles(int applicationType, const std::string& name, std::vector<ArchiveFile>& files) override;
  Status removeFile(Id id) override;
  Status restoreChain(const ChainQuery& query, std::vector<ArchiveFile>& files) override;

 private:
  Status checkLinks(const std::vector<ArchiveFile>& chain);
  template <class... Values>
  Status filesWhere(const char* condition, std::vector<ArchiveFile>& files, const Values&... values);

  const std::shared_ptr<Database> database_;
  const std::string mediaFolder_;
};

}  // namespace orrery::platform::local
