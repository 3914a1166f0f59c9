#pragma once

#include <string>

#include "orrery/platform/CKyError.h"
#include "orrery/platform/export.h"

class ORRERY_PLATFORM_EXPORT CKyDirectory {
 public:
  /// Creates a directory with its missing parents. An existing directory is a success. Parents get mode 0711, so that
  /// accounts of database servers can pass, and the last one `mode`; the umask does not apply.
  static CKyError Create(const std::string& path, unsigned mode = 0700);
};
