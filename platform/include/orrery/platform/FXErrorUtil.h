#pragma once

#include "orrery/platform/CKyError.h"
#include "orrery/platform/export.h"

/// Where in the source an error was raised; `FXSourceLocation::here()` as an argument gives the caller's place.
struct FXSourceLocation {
  const char* function;
  const char* file;

  static constexpr FXSourceLocation here(const char* callingFunction = __builtin_FUNCTION(),
                                         const char* callingFile = __builtin_FILE()) noexcept {
    return {callingFunction, callingFile};
  }
};

/// Builds errors.
class ORRERY_PLATFORM_EXPORT FXErrorUtil {
 public:
  /// An error of this code, told by the function and file of `where`, with a formatted text.
  static CKyError ErrorErrNo(int code, const FXSourceLocation& where, const char* format, ...) ORRERY_PRINTF(3, 4);
};
