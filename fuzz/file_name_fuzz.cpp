// Whatever bytes a name holds, its file name is made of characters that any file system takes, and loses none of them.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "databases/file_name.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name(reinterpret_cast<const char*>(data), size);
  const std::string encoded = orrery::mysql::encodeFileName(name);
  constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@";
  if (encoded.find_first_not_of(allowed) != std::string::npos || encoded.size() < size) std::abort();
  return 0;
}
