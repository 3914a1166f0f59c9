#pragma once

#include <string>

#include "orrery/platform/export.h"

/// The suite's error object: what went wrong, and where.
class ORRERY_PLATFORM_EXPORT CKyError {
 public:
  /// No error.
  CKyError() = default;
  CKyError(int code, std::string text) : code_(code), text_(static_cast<std::string&&>(text)) {}
  /// Told by `function` of the source file `file`.
  CKyError(int code, std::string text, std::string function, std::string file)
      : code_(code),
        text_(static_cast<std::string&&>(text)),
        function_(static_cast<std::string&&>(function)),
        file_(static_cast<std::string&&>(file)) {}

  bool isError() const noexcept { return code_ != 0; }
  int code() const noexcept { return code_; }
  const std::string& text() const noexcept { return text_; }
  /// Empty where the teller did not say.
  const std::string& function() const noexcept { return function_; }
  const std::string& file() const noexcept { return file_; }

 private:
  int code_ = 0;
  std::string text_;
  std::string function_;
  std::string file_;
};
