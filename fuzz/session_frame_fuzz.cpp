// What a client of the session server sends: however the bytes are portioned, the same frames come out, and a payload
// that is taken for a message reads back as the same bytes. The first byte of the input is the portions' size.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/SbtMessages.h"

#include "src/session/frame.h"

namespace {

using namespace orrery::platform;
using session::FrameReader;

void require(bool condition) {
  if (!condition) std::abort();
}

void checkPayload(const session::Frame& frame) {
  const std::string payload(frame.payload);
  SbtStatusMessage status;
  if (decodeMessage(payload, status)) require(encodeMessage(status) == payload);
  SbtProgressMessage progress;
  std::string name;
  // A null in a name ends it for readers.
  if (decodeMessage(payload, progress, name) && name.find('\0') == std::string::npos)
    require(encodeMessage(progress) == payload);
  int result = 0;
  std::string text;
  session::decodeAnswer(payload, result, text);
  long long job = 0;
  session::decodeHello(payload, job);
}

std::vector<std::pair<std::uint32_t, std::string>> framesOf(const std::string& bytes, std::size_t portion) {
  std::vector<std::pair<std::uint32_t, std::string>> frames;
  FrameReader reader;
  for (std::size_t from = 0; from < bytes.size(); from += portion) {
    reader.append(bytes.data() + from, std::min(portion, bytes.size() - from));
    session::Frame frame;
    FrameReader::Next next;
    while ((next = reader.next(frame)) == FrameReader::Next::frame) {
      checkPayload(frame);
      frames.emplace_back(frame.code, frame.payload);
    }
    if (next == FrameReader::Next::malformed) break;
  }
  return frames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  require(framesOf(bytes, data[0] + std::size_t{1}) == framesOf(bytes, bytes.size() + 1));
  return 0;
}
