#include "orrery/platform/CAscii85.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

constexpr std::size_t groupSize = 4;

/// The five digits of a group, most significant first.
std::array<char, groupSize + 1> digits(std::uint32_t group) {
  std::array<char, groupSize + 1> text{};
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit, group /= 85)
    *digit = static_cast<char>('!' + group % 85);
  return text;
}

std::uint32_t groupOf(const char* data, std::size_t count) {
  std::uint32_t group = 0;
  for (std::size_t i = 0; i < groupSize; ++i)
    group = group << 8 | (i < count ? static_cast<unsigned char>(data[i]) : 0U);
  return group;
}

std::string encoded(const char* data, std::size_t length) {
  std::string text;
  text.reserve(length / groupSize * (groupSize + 1) + groupSize + 1);
  for (; length >= groupSize; data += groupSize, length -= groupSize) {
    const std::uint32_t group = groupOf(data, groupSize);
    if (group == 0)
      text += 'z';
    else
      text.append(digits(group).data(), groupSize + 1);
  }
  if (length > 0) text.append(digits(groupOf(data, length)).data(), length + 1);
  return text;
}

}  // namespace

CKyError CAscii85::Encode(const char* data, std::size_t length, std::string& out) {
  if (data == nullptr || length == 0) return {1, "there is nothing to encode"};
  try {
    out = encoded(data, length);
    return {};
  } catch (const std::exception&) {
    return {1, "there is not enough memory for the encoded text"};
  }
}
