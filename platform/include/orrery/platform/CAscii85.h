#pragma once

#include <cstddef>
#include <string>

#include "orrery/platform/CKyError.h"
#include "orrery/platform/export.h"

/// Bytes as printable ASCII, four bytes in five characters.
class ORRERY_PLATFORM_EXPORT CAscii85 {
 public:
  /// Replaces `out` by the encoding of `length` bytes: digits from "!" to "u", most significant first; four null bytes
  /// at a group's place are "z"; a last group of n bytes gives n + 1 digits. No delimiters, no line breaks. An error,
  /// with `out` as it was, when there is nothing to encode, or when memory does not suffice.
  static CKyError Encode(const char* data, std::size_t length, std::string& out);
};
