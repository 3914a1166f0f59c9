#pragma once

#include "image_format.h"
#include "media_folder.h"
#include "page_buffer.h"

namespace orrery::media {

/// Header and trailer of a whole image, and the checksums of its chunks.
struct ImageContents {
  ImageHeader header;
  ImageTrailer trailer;
  std::string table;
};
/// Throws MediaFailure unless the file holds the image of this name, complete and undamaged but for its data, which are
/// not looked at.
ImageContents readContents(int fd, const std::string& name);

/// The name of the image that the file holds, whole or not. Throws MediaFailure.
std::string nameIn(int fd);

/// Reads one image. A block is handed out only when the checksum that covers it is right.
class ImageReader {
 public:
  /// Blocks may have another size than they were written with; the image must be a whole number of them.
  /// 0: those that it was written with.
  ImageReader(OwnFd file, const std::string& name, std::size_t blockSize = 0);

  std::size_t blockSize() const noexcept { return blockSize_; }
  bool atEnd() const noexcept { return handedOut_ == contents_.trailer.bytes; }
  const ImageHeader& header() const noexcept { return contents_.header; }
  /// False at the end of the image, with nothing read. Throws MediaFailure, after which the content of `block` means
  /// nothing and the image cannot be read on.
  bool read(void* block);

 private:
  void readChunk(char* to);

  const OwnFd file_;
  const std::string what_;  ///< the image, for messages
  const ImageContents contents_;
  const std::size_t blockSize_;
  const std::size_t chunkSize_;
  PageBuffer staged_;  ///< the current chunk; none when a block is a chunk
  std::size_t stagedBytes_ = 0;
  std::size_t taken_ = 0;  ///< of what is staged
  std::uint64_t nextChunk_ = 0;
  std::uint64_t handedOut_ = 0;
  bool broken_ = false;
};

}  // namespace orrery::media
