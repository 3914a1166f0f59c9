#include "ascii85.h"

#include <cstdint>

namespace orrery::tool {
namespace {

constexpr std::size_t kDigits = 5;

/// Up to five digits as the four bytes they stand for. Digits that are missing count as the highest.
std::optional<std::uint32_t> valueOf(std::string_view digits) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < kDigits; ++i) {
    const char digit = i < digits.size() ? digits[i] : 'u';
    if (digit < '!' || digit > 'u') return std::nullopt;
    value = value * 85 + static_cast<std::uint64_t>(digit - '!');
  }
  if (value > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

}  // namespace

std::optional<std::string> decodeAscii85(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / kDigits * 4 + 4);
  while (!text.empty()) {
    if (text.front() == 'z') {
      bytes.append(4, '\0');
      text.remove_prefix(1);
      continue;
    }
    const std::string_view digits = text.substr(0, kDigits);
    const std::optional<std::uint32_t> value = valueOf(digits);
    if (!value || digits.size() == 1) return std::nullopt;
    for (std::size_t i = 0; i + 1 < digits.size(); ++i) bytes += static_cast<char>(*value >> (24 - 8 * i) & 0xFFU);
    text.remove_prefix(digits.size());
  }
  return bytes;
}

}  // namespace orrery::tool
