#pragma once

/// What goes over the socket of a session server, in both directions: frames.
///
/// A frame is a header of 16 bytes and a payload; numbers are little-endian.
///   0  "ORSS"     4  version, 16 bits      6  0, 16 bits      8  code, 32 bits      12  length of the payload, 32 bits
/// A client's first frame is a hello (its job's number, 64 bits, signed); every frame of a client is answered by one
/// (a result, 32 bits, 0 for success; the length of a text, 16 bits; the text).

#include <cstdint>
#include <string>
#include <string_view>

namespace orrery::platform::session {

inline constexpr std::size_t headerSize = 16;
inline constexpr std::size_t largestPayload = 65536;
inline constexpr std::size_t longestAnswerText = 1024;

/// Codes below those of messages belong to the protocol itself.
enum ControlCode : std::uint32_t { helloCode = 1, answerCode = 2 };

struct Frame {
  std::uint32_t code = 0;
  std::string_view payload;
};

std::string encodeFrame(std::uint32_t code, std::string_view payload);
std::string encodeHello(long long jobId);
bool decodeHello(std::string_view payload, long long& jobId);
/// A longer text is cut.
std::string encodeAnswer(int result, std::string_view text);
bool decodeAnswer(std::string_view payload, int& result, std::string& text);

/// Takes a stream of bytes apart. Holds at most what was appended and not yet taken.
class FrameReader {
 public:
  enum class Next { frame, incomplete, malformed };

  void append(const char* bytes, std::size_t count);
  /// The next frame, whose payload lives until the next call of any operation. A malformed header is found as soon as
  /// its bytes are there; what follows it is never read.
  Next next(Frame& frame);
  bool empty() const noexcept { return taken_ == bytes_.size(); }

 private:
  std::string bytes_;
  std::size_t taken_ = 0;
};

}  // namespace orrery::platform::session
