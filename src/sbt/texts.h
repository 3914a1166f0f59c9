#pragma once

#include <cstdint>
#include <string>

namespace orrery::mysql::sbt {

/// Level of log lines that only who looks for them wants.
inline constexpr int verbose = 5;
/// Type of message with which causes are told to the job manager.
inline constexpr int causeMessageType = 300;

inline constexpr std::uint32_t causeLibraryMissing = 0x12000022;
inline constexpr std::uint32_t causeJobControlFailed = 0x12000080;
inline constexpr int causeJobControlSeverity = 6;
inline constexpr std::uint32_t causeBackupProgramFailed = 0x5700006B;

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace orrery::mysql::sbt
