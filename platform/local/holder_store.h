#pragma once

#include <memory>

#include "database.h"

namespace orrery::platform::local {

/// Holders of replicas in the store.
class HolderStore final : public ReplicaHolders {
 public:
  explicit HolderStore(std::shared_ptr<Database> database) : database_(std::move(database)) {}

  Status add(const ReplicaHolder& holder, Id& id) override;
  Status setCommand(Id id, const ProcessMark& command) override;
  Status remove(Id id) override;
  Status list(Id instanceId, std::vector<ReplicaHolder>& holders) override;

 private:
  const std::shared_ptr<Database> database_;
};

}  // namespace orrery::platform::local
