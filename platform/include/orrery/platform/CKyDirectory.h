#pragma once

#include <string>
#include <vector>

#include "orrery/platform/export.h"

/// The suite's error object: what went wrong, where.
class ORRERY_PLATFORM_EXPORT CKyError {
 public:
  CKyError() = default;
  CKyError(int code, std::string text) : code_(code), text_(static_cast<std::string&&>(text)) {}
  bool isError() const noexcept { return code_ != 0; }
  int code() const noexcept { return code_; }
  const std::string& text() const noexcept { return text_; }

 private:
  int code_ = 0;
  std::string text_;
};

class ORRERY_PLATFORM_EXPORT CKyDirectory {
 public:
  /// Creates a directory with its missing parents. An existing directory is a success. Parents get mode 0711, so that
  /// accounts of database servers can pass, and the last one `mode`; the umask does not apply.
  static CKyError Create(const std::string& path, unsigned mode = 0700);
};
