// Whatever a command line holds, no argument keeps more than the line had, and every argument is one that exec takes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "orrery/platform/arguments.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  std::size_t total = 0;
  for (const auto& argument : orrery::platform::splitArguments(line)) total += argument.size() + 1;
  if (total > size + 1) std::abort();
  return 0;
}
