#pragma once

#include <cstdint>
#include <string>

#include "child_program.h"
#include "faults.h"
#include "media.h"
#include "page_buffer.h"

namespace orrery::standin {

/// What an image is, and what it follows.
struct ImageFacts {
  bool incremental = false;
  std::uint64_t backupId = 0;
  std::uint64_t baseId = 0;   ///< of the backup that an incremental one follows
  std::uint64_t fromLsn = 0;  ///< 0 of a full backup
  std::uint64_t toLsn = 0;    ///< known at the end of the image only
};

/// An image is a row of blocks of one size. Each begins with a header, which tells how many of the bytes behind it are
/// the stream's; the last one, which says that it is the last, is filled up with zeros.
inline constexpr std::size_t blockSize = std::size_t{1} << 20;

/// Writes an image, which is given up unless it is finished. Everything throws Failure.
class ImageWriter {
 public:
  ImageWriter(Media& media, const std::string& name, const ImageFacts& facts, const Faults& faults,
              const Ending& ending);
  ~ImageWriter();
  ImageWriter(const ImageWriter&) = delete;
  ImageWriter& operator=(const ImageWriter&) = delete;

  /// Takes all of a program's output.
  void fill(ChildProgram& source);
  /// Completes the image; `toLsn` goes into the last block.
  void finish(std::uint64_t toLsn);

 private:
  void writeBlock(std::size_t length, bool last);

  Media& media_;
  const Faults& faults_;
  const Ending& ending_;
  ImageFacts facts_;
  const media::PageBuffer block_;
  std::uint64_t index_ = 0;
  std::size_t rest_ = 0;  ///< of the stream, in the block
  bool open_ = true;
};

/// Reads an image. Everything throws Failure, for what is no image of ours, too.
class ImageReader {
 public:
  /// Reads the first block, so that the facts are known.
  ImageReader(Media& media, const std::string& name, const Faults& faults, const Ending& ending);

  /// `toLsn` is there after `drain` only.
  const ImageFacts& facts() const noexcept { return facts_; }
  /// Hands the whole stream to a program and closes the image.
  void drain(ChildProgram& target);

 private:
  void readBlock();

  Media& media_;
  const std::string name_;
  const Faults& faults_;
  const Ending& ending_;
  ImageFacts facts_;
  const media::PageBuffer block_;
  std::uint64_t index_ = 0;
  std::size_t length_ = 0;
  bool last_ = false;
};

}  // namespace orrery::standin
