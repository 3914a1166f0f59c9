#include "session/password.h"

#include <string.h>

#include <array>

#include "orrery/platform/DZPassword.h"

namespace orrery::mysql {

bool openPassword(const std::string& sealed, std::string& plain) {
  constexpr std::size_t room = 1025;
  std::array<char, room> buffer{};
  const bool opened = DZPassword().decrypt(sealed, buffer.data(), buffer.size()) != 0;
  if (opened) plain = buffer.data();
  explicit_bzero(buffer.data(), buffer.size());
  return opened;
}

}  // namespace orrery::mysql
