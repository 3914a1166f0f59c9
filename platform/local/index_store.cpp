#include "index_store.h"

namespace orrery::platform::local {
namespace {

constexpr const char* putRecord =
    "INSERT INTO index_records (job_id, instance_id, subclient_id, level, image, kind, name, bytes) "
    "VALUES (?, ?, ?, ?, ?, ?, ?, CAST(? AS BLOB))";

}  // namespace

Status IndexStore::addPaths(const IndexKey& key, const std::vector<BrowsePath>& paths) {
  return database_->write("add to the index", [&] {
    Statement put(
        *database_,
        "INSERT INTO index_paths (instance_id, job_id, subclient_id, level, image, path, name, size, modified, "
        "kind) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const BrowsePath& path : paths)
      put.with(key.instanceId, key.jobId, key.subclientId, key.level, key.image, path.path, path.name, path.size,
               path.modified, path.kind)
          .run();
  });
}

Status IndexStore::listPaths(Id instanceId, long long jobId, std::vector<BrowsePath>& paths) {
  std::vector<BrowsePath> found;
  Status status = database_->read("read the index", [&] {
    Statement statement(*database_,
                        "SELECT path, name, size, modified, kind FROM index_paths WHERE instance_id = ?1 "
                        "AND (?2 = 0 OR job_id = ?2) ORDER BY id");
    statement.with(instanceId, jobId);
    while (statement.next())
      found.push_back({statement.text(0), statement.text(1), statement.integer(2), statement.integer(3),
                       static_cast<std::uint32_t>(statement.integer(4))});
  });
  if (status.ok()) paths = std::move(found);
  return status;
}

Status IndexStore::addRecord(const IndexKey& key, const std::string& kind, const std::string& name,
                             const std::string& bytes) {
  return database_->write("add a record to the index", [&] {
    Statement(*database_, putRecord)
        .with(key.jobId, key.instanceId, key.subclientId, key.level, key.image, kind, name, bytes)
        .run();
  });
}

Status IndexStore::addRecords(const IndexKey& key, const std::vector<IndexRecord>& records) {
  return database_->write("add records to the index", [&] {
    Statement put(*database_, putRecord);
    for (const IndexRecord& record : records)
      put.with(key.jobId, key.instanceId, key.subclientId, key.level, key.image, record.kind, record.name, record.bytes)
          .run();
  });
}

Status IndexStore::listRecords(long long jobId, const std::string& kind,
                               std::vector<std::pair<std::string, std::string>>& namesAndBytes) {
  std::vector<std::pair<std::string, std::string>> found;
  Status status = database_->read("read records of the index", [&] {
    Statement statement(*database_, "SELECT name, bytes FROM index_records WHERE job_id = ? AND kind = ? ORDER BY id");
    statement.with(jobId, kind);
    while (statement.next()) found.emplace_back(statement.text(0), statement.text(1));
  });
  if (status.ok()) namesAndBytes = std::move(found);
  return status;
}

Status IndexStore::eachRecord(long long jobId, const std::function<bool(const IndexRecord&)>& take) {
  return database_->readOne("read records of the index", [&] {
    Statement statement(*database_, "SELECT kind, name, bytes FROM index_records WHERE job_id = ? ORDER BY id");
    statement.with(jobId);
    while (statement.next() && take({statement.text(0), statement.text(1), statement.text(2)})) {
    }
  });
}

Status IndexStore::removeRecords(long long jobId, const std::string& kind, const std::string& nameBegin) {
  return database_->write("remove records from the index", [&] {
    // Not LIKE: names hold its signs.
    Statement(*database_,
              "DELETE FROM index_records WHERE job_id = ?1 AND kind = ?2 AND substr(name, 1, length(?3)) = ?3")
        .with(jobId, kind, nameBegin)
        .run();
  });
}

}  // namespace orrery::platform::local
