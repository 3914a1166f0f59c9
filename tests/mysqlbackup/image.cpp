#include "image.h"

#include <array>
#include <cstring>
#include <string_view>

namespace orrery::standin {
namespace {

constexpr std::string_view magic = "orrysmb1";
constexpr std::uint64_t flagIncremental = 1;
constexpr std::uint64_t flagLast = 2;

/// The numbers of a block's header, behind the magic, each of eight bytes, lowest first.
enum Field { index, length, flags, fromLsn, toLsn, backupId, baseId, fieldCount };
using Fields = std::array<std::uint64_t, fieldCount>;

constexpr std::size_t headerSize = magic.size() + fieldCount * sizeof(std::uint64_t);
constexpr std::size_t roomInBlock = blockSize - headerSize;

void encode(const Fields& fields, char* to) {
  std::memcpy(to, magic.data(), magic.size());
  to += magic.size();
  for (const std::uint64_t number : fields)
    for (int shift = 0; shift < 64; shift += 8) *to++ = static_cast<char>(number >> shift);
}

/// False for what is no header.
bool decode(const char* from, Fields& fields) {
  if (std::memcmp(from, magic.data(), magic.size()) != 0) return false;
  from += magic.size();
  for (std::uint64_t& number : fields) {
    number = 0;
    for (int shift = 0; shift < 64; shift += 8) number |= std::uint64_t{static_cast<unsigned char>(*from++)} << shift;
  }
  return fields[flags] <= (flagIncremental | flagLast) && fields[length] <= roomInBlock;
}

void tellAmount(const char* what, std::uint64_t blocks) {
  constexpr std::uint64_t every = 256;
  if (blocks % every == 0 && blocks > 0) tell(std::string(what) + " " + std::to_string(blocks) + " MiB");
}

}  // namespace

ImageWriter::ImageWriter(Media& media, const std::string& name, const ImageFacts& facts, const Faults& faults,
                         const Ending& ending)
    : media_(media), faults_(faults), ending_(ending), facts_(facts), block_(media::pageBuffer(blockSize)) {
  media_.create(name, blockSize);
}

ImageWriter::~ImageWriter() {
  if (open_) media_.giveUp();
}

void ImageWriter::fill(ChildProgram& source) {
  // One that fills its block may be the last of the stream; that is the next one then, which is empty.
  while ((rest_ = source.read(block_.get() + headerSize, roomInBlock)) == roomInBlock) writeBlock(rest_, false);
}

void ImageWriter::finish(std::uint64_t toLsn) {
  facts_.toLsn = toLsn;
  std::memset(block_.get() + headerSize + rest_, 0, roomInBlock - rest_);
  writeBlock(rest_, true);
  ending_.check();
  faults_.at("close");
  media_.close();
  open_ = false;
}

void ImageWriter::writeBlock(std::size_t size, bool last) {
  faults_.beforeBlock(index_, ending_);
  faults_.beforeMediaWrite(index_);
  const std::uint64_t marks = (facts_.incremental ? flagIncremental : 0) | (last ? flagLast : 0);
  encode({index_, size, marks, facts_.fromLsn, facts_.toLsn, facts_.backupId, facts_.baseId}, block_.get());
  media_.write(block_.get());
  tellAmount("written", ++index_);
}

ImageReader::ImageReader(Media& media, const std::string& name, const Faults& faults, const Ending& ending)
    : media_(media), name_(name), faults_(faults), ending_(ending), block_(media::pageBuffer(blockSize)) {
  media_.open(name, blockSize);
  readBlock();
}

void ImageReader::readBlock() {
  faults_.beforeBlock(index_, ending_);
  if (!media_.read(block_.get())) throw Failure("the image " + name_ + " ends before its last block");
  Fields fields{};
  if (!decode(block_.get(), fields) || fields[index] != index_)
    throw Failure("block " + std::to_string(index_) + " of the image " + name_ +
                  " is none of a backup of this program");
  const ImageFacts facts{(fields[flags] & flagIncremental) != 0, fields[backupId], fields[baseId], fields[fromLsn],
                         fields[toLsn]};
  if (index_ > 0 && (facts.backupId != facts_.backupId || facts.incremental != facts_.incremental))
    throw Failure("the image " + name_ + " is mixed from two backups");
  facts_ = facts;
  length_ = fields[length];
  last_ = (fields[flags] & flagLast) != 0;
  tellAmount("read", ++index_);
}

void ImageReader::drain(ChildProgram& target) {
  target.write(block_.get() + headerSize, length_);
  while (!last_) {
    readBlock();
    target.write(block_.get() + headerSize, length_);
  }
  if (media_.read(block_.get())) throw Failure("the image " + name_ + " goes on behind its last block");
  media_.close();
}

}  // namespace orrery::standin
