#pragma once

#include "orrery/platform/export.h"

namespace orrery::mysql {

/// Where the lines of the client-library binding go: to the redirect file while someone has made it, else to the
/// agent's log at level 5. Whether anybody reads them is found out once per `look`, so that lines nobody reads cost a
/// test of a flag.
class LogTarget {
 public:
  /// Looks for the redirect file and asks the log for its level.
  void look() noexcept;
  /// The same for every 256th row.
  void lookAtRow() noexcept {
    if ((++rows_ & 0xFFU) == 0) look();
  }
  bool isWanted() const noexcept { return isRedirected_ || isLogged_; }

  void line(const char* format, ...) noexcept ORRERY_PRINTF(2, 3);
  void vline(const char* format, __builtin_va_list arguments) noexcept ORRERY_PRINTF(2, 0);

 private:
  bool appendToRedirectFile(const char* message) noexcept;

  bool isRedirected_ = false;
  bool isLogged_ = false;
  bool hasToldRefusal_ = false;
  unsigned rows_ = 0;
};

}  // namespace orrery::mysql
