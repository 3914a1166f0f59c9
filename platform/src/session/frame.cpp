#include "frame.h"

#include <algorithm>

#include "little_endian.h"

namespace orrery::platform::session {
namespace {

constexpr std::string_view magic = "ORSS";
constexpr std::uint16_t version = 1;

}  // namespace

std::string encodeFrame(std::uint32_t code, std::string_view payload) {
  std::string bytes;
  bytes.reserve(headerSize + payload.size());
  bytes += magic;
  appendNumber(bytes, version);
  appendNumber(bytes, std::uint16_t{0});
  appendNumber(bytes, code);
  appendNumber(bytes, static_cast<std::uint32_t>(payload.size()));
  bytes += payload;
  return bytes;
}

std::string encodeHello(long long jobId) {
  std::string payload;
  appendNumber(payload, std::int64_t{jobId});
  return encodeFrame(helloCode, payload);
}

bool decodeHello(std::string_view payload, long long& jobId) {
  Bytes bytes(payload);
  const auto number = bytes.number<std::int64_t>();
  if (!bytes.readWhole()) return false;
  jobId = number;
  return true;
}

std::string encodeAnswer(int result, std::string_view text) {
  text = text.substr(0, longestAnswerText);
  std::string payload;
  appendNumber(payload, std::int32_t{result});
  appendNumber(payload, static_cast<std::uint16_t>(text.size()));
  payload += text;
  return encodeFrame(answerCode, payload);
}

bool decodeAnswer(std::string_view payload, int& result, std::string& text) {
  Bytes bytes(payload);
  const auto number = bytes.number<std::int32_t>();
  const std::string_view words = bytes.text(bytes.number<std::uint16_t>());
  if (!bytes.readWhole()) return false;
  result = number;
  text = words;
  return true;
}

void FrameReader::append(const char* bytes, std::size_t count) {
  bytes_.erase(0, taken_);
  taken_ = 0;
  bytes_.append(bytes, count);
}

FrameReader::Next FrameReader::next(Frame& frame) {
  const std::string_view rest = std::string_view(bytes_).substr(taken_);
  const std::string_view start = rest.substr(0, magic.size());
  if (start != magic.substr(0, start.size())) return Next::malformed;
  if (rest.size() < headerSize) return Next::incomplete;
  Bytes header(rest.substr(magic.size(), headerSize - magic.size()));
  const bool known = header.number<std::uint16_t>() == version && header.number<std::uint16_t>() == 0;
  const auto code = header.number<std::uint32_t>();
  const std::size_t length = header.number<std::uint32_t>();
  if (!known || length > largestPayload) return Next::malformed;
  if (rest.size() - headerSize < length) return Next::incomplete;
  frame = {code, rest.substr(headerSize, length)};
  taken_ += headerSize + length;
  return Next::frame;
}

}  // namespace orrery::platform::session
