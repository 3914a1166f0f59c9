#include "image_reader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "image_name.h"

namespace orrery::media {
namespace {

MediaFailure damaged(const std::string& what, const std::string& problem) {
  return MediaFailure("the image " + what + " is refused: " + problem + "; use another backup");
}

/// Up to `size` bytes, fewer only at the end of the file.
std::size_t readAt(int fd, char* to, std::size_t size, std::uint64_t offset, const std::string& what) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = ::pread(fd, to + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw systemFailure("read the image " + what, errno);
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

std::string textAt(int fd, std::uint64_t offset, std::uint64_t size, const std::string& what) {
  std::string text(size, '\0');
  text.resize(readAt(fd, text.data(), size, offset, what));
  return text;
}

}  // namespace

ImageContents readContents(int fd, const std::string& name) {
  const std::string what = printable(name);
  ImageContents contents;
  std::string problem;
  const std::string header = textAt(fd, 0, headerSize, what);
  if (!decodeHeader(header, contents.header, problem)) throw damaged(what, problem);
  if (contents.header.name != name) throw damaged(what, "the file holds another one");
  struct stat status {};
  if (::fstat(fd, &status) != 0) throw systemFailure("look at the image " + what, errno);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size < headerSize + trailerSize) throw damaged(what, "it was cut off");
  if (!decodeTrailer(textAt(fd, size - trailerSize, trailerSize, what), contents.trailer, problem) ||
      !fitTogether(contents.header, checksum(header.data(), header.size()), contents.trailer, size, problem))
    throw damaged(what, problem);
  contents.table = textAt(fd, headerSize + contents.trailer.bytes, 8 * contents.trailer.chunks, what);
  if (contents.table.size() != 8 * contents.trailer.chunks ||
      checksum(contents.table.data(), contents.table.size()) != contents.trailer.tableSum)
    throw damaged(what, "its list of checksums is damaged");
  return contents;
}

std::string nameIn(int fd) {
  ImageHeader header;
  std::string problem;
  if (!decodeHeader(textAt(fd, 0, headerSize, "that was left"), header, problem))
    throw damaged("that was left", problem);
  return header.name;
}

ImageReader::ImageReader(OwnFd file, const std::string& name, std::size_t blockSize)
    : file_(std::move(file)),
      what_(printable(name)),
      contents_(readContents(file_.get(), name)),
      blockSize_(blockSize != 0 ? blockSize : contents_.header.blockSize),
      chunkSize_(chunkSizeOf(contents_.header.blockSize)) {
  if (contents_.trailer.bytes % blockSize_ != 0)
    throw MediaFailure("the image " + what_ + " has " + std::to_string(contents_.trailer.bytes) +
                       " bytes, which is no whole number of blocks of " + std::to_string(blockSize_) +
                       "; read it in the blocks of " + std::to_string(contents_.header.blockSize) +
                       " bytes that it was written in");
  if (chunkSize_ != blockSize_) staged_ = pageBuffer(chunkSize_);
  ::posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

bool ImageReader::read(void* block) {
  if (broken_) throw MediaFailure("an earlier block of the image " + what_ + " could not be read; use another backup");
  if (atEnd()) return false;
  broken_ = true;
  char* to = static_cast<char*>(block);
  if (!staged_) {
    readChunk(to);
  } else {
    for (std::size_t missing = blockSize_; missing > 0;) {
      if (taken_ == stagedBytes_) {
        stagedBytes_ = taken_ = 0;
        readChunk(staged_.get());
        stagedBytes_ = std::min<std::uint64_t>(chunkSize_, contents_.trailer.bytes - (nextChunk_ - 1) * chunkSize_);
      }
      const std::size_t part = std::min(missing, stagedBytes_ - taken_);
      std::memcpy(to, staged_.get() + taken_, part);
      to += part;
      taken_ += part;
      missing -= part;
    }
  }
  broken_ = false;
  handedOut_ += blockSize_;
  return true;
}

void ImageReader::readChunk(char* to) {
  const std::uint64_t offset = nextChunk_ * chunkSize_;
  const std::size_t size = std::min<std::uint64_t>(chunkSize_, contents_.trailer.bytes - offset);
  if (readAt(file_.get(), to, size, headerSize + offset, what_) != size ||
      checksum(to, size) != sumAt(contents_.table, nextChunk_))
    throw damaged(what_, "its data are damaged between the bytes " + std::to_string(offset) + " and " +
                             std::to_string(offset + size));
  ++nextChunk_;
}

}  // namespace orrery::media
