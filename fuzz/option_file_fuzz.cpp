// A password without any character that an option file treats in a special way always comes back; others never crash
// the reader.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "session/option_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string password(reinterpret_cast<const char*>(data), size);
  const std::string content = "[client]\npassword='" + password + "'\n";
  const bool back = orrery::mysql::givesBackPassword(content, password);
  const bool plain = password.find_first_of(std::string("\\'\"\n\0", 5)) == std::string::npos;
  if (plain && !back) std::abort();
  return 0;
}
