#pragma once

/// The bytes of an image file: a header, the data, the checksums of its chunks, a trailer. See docs/file-formats.md.

#include <cstdint>
#include <string>
#include <string_view>

namespace orrery::media {

inline constexpr std::size_t headerSize = 4096;
inline constexpr std::size_t trailerSize = 64;
inline constexpr std::uint64_t largestBlock = 1ULL << 28;
inline constexpr std::uint64_t usualChunk = 1ULL << 18;

struct ImageHeader {
  std::string name;             ///< as the backup program gave it
  std::uint64_t blockSize = 0;  ///< 1 to largestBlock
  std::int64_t jobId = 0;
  std::uint64_t instanceId = 0;
  std::uint64_t subclientId = 0;
  std::uint32_t level = 0;   ///< 1 full, 2 incremental
  std::int64_t created = 0;  ///< seconds since the epoch

  bool operator==(const ImageHeader&) const = default;
};

struct ImageTrailer {
  std::uint64_t bytes = 0;      ///< of data
  std::uint64_t chunks = 0;     ///< that the data are made of
  std::uint64_t headerSum = 0;  ///< checksum of the header, so that no trailer fits another image
  std::uint64_t tableSum = 0;   ///< checksum of the chunks' checksums

  bool operator==(const ImageTrailer&) const = default;
};

/// XXH3, 64 bits.
std::uint64_t checksum(const void* bytes, std::size_t size) noexcept;

/// How many bytes one checksum covers: as many whole blocks as go into usualChunk, or one larger block.
std::uint64_t chunkSizeOf(std::uint64_t blockSize) noexcept;

/// headerSize bytes. The name has at most 511 bytes.
std::string encodeHeader(const ImageHeader& header);
/// trailerSize bytes.
std::string encodeTrailer(const ImageTrailer& trailer);
/// Checksums of chunks as they stand in the file, 8 bytes each.
void appendSum(std::string& table, std::uint64_t sum);
std::uint64_t sumAt(std::string_view table, std::uint64_t chunk) noexcept;

/// False, with what is wrong in `problem`, for bytes that are no header of this format, whole and undamaged.
bool decodeHeader(std::string_view bytes, ImageHeader& header, std::string& problem);
bool decodeTrailer(std::string_view bytes, ImageTrailer& trailer, std::string& problem);
/// Whether header, trailer and the size of the file belong together; otherwise `problem` says what does not.
bool fitTogether(const ImageHeader& header, std::uint64_t headerSum, const ImageTrailer& trailer,
                 std::uint64_t fileSize, std::string& problem);

}  // namespace orrery::media
