#include "image_writer.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "file_size_signal.h"

namespace orrery::media {
namespace {

/// How much is left to the system before it is asked to start writing. Without that the disk idles at first, and the
/// sync at the end waits for everything.
constexpr std::uint64_t writeBackEvery = 32ULL << 20;

ssize_t writeOnce(int fd, const char* from, std::size_t size) {
  const FileSizeSignal blocked;
  return ::write(fd, from, size);
}

}  // namespace

ImageWriter::ImageWriter(const MediaFolder& folder, std::string fileName, const ImageHeader& header)
    : folder_(folder),
      fileName_(std::move(fileName)),
      file_(folder.create()),
      blockSize_(header.blockSize),
      chunkSize_(chunkSizeOf(header.blockSize)) {
  if (chunkSize_ > blockSize_) staged_ = pageBuffer(chunkSize_);
  const std::string bytes = encodeHeader(header);
  trailer_.headerSum = checksum(bytes.data(), bytes.size());
  put(bytes.data(), bytes.size());
}

void ImageWriter::write(const void* block) {
  if (broken_) throw MediaFailure("an earlier block of this image could not be written; give the image up");
  if (!staged_) {
    writeChunk(static_cast<const char*>(block), blockSize_);
  } else {
    std::memcpy(staged_.get() + stagedBytes_, block, blockSize_);
    stagedBytes_ += blockSize_;
    if (stagedBytes_ == chunkSize_) writeChunk(staged_.get(), std::exchange(stagedBytes_, 0));
  }
  trailer_.bytes += blockSize_;
}

void ImageWriter::finish() {
  if (broken_) throw MediaFailure("the image was not written whole and is given up");
  if (stagedBytes_ > 0) writeChunk(staged_.get(), std::exchange(stagedBytes_, 0));
  trailer_.tableSum = checksum(table_.data(), table_.size());
  table_ += encodeTrailer(trailer_);
  put(table_.data(), table_.size());
  folder_.publish(file_, fileName_);
}

void ImageWriter::writeChunk(const char* chunk, std::size_t size) {
  appendSum(table_, checksum(chunk, size));
  ++trailer_.chunks;
  put(chunk, size);
  if (written_ - startedBack_ < writeBackEvery) return;
  // Advice: what comes of it, the sync at the end tells.
  ::sync_file_range(file_.fd(), static_cast<off_t>(startedBack_), static_cast<off_t>(written_ - startedBack_),
                    SYNC_FILE_RANGE_WRITE);
  startedBack_ = written_;
}

void ImageWriter::put(const void* bytes, std::size_t size) {
  const char* from = static_cast<const char*>(bytes);
  broken_ = true;
  while (size > 0) {
    const ssize_t done = writeOnce(file_.fd(), from, size);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) throw systemFailure("write the image " + folder_.path() + "/" + fileName_, errno);
    from += done;
    size -= static_cast<std::size_t>(done);
    written_ += static_cast<std::uint64_t>(done);
  }
  broken_ = false;
}

}  // namespace orrery::media
