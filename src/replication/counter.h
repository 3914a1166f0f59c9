#pragma once

#include <sys/types.h>

#include <string>

#include "orrery/platform/EvEvent.h"

namespace orrery::mysql {

// The counter of the backups that hold an instance's replica stopped. Both functions want the instance's lock held.

/// The file holds at most this many digits, so that many bytes are read.
inline constexpr std::size_t counterDigits = 4;
inline constexpr unsigned int mostBackups = 9999;

struct CounterReading {
  enum class Outcome { read, notOpened, notRead };
  Outcome outcome = Outcome::notOpened;
  int error = 0;           ///< errno of what failed
  ssize_t bytes = 0;       ///< as read; 0: the file is empty or was made just now
  std::string text;        ///< those bytes
  unsigned int count = 0;  ///< the leading decimal integer of the text; what is no count is 0
};
CounterReading readCounter(const std::string& path);

struct CounterWriting {
  enum class Outcome { written, notOpened, notWritten };
  Outcome outcome = Outcome::notOpened;
  int result = 0;  ///< of DZFile::write
  int error = 0;   ///< errno of what failed
};
/// Puts a new file with the digits in the place of the old one, in one step: who dies meanwhile, or finds the disk
/// full, leaves the earlier count. Only a count of 0 that cannot be written deletes the file, which says the same.
CounterWriting writeCounter(const std::string& path, unsigned int count);

// What all operations say of a counter file that fails them.
void tellNotOpened(const EvEvent& log, const char* tag, const std::string& path, int error) noexcept;
void tellNotRead(const EvEvent& log, const char* tag, int error) noexcept;
void tellNotWritten(const EvEvent& log, const char* tag, const CounterWriting& writing) noexcept;

}  // namespace orrery::mysql
