#include "memory.h"

namespace orrery::platform::testing {
namespace {

class MemoryHolders final : public ReplicaHolders {
 public:
  explicit MemoryHolders(SharedMemory memory) : memory_(std::move(memory)) {}

  Status add(const ReplicaHolder& holder, Id& id) override {
    return attempt(*memory_, "ReplicaHolders::add", {std::to_string(holder.instanceId)}, [&] {
      id = ++memory_->lastId;
      memory_->holders[id] = holder;
      memory_->holders[id].id = id;
      return Status::success();
    });
  }

  Status setCommand(Id id, const ProcessMark& command) override {
    return attempt(*memory_, "ReplicaHolders::setCommand", {std::to_string(id)}, [&] {
      const auto found = memory_->holders.find(id);
      if (found == memory_->holders.end()) return unknown(id);
      found->second.command = command;
      return Status::success();
    });
  }

  Status remove(Id id) override {
    return attempt(*memory_, "ReplicaHolders::remove", {std::to_string(id)},
                   [&] { return memory_->holders.erase(id) == 0 ? unknown(id) : Status::success(); });
  }

  Status list(Id instanceId, std::vector<ReplicaHolder>& holders) override {
    return attempt(*memory_, "ReplicaHolders::list", {std::to_string(instanceId)}, [&] {
      holders.clear();
      for (const auto& [id, holder] : memory_->holders)
        if (holder.instanceId == instanceId) holders.push_back(holder);
      return Status::success();
    });
  }

 private:
  static Status unknown(Id id) { return Status::notFound("there is no holder " + std::to_string(id)); }

  const SharedMemory memory_;
};

}  // namespace

std::shared_ptr<ReplicaHolders> makeHolders(SharedMemory memory) {
  return std::make_shared<MemoryHolders>(std::move(memory));
}

}  // namespace orrery::platform::testing
