#pragma once

/// What the media library tells the agent while a backup program moves data: messages and their place on the wire.

#include <cstdint>
#include <string>
#include <string_view>

#include "orrery/platform/export.h"

/// Codes of the messages.
enum SbtMessageCode : std::uint32_t {
  sbtStatusCode = 0x1200000D,    ///< SbtStatusMessage: how a piece goes
  sbtProgressCode = 0x1200000E,  ///< SbtProgressMessage: what a run has moved so far
  sbtRunCode = 0x1200000F,       ///< SbtStatusMessage: a run begins; its totals start from nothing
};

/// How an image goes, as the status of a message with `sbtStatusCode` tells it.
enum class SbtImageState : std::int32_t { begun = 0, done = 1, givenUp = 2 };

struct SbtStatusMessage {
  std::int64_t jobId = 0;
  std::int64_t threadId = 0;
  std::int32_t reserved = 0;  ///< nobody reads it
  std::int32_t status = 0;
};

struct SbtProgressMessage {
  std::int64_t jobId = 0;
  std::int64_t threadId = 0;
  const char* backupFileName = nullptr;  ///< may be null
  std::int64_t bytes = 0;                ///< of the whole run so far
  std::int64_t files = 0;                ///< of the whole run so far
  std::int32_t phase = 0;
};

/// Name of a message code for the log; "UNKNOWN" for any other number.
ORRERY_PLATFORM_EXPORT const char* DZS_OraBackupRestore_PM_STRING(unsigned long msgType) noexcept;

namespace orrery::platform {

/// Longest name of a backup file in a message, in bytes. Longer ones are cut when they are written.
inline constexpr std::size_t longestBackupFileName = 512;

/// Payloads: the fields in their order, little-endian, a name as its length + 1 in 16 bits (0: null) and its bytes.
ORRERY_PLATFORM_EXPORT std::string encodeMessage(const SbtStatusMessage& message);
ORRERY_PLATFORM_EXPORT std::string encodeMessage(const SbtProgressMessage& message);
/// False, with `message` as it was, for a payload that is not exactly one message. The name of a progress message goes
/// to `name`, to which `backupFileName` then points; bytes behind a null in it are not seen by readers of that pointer.
ORRERY_PLATFORM_EXPORT bool decodeMessage(std::string_view payload, SbtStatusMessage& message);
ORRERY_PLATFORM_EXPORT bool decodeMessage(std::string_view payload, SbtProgressMessage& message, std::string& name);

}  // namespace orrery::platform
