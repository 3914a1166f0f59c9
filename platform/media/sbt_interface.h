#pragma once

/// The media interface, version 2.0, as a backup program and its media library share it on 64-bit Linux: numbers and
/// layouts. Every call answers 0 for success and -1 for failure.

#include <cstddef>

namespace orrery::media {

using Ulong = unsigned long;
using Uint = unsigned int;

/// How `sbtinit` says why it failed.
struct SbtError {
  int code;
  int own;  ///< number of the library's own
};
inline constexpr int sbtBadArgument = 7110;
inline constexpr int sbtSystemError = 7111;

/// One entry of a list; the last one has the list's end type.
struct SbtEntry {
  Ulong type;
  void* value;
};

// What sbtinit answers with.
inline constexpr Ulong initEnd = 1;
inline constexpr Ulong initInterfaceVersion = 4;  ///< Ulong: major in bits 8 to 15, minor below
inline constexpr Ulong initDescription = 5;       ///< text, at most 64 bytes with its null
inline constexpr Ulong initFunctions = 6;         ///< SbtFunctions
inline constexpr Ulong initContextSize = 7;       ///< Ulong, at most 1 MiB
inline constexpr Ulong initSoftwareVersion = 8;   ///< Ulong of four bytes' worth

// What sbtinfo2 tells of a file; numbers are Ulong.
inline constexpr Ulong infoName = 1;
inline constexpr Ulong infoMethod = 2;
inline constexpr Ulong infoCreated = 3;  ///< seconds since the epoch
inline constexpr Ulong infoLabel = 5;    ///< at most 64 bytes
inline constexpr Ulong infoSharing = 6;
inline constexpr Ulong infoOrder = 7;
inline constexpr Ulong infoNotFound = 8;
inline constexpr Ulong infoComment = 9;  ///< at most 80 bytes
inline constexpr Ulong listEnd = 9999;   ///< of the lists of sbtinit2 and sbtinfo2
inline constexpr Ulong methodStream = 1;
inline constexpr Ulong sharingMultiple = 2;
inline constexpr Ulong orderRandom = 2;

// What sbterror tells.
inline constexpr Ulong sbtMediaFailure = 7501;
inline constexpr Ulong sbtNotFound = 7502;
inline constexpr Ulong sbtExists = 7503;
inline constexpr Ulong sbtEndOfFile = 7504;

/// Bit 0 of the flags of sbtclose2: give up the file being created; of sbtend: the session ends abnormally.
inline constexpr Ulong flagGiveUp = 1;

inline constexpr std::size_t largestName = 512;        ///< with its null
inline constexpr std::size_t largestErrorText = 1024;  ///< with its null

/// The calls of a session, in the order of the table.
struct SbtFunctions {
  int (*sbtbackup)(void*, Ulong, const char* name, const SbtEntry* object, std::size_t blockSize, std::size_t largest,
                   Uint copy, Uint pool);
  int (*sbtclose2)(void*, Ulong);
  int (*sbtcommand)(void*, Ulong, const char* command);
  int (*sbtend)(void*, Ulong);
  int (*sbterror)(void*, Ulong, Ulong* code, char** text, char** utf8Text);
  int (*sbtinfo2)(void*, Ulong, const char* const* names, SbtEntry** information);
  int (*sbtinit2)(void*, Ulong, const SbtEntry* input, SbtEntry** output);
  int (*sbtread2)(void*, Ulong, void* block);
  int (*sbtremove2)(void*, Ulong, const char* const* names);
  int (*sbtrestore)(void*, Ulong, const char* name, std::size_t blockSize);
  int (*sbtwrite2)(void*, Ulong, const void* block);
  void* proxyCopy[10];  ///< all null: not supported
};

static_assert(sizeof(Ulong) == 8 && sizeof(Uint) == 4 && sizeof(std::size_t) == 8);
static_assert(sizeof(SbtError) == 8 && offsetof(SbtError, own) == 4);
static_assert(sizeof(SbtEntry) == 16 && offsetof(SbtEntry, value) == 8);
static_assert(sizeof(SbtFunctions) == std::size_t{21} * 8);
static_assert(offsetof(SbtFunctions, sbterror) == std::size_t{4} * 8 &&
              offsetof(SbtFunctions, sbtinit2) == std::size_t{6} * 8);
static_assert(offsetof(SbtFunctions, sbtwrite2) == std::size_t{10} * 8 &&
              offsetof(SbtFunctions, proxyCopy) == std::size_t{11} * 8);

}  // namespace orrery::media

/// The one entry point that a backup program looks up; all other calls are reached through the table in `output`.
extern "C" int sbtinit(orrery::media::SbtError* error, const orrery::media::SbtEntry* input,
                       orrery::media::SbtEntry** output);
