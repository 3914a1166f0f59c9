#include <algorithm>

#include "local/archive_chain.h"
#include "memory.h"

namespace orrery::platform::testing {
namespace {

class MemoryIndex final : public Index {
 public:
  explicit MemoryIndex(SharedMemory memory) : memory_(std::move(memory)) {}

  Status addPaths(const IndexKey& key, const std::vector<BrowsePath>& paths) override {
    return attempt(*memory_, "Index::addPaths", {std::to_string(key.jobId)}, [&] {
      for (const BrowsePath& path : paths) memory_->paths.emplace_back(key, path);
      return Status::success();
    });
  }

  Status listPaths(Id instanceId, long long jobId, std::vector<BrowsePath>& paths) override {
    return attempt(*memory_, "Index::listPaths", {std::to_string(instanceId), std::to_string(jobId)}, [&] {
      paths.clear();
      for (const auto& [key, path] : memory_->paths)
        if (key.instanceId == instanceId && (jobId == 0 || key.jobId == jobId)) paths.push_back(path);
      return Status::success();
    });
  }

  Status addRecord(const IndexKey& key, const std::string& kind, const std::string& name,
                   const std::string& bytes) override {
    return attempt(*memory_, "Index::addRecord", {kind, name, std::to_string(key.jobId)}, [&] {
      memory_->records.push_back({key, kind, name, bytes});
      return Status::success();
    });
  }

  Status addRecords(const IndexKey& key, const std::vector<IndexRecord>& records) override {
    return attempt(*memory_, "Index::addRecords", {std::to_string(key.jobId)}, [&] {
      for (const IndexRecord& record : records)
        memory_->records.push_back({key, record.kind, record.name, record.bytes});
      return Status::success();
    });
  }

  Status listRecords(long long jobId, const std::string& kind,
                     std::vector<std::pair<std::string, std::string>>& namesAndBytes) override {
    return attempt(*memory_, "Index::listRecords", {kind, std::to_string(jobId)}, [&] {
      namesAndBytes.clear();
      for (const Memory::Record& record : memory_->records)
        if (record.key.jobId == jobId && record.kind == kind) namesAndBytes.emplace_back(record.name, record.bytes);
      return Status::success();
    });
  }

  Status eachRecord(long long jobId, const std::function<bool(const IndexRecord&)>& take) override {
    return attempt(*memory_, "Index::eachRecord", {std::to_string(jobId)}, [&] {
      for (const Memory::Record& record : memory_->records)
        if (record.key.jobId == jobId && !take({record.kind, record.name, record.bytes})) break;
      return Status::success();
    });
  }

  Status removeRecords(long long jobId, const std::string& kind, const std::string& nameBegin) override {
    return attempt(*memory_, "Index::removeRecords", {kind, nameBegin, std::to_string(jobId)}, [&] {
      std::erase_if(memory_->records, [&](const Memory::Record& record) {
        return record.key.jobId == jobId && record.kind == kind && record.name.starts_with(nameBegin);
      });
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

class MemoryArchive final : public ArchiveManager {
 public:
  explicit MemoryArchive(SharedMemory memory) : memory_(std::move(memory)) {}

  Status addFile(const ArchiveFile& file, Id& id) override {
    return attempt(*memory_, "ArchiveManager::addFile", {file.name}, [&] {
      for (auto known = memory_->archive.begin(); known != memory_->archive.end();) {
        const bool isReplaced =
            known->second.applicationType == file.applicationType && known->second.name == file.name;
        known = isReplaced ? memory_->archive.erase(known) : std::next(known);
      }
      id = ++memory_->lastId;
      memory_->archive[id] = file;
      memory_->archive[id].id = id;
      return Status::success();
    });
  }

  Status listFiles(Id backupSetId, int applicationType, std::int64_t from, std::int64_t to,
                   std::vector<ArchiveFile>& files) override {
    return attempt(*memory_, "ArchiveManager::listFiles", {std::to_string(backupSetId)}, [&] {
      files.clear();
      for (const auto& [id, file] : memory_->archive)
        if (file.backupSetId == backupSetId && file.applicationType == applicationType && from <= file.created &&
            file.created <= to)
          files.push_back(file);
      std::stable_sort(files.begin(), files.end(),
                       [](const ArchiveFile& a, const ArchiveFile& b) { return a.created < b.created; });
      return Status::success();
    });
  }

  Status findFiles(int applicationType, const std::string& name, std::vector<ArchiveFile>& files) override {
    return attempt(*memory_, "ArchiveManager::findFiles", {name}, [&] {
      files.clear();
      for (const auto& [id, file] : memory_->archive)
        if (file.applicationType == applicationType && file.name == name) files.push_back(file);
      return Status::success();
    });
  }

  /// Nothing here has bytes that could be read: a test that wants a damaged image lets the call fail.
  Status restoreChain(const ChainQuery& query, std::vector<ArchiveFile>& files) override {
    std::vector<ArchiveFile> found;
    Status status = listFiles(query.backupSetId, query.applicationType, query.from, query.to, found);
    if (!status.ok()) return status;
    std::sort(found.begin(), found.end(), [](const auto& one, const auto& other) { return one.id < other.id; });
    return attempt(*memory_, "ArchiveManager::restoreChain", {std::to_string(query.backupSetId)}, [&] {
      if (!local::keepChain(found)) return Status::notFound("there is no full image");
      files = std::move(found);
      return Status::success();
    });
  }

  Status removeFile(Id id) override {
    return attempt(*memory_, "ArchiveManager::removeFile", {std::to_string(id)}, [&] {
      if (memory_->archive.erase(id) == 0) return Status::notFound("there is no archive file " + std::to_string(id));
      return Status::success();
    });
  }

 private:
  const SharedMemory memory_;
};

}  // namespace

std::shared_ptr<Index> makeIndex(SharedMemory memory) {
  return std::make_shared<MemoryIndex>(std::move(memory));
}

std::shared_ptr<ArchiveManager> makeArchive(SharedMemory memory) {
  return std::make_shared<MemoryArchive>(std::move(memory));
}

}  // namespace orrery::platform::testing
