#include "archive_store.h"

#include <algorithm>
#include <exception>

#include "archive_chain.h"
#include "image_name.h"
#include "image_reader.h"
#include "media_folder.h"
#include "page_buffer.h"

namespace orrery::platform::local {
namespace {

using media::MediaFailure;

/// Reads an image as a restore would: whoever then empties a data directory can count on it.
void checkImage(const media::MediaFolder& folder, const ArchiveFile& file, const ChainQuery& query) {
  OwnFd opened = folder.open(media::fileNameOf(file.name));
  if (!opened)
    throw MediaFailure("the image " + media::printable(file.name) + " is not in the folder " + folder.path() +
                       " any more; bring it back, or choose a time before it was made");
  media::ImageReader reader(std::move(opened), file.name);
  if (static_cast<int>(reader.header().level) != file.level)
    throw MediaFailure("the image " + media::printable(file.name) + " is of another level than the archive says");
  if (!query.reads) return;
  const media::PageBuffer block = media::pageBuffer(reader.blockSize());
  // Asking costs a look into the store.
  constexpr std::uint64_t betweenQuestions = std::uint64_t{64} << 20;
  std::uint64_t unasked = betweenQuestions;
  while (!reader.atEnd()) {
    if (unasked >= betweenQuestions) {
      if (query.isStopped && query.isStopped()) throw MediaFailure("the check of the images was stopped");
      unasked = 0;
    }
    reader.read(block.get());
    unasked += reader.blockSize();
  }
}

}  // namespace

Status ArchiveStore::addFile(const ArchiveFile& file, Id& id) {
  Id added = 0;
  Status status = database_->writePatiently(patience, "enter the archive file", [&] {
    Statement(*database_, "DELETE FROM archive_files WHERE application_type = ? AND name = ?")
        .with(file.applicationType, file.name)
        .run();
    // An incremental image stands on the newest one, whatever the clock said meanwhile.
    Statement(*database_,
              "INSERT INTO archive_files (backup_set_id, subclient_id, job_id, application_type, level, name, created, "
              "size, base_id) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, CASE WHEN ?5 = 1 THEN 0 ELSE coalesce((SELECT "
              "max(id) FROM archive_files WHERE backup_set_id = ?1 AND application_type = ?4), 0) END)")
        .with(file.backupSetId, file.subclientId, file.jobId, file.applicationType, file.level, file.name, file.created,
              file.size)
        .run();
    added = static_cast<Id>(database_->lastRowId());
  });
  if (status.ok()) id = added;
  return status;
}

template <class... Values>
Status ArchiveStore::filesWhere(const char* condition, std::vector<ArchiveFile>& files, const Values&... values) {
  std::vector<ArchiveFile> found;
  Status status = database_->read("list the archive files", [&] {
    Statement statement(*database_,
                        std::string("SELECT id, backup_set_id, subclient_id, job_id, application_type, level, name, "
                                    "created, size FROM archive_files WHERE ") +
                            condition);
    statement.with(values...);
    while (statement.next())
      found.push_back({static_cast<Id>(statement.integer(0)), static_cast<Id>(statement.integer(1)),
                       static_cast<Id>(statement.integer(2)), statement.integer(3),
                       static_cast<int>(statement.integer(4)), static_cast<int>(statement.integer(5)),
                       statement.text(6), statement.integer(7), statement.integer(8)});
  });
  if (status.ok()) files = std::move(found);
  return status;
}

Status ArchiveStore::listFiles(Id backupSetId, int applicationType, std::int64_t from, std::int64_t to,
                               std::vector<ArchiveFile>& files) {
  return filesWhere("backup_set_id = ? AND application_type = ? AND created BETWEEN ? AND ? ORDER BY created, id",
                    files, backupSetId, applicationType, from, to);
}

Status ArchiveStore::findFiles(int applicationType, const std::string& name, std::vector<ArchiveFile>& files) {
  return filesWhere("application_type = ? AND name = ? ORDER BY id", files, applicationType, name);
}

/// Applying an image to data that it does not stand on fails half way, or loses what lies between.
Status ArchiveStore::checkLinks(const std::vector<ArchiveFile>& chain) {
  return database_->read("look what the images stand on", [&] {
    for (std::size_t i = 1; i < chain.size(); ++i) {
      Statement statement(*database_, "SELECT base_id FROM archive_files WHERE id = ?");
      statement.with(chain[i].id);
      const Id base = statement.next() ? static_cast<Id>(statement.integer(0)) : 0;
      // Images of before this was noted tell nothing.
      if (base == 0 || base == chain[i - 1].id) continue;
      throw Failure(Status::failure(
          "the image " + media::printable(chain[i].name) + " does not stand on " + media::printable(chain[i - 1].name) +
          ", the one before it: what lies between them is missing, or has another time; choose "
          "a time before it was made"));
    }
  });
}

Status ArchiveStore::restoreChain(const ChainQuery& query, std::vector<ArchiveFile>& files) {
  std::vector<ArchiveFile> found;
  // In the order in which they were entered, which is that of their making also when the clock was set back.
  if (Status status = filesWhere("backup_set_id = ? AND application_type = ? AND created BETWEEN ? AND ? ORDER BY id",
                                 found, query.backupSetId, query.applicationType, query.from, query.to);
      !status.ok())
    return status;
  if (found.empty()) return Status::notFound("no image was made between the two times");
  if (!keepChain(found)) return Status::notFound("no full image was made between the two times");
  if (Status status = checkLinks(found); !status.ok()) return status;
  try {
    const media::MediaFolder folder(mediaFolder_);
    for (const ArchiveFile& file : found) checkImage(folder, file, query);
  } catch (const std::exception& error) {
    return Status::failure(error.what());
  }
  files = std::move(found);
  return Status::success();
}

Status ArchiveStore::removeFile(Id id) {
  return database_->write("remove the archive file", [&] {
    Statement(*database_, "DELETE FROM archive_files WHERE id = ?").with(id).run();
    if (database_->changes() == 0) throw Failure(Status::notFound("there is no archive file " + std::to_string(id)));
  });
}

}  // namespace orrery::platform::local
