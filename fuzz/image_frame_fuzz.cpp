// Header and trailer of an image file, from the input's two ends. What is taken reads back, fits the file and has a
// file of the media folder. Once more with checksums that are right, or nothing behind them would be reached.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "media/image_format.h"
#include "media/image_name.h"

namespace {

using namespace orrery::media;

void require(bool condition) {
  if (!condition) std::abort();
}

void checkName(const std::string& name) {
  const std::string file = fileNameOf(name);
  require(!file.empty() && file.size() <= 255 && file[0] != '.' && file.find('/') == std::string::npos &&
          file.find('\0') == std::string::npos);
}

void check(const std::string& headerBytes, const std::string& trailerBytes, std::uint64_t fileSize) {
  ImageHeader header;
  ImageTrailer trailer;
  std::string problem;
  const bool hasHeader = decodeHeader(headerBytes, header, problem);
  require(hasHeader == problem.empty());
  if (hasHeader) {
    require(encodeHeader(header) == headerBytes);
    checkName(header.name);
  }
  problem.clear();
  const bool hasTrailer = decodeTrailer(trailerBytes, trailer, problem);
  require(hasTrailer == problem.empty());
  if (hasTrailer) require(encodeTrailer(trailer) == trailerBytes);
  if (!hasHeader || !hasTrailer) return;
  if (!fitTogether(header, trailer.headerSum, trailer, fileSize, problem)) return;
  // What a reader asks the file for lies in it.
  require(trailer.bytes <= fileSize && headerSize + trailer.bytes + 8 * trailer.chunks + trailerSize == fileSize);
  require(trailer.chunks * chunkSizeOf(header.blockSize) >= trailer.bytes);
}

std::string withSum(std::string bytes) {
  if (bytes.size() < 8) return bytes;
  std::string sum;
  appendSum(sum, checksum(bytes.data(), bytes.size() - 8));
  return bytes.replace(bytes.size() - 8, 8, sum);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  // Short inputs stand for headers that end in zeros, so that a fuzzer need not find four thousand of them.
  std::string header = bytes.substr(0, headerSize);
  const std::string trailer = bytes.substr(size - std::min(size, trailerSize));
  check(header, trailer, size);
  header.resize(headerSize);
  for (const std::uint64_t fileSize : {std::uint64_t{size}, std::uint64_t{headerSize + trailerSize}, ~std::uint64_t{0}})
    check(withSum(header), withSum(trailer), fileSize);
  return 0;
}
