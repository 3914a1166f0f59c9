#pragma once

#include <cstddef>
#include <string>

#include "orrery/platform/export.h"

/// Stored passwords.
class ORRERY_PLATFORM_EXPORT DZPassword {
 public:
  /// Opens a sealed password into `plain`, a buffer of `size` bytes, and ends it with a null. Returns 1, or 0 when the
  /// text was not sealed by this agent or the password with its null does not fit; the buffer then holds an empty
  /// text. An empty stored text is the empty password.
  int decrypt(const std::string& sealed, char* plain, std::size_t size) const;
};
