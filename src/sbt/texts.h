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
inline constexpr std::uint32_t causeNoTaskOptions = 0x1800003E;
inline constexpr std::uint32_t causeNoDatabaseList = 0x57000034;
inline constexpr std::uint32_t causeNoInstance = 0x5700004A;
inline constexpr std::uint32_t causeNoOwner = 0x5700006A;
inline constexpr std::uint32_t causeBackupProgramFailed = 0x5700006B;
inline constexpr std::uint32_t causeImageFailed = 0x5700006C;
inline constexpr std::uint32_t causeBackupNotEnabled = 0x5700006D;
inline constexpr std::uint32_t causeNoImages = 0x5700006F;
inline constexpr std::uint32_t causeDirectoryNotEmpty = 0x57000070;
inline constexpr std::uint32_t causeServerDown = 0x57000071;
inline constexpr std::uint32_t causeServerNotStopped = 0x57000072;
inline constexpr std::uint32_t causeNotHandedOver = 0x570000F6;
inline constexpr std::uint32_t causeRestoreRefused = 0x570000F7;
inline constexpr std::uint32_t causeDirectoryNotReady = 0x570000F8;
inline constexpr std::uint32_t causeRestoreStopped = 0x570000F9;
inline constexpr std::uint32_t causeServerDirectoryIncomplete = 0x570000FA;

/// Both drivers refuse with it what comes before their initialisation.
inline constexpr const char* initializationNotDone = "Initialization not done.";
inline constexpr const char* noJobControl = "Failed to intialize Job Control SBT Agent";
inline constexpr const char* noCommonParams = "Failed to initialize the MEB Parameters.";
/// With the command and the result of its process.
inline constexpr const char* commandFailed = "Failed to run command [%s], process retcode [%d]";
inline constexpr const char* backupProgram = "mysqlbackup";

/// Seconds since the epoch.
std::int64_t secondsNow();
/// `folder`, and in it one named for this second: each run of `mysqlbackup` works in one of its own.
std::string timedFolder(const std::string& folder);
/// Removes the folder named for a second in which `directory` lay, unless another run that began then works there.
void removeTimedFolderOf(const std::string& directory) noexcept;

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace orrery::mysql::sbt
