#include "orrery/platform/posix.h"

#include <array>
#include <cstring>

namespace orrery::platform {

std::string errorText(int error) {
  std::array<char, 256> buffer{};
  return strerror_r(error, buffer.data(), buffer.size());
}

}  // namespace orrery::platform
