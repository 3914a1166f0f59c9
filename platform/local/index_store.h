#pragma once

#include <memory>

#include "database.h"

namespace orrery::platform::local {

/// What restores can be chosen by, and the records kept with each backup. Entries stay in the order they were added.
class IndexStore final : public Index {
 public:
  explicit IndexStore(std::shared_ptr<Database> database) : database_(std::move(database)) {}

  Status addPaths(const IndexKey& key, const std::vector<BrowsePath>& paths) override;
  /// Job 0: of every job of the instance.
  Status listPaths(Id instanceId, long long jobId, std::vector<BrowsePath>& paths) override;
  Status addRecord(const IndexKey& key, const std::string& kind, const std::string& name,
                   const std::string& bytes) override;
  Status addRecords(const IndexKey& key, const std::vector<IndexRecord>& records) override;
  Status listRecords(long long jobId, const std::string& kind,
                     std::vector<std::pair<std::string, std::string>>& namesAndBytes) override;
  Status eachRecord(long long jobId, const std::function<bool(const IndexRecord&)>& take) override;
  Status removeRecords(long long jobId, const std::string& kind, const std::string& nameBegin) override;

 private:
  const std::shared_ptr<Database> database_;
};

}  // namespace orrery::platform::local
