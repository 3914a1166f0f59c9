#pragma once

#include "image_format.h"
#include "media_folder.h"
#include "page_buffer.h"

namespace orrery::media {

/// Writes one image, which others see when it is finished and not before. Everything throws MediaFailure; after a
/// failure the image can only be given up, which the destructor does.
class ImageWriter {
 public:
  /// The folder must live longer than the writer. `header` must hold what encodeHeader asks for.
  ImageWriter(const MediaFolder& folder, std::string fileName, const ImageHeader& header);

  /// Takes one block of the header's block size.
  void write(const void* block);
  /// Completes the file, puts it on the disk and gives it its name. It stays locked against removal until the writer
  /// goes, so that what belongs to the image can be put beside it.
  void finish();
  /// Takes back what finish did, for an image that cannot be kept after all.
  void withdraw() noexcept { folder_.withdraw(file_, fileName_); }
  std::uint64_t bytes() const noexcept { return trailer_.bytes; }

 private:
  void writeChunk(const char* chunk, std::size_t size);
  void put(const void* bytes, std::size_t size);

  const MediaFolder& folder_;
  const std::string fileName_;
  TemporaryFile file_;
  const std::size_t blockSize_;
  const std::size_t chunkSize_;
  PageBuffer staged_;  ///< blocks of the chunk to come; none when a block is a chunk
  std::size_t stagedBytes_ = 0;
  std::string table_;
  ImageTrailer trailer_;
  bool broken_ = false;
  std::uint64_t written_ = 0;
  std::uint64_t startedBack_ = 0;
};

}  // namespace orrery::media
