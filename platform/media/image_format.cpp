#include "image_format.h"

#include <cstring>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "sbt_interface.h"

namespace orrery::media {
namespace {

constexpr std::string_view headerMagic("ORRIMAGE", 8);
constexpr std::string_view trailerMagic("ORRTRAIL", 8);
constexpr std::uint32_t version = 1;
constexpr std::size_t nameOffset = 64;

template <class Number>
void put(std::string& bytes, Number number) {
  for (std::size_t i = 0; i < sizeof number; ++i)
    bytes += static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i));
}

template <class Number>
Number get(std::string_view bytes, std::size_t offset) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i)
    number |= std::uint64_t{static_cast<unsigned char>(bytes[offset + i])} << (8 * i);
  return static_cast<Number>(number);
}

bool endsWithItsSum(std::string_view bytes) {
  return get<std::uint64_t>(bytes, bytes.size() - 8) == checksum(bytes.data(), bytes.size() - 8);
}

bool isComplaint(std::string& problem, const char* text) {
  problem = text;
  return false;
}

}  // namespace

std::uint64_t checksum(const void* bytes, std::size_t size) noexcept {
  return XXH3_64bits(bytes, size);
}

std::uint64_t chunkSizeOf(std::uint64_t blockSize) noexcept {
  return blockSize >= usualChunk ? blockSize : usualChunk / blockSize * blockSize;
}

std::string encodeHeader(const ImageHeader& header) {
  std::string bytes(headerMagic);
  bytes.reserve(headerSize);
  put(bytes, version);
  put(bytes, static_cast<std::uint32_t>(headerSize));
  put(bytes, header.blockSize);
  put(bytes, header.jobId);
  put(bytes, header.instanceId);
  put(bytes, header.subclientId);
  put(bytes, header.created);
  put(bytes, header.level);
  put(bytes, static_cast<std::uint32_t>(header.name.size()));
  bytes.resize(nameOffset);
  bytes += header.name;
  bytes.resize(headerSize - 8);
  put(bytes, checksum(bytes.data(), bytes.size()));
  return bytes;
}

std::string encodeTrailer(const ImageTrailer& trailer) {
  std::string bytes(trailerMagic);
  put(bytes, trailer.bytes);
  put(bytes, trailer.chunks);
  put(bytes, trailer.headerSum);
  put(bytes, trailer.tableSum);
  bytes.resize(trailerSize - 8);
  put(bytes, checksum(bytes.data(), bytes.size()));
  return bytes;
}

void appendSum(std::string& table, std::uint64_t sum) {
  put(table, sum);
}

std::uint64_t sumAt(std::string_view table, std::uint64_t chunk) noexcept {
  return get<std::uint64_t>(table, chunk * 8);
}

bool decodeHeader(std::string_view bytes, ImageHeader& header, std::string& problem) {
  if (bytes.size() != headerSize || !bytes.starts_with(headerMagic)) return isComplaint(problem, "it is no image");
  if (get<std::uint32_t>(bytes, 8) > version && endsWithItsSum(bytes))
    return isComplaint(problem, "a newer version of this library wrote it");
  if (!endsWithItsSum(bytes)) return isComplaint(problem, "its header is damaged");
  ImageHeader read;
  read.blockSize = get<std::uint64_t>(bytes, 16);
  read.jobId = get<std::int64_t>(bytes, 24);
  read.instanceId = get<std::uint64_t>(bytes, 32);
  read.subclientId = get<std::uint64_t>(bytes, 40);
  read.created = get<std::int64_t>(bytes, 48);
  read.level = get<std::uint32_t>(bytes, 56);
  const std::uint32_t nameSize = get<std::uint32_t>(bytes, 60);
  // Who can compute a checksum can write anything here; nothing below may be led astray by it.
  if (get<std::uint32_t>(bytes, 8) != version || get<std::uint32_t>(bytes, 12) != headerSize || read.blockSize == 0 ||
      read.blockSize > largestBlock || nameSize == 0 || nameSize >= largestName)
    return isComplaint(problem, "its header makes no sense");
  read.name = bytes.substr(nameOffset, nameSize);
  if (encodeHeader(read) != bytes) return isComplaint(problem, "its header makes no sense");
  header = std::move(read);
  return true;
}

bool decodeTrailer(std::string_view bytes, ImageTrailer& trailer, std::string& problem) {
  if (bytes.size() != trailerSize || !bytes.starts_with(trailerMagic))
    return isComplaint(problem, "its end is missing: it was cut off, or is damaged there");
  if (!endsWithItsSum(bytes)) return isComplaint(problem, "its trailer is damaged");
  const ImageTrailer read{get<std::uint64_t>(bytes, 8), get<std::uint64_t>(bytes, 16), get<std::uint64_t>(bytes, 24),
                          get<std::uint64_t>(bytes, 32)};
  if (encodeTrailer(read) != bytes) return isComplaint(problem, "its trailer makes no sense");
  trailer = read;
  return true;
}

bool fitTogether(const ImageHeader& header, std::uint64_t headerSum, const ImageTrailer& trailer,
                 std::uint64_t fileSize, std::string& problem) {
  if (trailer.headerSum != headerSum) return isComplaint(problem, "its header and its trailer are of different images");
  const std::uint64_t chunkSize = chunkSizeOf(header.blockSize);
  // The bounds first: sums of numbers from a file could overflow.
  const bool bounded = trailer.bytes <= fileSize && trailer.chunks <= fileSize / 8;
  if (!bounded || headerSize + trailer.bytes + 8 * trailer.chunks + trailerSize != fileSize)
    return isComplaint(problem, "the file does not have the size that its trailer tells");
  if (trailer.bytes % header.blockSize != 0 ||
      trailer.chunks != trailer.bytes / chunkSize + (trailer.bytes % chunkSize != 0 ? 1 : 0))
    return isComplaint(problem, "its trailer makes no sense");
  return true;
}

}  // namespace orrery::media
