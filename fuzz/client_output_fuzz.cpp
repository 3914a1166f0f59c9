// Error texts of clients: any bytes give a number, and a line "ERROR n" wins.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "access/client_output.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  orrery::mysql::errorNumberIn(text);
  const std::string withLine = "ERROR 1045 (28000): no\n" + text;
  if (orrery::mysql::errorNumberIn(withLine) != 1045) std::abort();
  return 0;
}
