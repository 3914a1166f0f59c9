#pragma once

#include <cstdint>
#include <string_view>

#include "sbt_interface.h"

namespace orrery::libobk {

using namespace media;

class Session;

/// What lies in the memory that the client keeps for a session. The last failure stands here and not in the session, so
/// that sbterror can tell why a session could not begin, and after its end.
struct Context {
  std::uint64_t mark;    ///< contextMark once a call was made on this memory
  const Context* place;  ///< its own address: memory that was copied elsewhere is not taken for a session
  Session* session;      ///< owned; null before sbtinit2 and after sbtend
  Ulong code;
  char text[largestErrorText];
};
inline constexpr std::uint64_t contextMark = 0x4f52525953425432;  // "ORRYSBT2"

/// The context in the client's memory, begun when no call was made on it yet; null for memory that cannot be one.
Context* contextIn(void* memory) noexcept;

/// Keeps a failure for sbterror; what is no ASCII text is shown as "?".
void keepFailure(Context& context, Ulong code, std::string_view text) noexcept;

}  // namespace orrery::libobk
