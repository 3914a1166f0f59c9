#pragma once

#include <cstdint>
#include <string>

namespace orrery::tool {

/// What is free for ordinary accounts where a restore writes, in bytes, and what it frees there before it does.
/// Something that cannot be looked at counts as nothing free.
struct Space {
  std::uint64_t free = 0;
  std::uint64_t freed = 0;
  std::uint64_t device = 0;   ///< of the file system, as stat(2) tells it
  bool isCompressed = false;  ///< by the file system, maybe: data may take less there than they have bytes

  std::uint64_t usable() const noexcept { return free + freed; }
};

/// `directory` need not be there yet. `isEmptied`: its files go first.
Space spaceAt(const std::string& directory, bool isEmptied);

}  // namespace orrery::tool
