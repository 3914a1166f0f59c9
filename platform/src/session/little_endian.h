#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace orrery::platform::session {

template <class Number>
void appendNumber(std::string& bytes, Number number) {
  auto rest = static_cast<std::make_unsigned_t<Number>>(number);
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    bytes += static_cast<char>(rest & 0xffU);
    if constexpr (sizeof(Number) > 1) rest = static_cast<std::make_unsigned_t<Number>>(rest >> 8);
  }
}

/// Reads from the front of a text; once something was missing, every further reading fails.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : rest_(bytes) {}

  template <class Number>
  Number number() {
    const std::string_view raw = text(sizeof(Number));
    std::make_unsigned_t<Number> value = 0;
    for (std::size_t i = raw.size(); i-- > 0;)
      value = static_cast<std::make_unsigned_t<Number>>(std::uint64_t{value} << 8 | static_cast<unsigned char>(raw[i]));
    return static_cast<Number>(value);
  }

  std::string_view text(std::size_t size) {
    if (size > rest_.size()) {
      complete_ = false;
      rest_ = {};
      return {};
    }
    const std::string_view found = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return found;
  }

  /// Whether everything that was read was there, and nothing is left.
  bool readWhole() const noexcept { return complete_ && rest_.empty(); }
  bool complete() const noexcept { return complete_; }

 private:
  std::string_view rest_;
  bool complete_ = true;
};

}  // namespace orrery::platform::session
