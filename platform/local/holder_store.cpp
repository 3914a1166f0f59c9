#include "holder_store.h"

namespace orrery::platform::local {
namespace {

void requireChange(const Database& database, Id id) {
  if (database.changes() == 0) throw Failure(Status::notFound("there is no holder " + std::to_string(id)));
}

}  // namespace

Status HolderStore::add(const ReplicaHolder& holder, Id& id) {
  Id added = 0;
  Status status = database_->write("enter the holder of a replica", [&] {
    Statement(*database_,
              "INSERT INTO replica_holders (instance_id, process_id, process_start, command_id, command_start, "
              "command_line, since) VALUES (?, ?, ?, ?, ?, ?, ?)")
        .with(holder.instanceId, holder.process.id, holder.process.start, holder.command.id, holder.command.start,
              holder.commandLine, holder.since)
        .run();
    added = static_cast<Id>(database_->lastRowId());
  });
  if (status.ok()) id = added;
  return status;
}

Status HolderStore::setCommand(Id id, const ProcessMark& command) {
  return database_->write("enter the command of a replica's holder", [&] {
    Statement(*database_, "UPDATE replica_holders SET command_id = ?, command_start = ? WHERE id = ?")
        .with(command.id, command.start, id)
        .run();
    requireChange(*database_, id);
  });
}

Status HolderStore::remove(Id id) {
  return database_->write("remove the holder of a replica", [&] {
    Statement(*database_, "DELETE FROM replica_holders WHERE id = ?").with(id).run();
    requireChange(*database_, id);
  });
}

Status HolderStore::list(Id instanceId, std::vector<ReplicaHolder>& holders) {
  std::vector<ReplicaHolder> found;
  Status status = database_->read("list the holders of a replica", [&] {
    Statement statement(*database_,
                        "SELECT id, process_id, process_start, command_id, command_start, command_line, since FROM "
                        "replica_holders WHERE instance_id = ? ORDER BY id");
    statement.with(instanceId);
    while (statement.next())
      found.push_back({static_cast<Id>(statement.integer(0)),
                       instanceId,
                       {statement.integer(1), statement.text(2)},
                       {statement.integer(3), statement.text(4)},
                       statement.text(5),
                       statement.integer(6)});
  });
  if (status.ok()) holders = std::move(found);
  return status;
}

}  // namespace orrery::platform::local
